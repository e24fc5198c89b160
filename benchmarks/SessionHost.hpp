#pragma once

#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Networking/CurlURLSession.hpp"
#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Tessera/Session/Account.hpp"
#include "tools/environment/EnvironmentFile.hpp"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A main thread that times each piece of work. Several may be one thread.
class TimedMainActor final : public platform::MainActor
{
public:
    explicit TimedMainActor(std::shared_ptr<platform::RunLoop> loop) : loop_(std::move(loop)) {}

    void enqueue(std::function<void()> work) override;
    bool isCurrent() const override { return loop_->isCurrent(); }

    /// Runs and times it, as something that the host itself does on the main thread.
    void run(const std::function<void()>& work);

    struct Stay
    {
        /// Seconds by the wall, and of the thread's CPU time: the rest is waiting, for the disk or
        /// for other programs' turns on the CPU.
        double wall = 0;
        double cpu = 0;
    };
    Stay longest() const { return longest_; }
    double wallInAll() const { return wallInAll_; }
    void forget();

private:
    const std::shared_ptr<platform::RunLoop> loop_;
    /// The main thread's own.
    Stay longest_;
    double wallInAll_ = 0;
};

/// The folders of a user, on a disk, and the environment of the server that `server().state` names.
class SessionUser
{
public:
    SessionUser();
    ~SessionUser();
    SessionUser(const SessionUser&) = delete;
    SessionUser& operator=(const SessionUser&) = delete;

    const tools::EnvironmentFile file;
    const std::filesystem::path folder;
    const std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();

    /// Runs the main thread until it holds. Throws when it does not within half a minute.
    void runUntil(const std::function<bool()>& holds) const;
    void runFor(std::chrono::milliseconds span) const;

    /// The code of the newest mail to the address.
    std::string code(const std::string& email) const;
};

/// A program of the user, with everything as it is in a host but for the folders. Background and
/// storage are the threads of the system's services.
class SessionHost
{
public:
    explicit SessionHost(const SessionUser& user, std::string client = "editor");
    ~SessionHost();
    SessionHost(const SessionHost&) = delete;
    SessionHost& operator=(const SessionHost&) = delete;

    const SessionUser& user;
    const std::shared_ptr<TimedMainActor> main;
    platform::Services services;
    tessera::AccountClient client;
    std::optional<tessera::Account> account;

    /// A new account in the place of the one that is there.
    void makeAccount();
    void launchToEnd();
    /// As it is before the program uses it first: the next use opens the files.
    void closeKeychain();

    /// Awaits it on the main thread.
    template <class T>
    T toEnd(platform::Awaitable<T> work)
    {
        std::optional<platform::Outcome<T>> outcome;
        platform::start<T>(platform::executorOf(main), std::move(work),
                           [&outcome](platform::Outcome<T> end) { outcome = std::move(end); });
        user.runUntil([&outcome] { return outcome.has_value(); });
        return std::move(*outcome).get();
    }
    void signIn(const std::string& email);
    /// What was handed to the other threads is done.
    void drain() const;

    bool isSignedIn() const { return account->state().get<tessera::AccountProfile>() != nullptr; }
    bool isSignedOut() const
    {
        return account->state().get<tessera::AccountState::SignedOut>() != nullptr;
    }

private:
    std::shared_ptr<platform::CurlURLSession> session_;
    std::shared_ptr<platform::EmbeddedItemStore> items_;
};

/// So many of a hundred are not longer.
double percentile(std::vector<double> values, double percent);
