#pragma once

#include "Platform/Security/Keychain/KeychainItem.hpp"
#include "Tessera/Model/AccountEnvironment.hpp"
#include "tests/simulation/Texts.hpp"
#include "tests/support/MemoryItemStore.hpp"

namespace simulation
{

/// Of the simulated server; all programs share it.
const tessera::AccountEnvironment& environment();
std::string clientKeychainIdentifier(int client);

/// Where the two items of a session lie.
platform::KeychainIdentity tokenIdentity();
platform::KeychainIdentity infoIdentity(int client);

/// Null where there is no item, or one that holds something else.
const Text* storedText(const MemoryItemStore& stored, const platform::KeychainIdentity& identity);

/// As another program, or a fault of the disk, would write it.
void store(MemoryItemStore& stored, const platform::KeychainIdentity& identity, const Text& text);

}  // namespace simulation
