#pragma once

#include "Platform/Security/Keychain/StoreKeychain.hpp"

#include <functional>
#include <memory>
#include <ostream>
#include <string>

/// One implementation of `ItemStore` for the suite that all keychains pass. `open` gives a further
/// store over the same items, as another process would have it.
struct KeychainImplementation
{
    std::string name;
    /// Empty where the machine lacks what it needs, and the tests are skipped.
    std::function<std::function<std::shared_ptr<platform::ItemStore>()>()> prepare;

    friend std::ostream& operator<<(std::ostream& out, const KeychainImplementation& self)
    {
        return out << self.name;
    }
};

KeychainImplementation memoryImplementation();
KeychainImplementation embeddedImplementation();
KeychainImplementation secretServiceImplementation();
