#pragma once

#include "tests/soak/CyclesStage.hpp"

#include "Platform/KeyValueStore/FileKeyValueStore.hpp"
#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Tessera/Session/Account.hpp"
#include "Valet/Valet.hpp"
#include "tools/environment/EnvironmentFile.hpp"

#include <filesystem>
#include <optional>
#include <string>

namespace soak
{

/// A program of the user: an account with services of its own, over the folders that all programs
/// share. Everything is real but the place of the folders and whom the transfers trust.
class CyclesProgram
{
public:
    /// `identifier` is one that the server knows.
    CyclesProgram(CyclesStage& stage, tools::EnvironmentFile file, const std::string& identifier,
                  const std::filesystem::path& folder);
    ~CyclesProgram();
    CyclesProgram(const CyclesProgram&) = delete;
    CyclesProgram& operator=(const CyclesProgram&) = delete;

    const std::string& name() const { return client_.identifier; }
    tessera::Account& account() { return *account_; }
    bool isSignedIn() const { return account_->state().get<tessera::AccountProfile>(); }
    bool isSignedOut() const { return account_->state().get<tessera::AccountState::SignedOut>(); }

    /// Lets go of the account, whatever it does, and makes another, which launches.
    void restartAccount();

    /// Ends the account, its transfers and their thread, and what was under way on the others.
    void rest();
    /// After `rest`.
    void resume();

    /// What was handed to the other threads, also by accounts that are gone, has been done.
    void drain();

    /// What does not fit together between the account and the store; empty when all does.
    std::string inconsistency() const;

    /// Where the session stands, and by which way it came there, for messages.
    std::string shown() const;

private:
    platform::Services servicesOverFolders(const std::filesystem::path& folder);

    CyclesStage& stage_;
    const tools::EnvironmentFile file_;
    const tessera::AccountClient client_;
    platform::WorkerThread background_;
    platform::WorkerThread storage_;
    std::shared_ptr<platform::CurlURLSession> session_;
    platform::Services services_;
    std::shared_ptr<valet::Valet> environmentStore_;
    std::shared_ptr<valet::Valet> clientStore_;
    std::optional<tessera::Account> account_;
};

}  // namespace soak
