#pragma once

#include "Platform/Concurrency/Task.hpp"
#include "Platform/Security/Keychain/StoreKeychain.hpp"
#include "Tessera/Session/Account.hpp"
#include "tests/support/FixedDevice.hpp"
#include "tests/support/ManualClock.hpp"
#include "tests/support/MemoryItemStore.hpp"
#include "tests/support/ScriptedKeychain.hpp"
#include "tests/support/ScriptedURLSession.hpp"
#include "tests/support/StepExecutor.hpp"
#include "tests/support/TokenFactory.hpp"
#include "tests/support/TwoDeviceKeyValueStore.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// How a call of the host ended.
template <class T>
class Call
{
public:
    void end(platform::Outcome<T> outcome)
    {
        ++ends_;
        outcome_ = std::move(outcome);
    }
    int ends() const { return ends_; }
    bool succeeded() const { return ends_ == 1 && outcome_->succeeded(); }
    T value() const { return outcome_->get(); }
    /// `what()` of the error, empty without one.
    std::string error() const;

private:
    int ends_ = 0;
    std::optional<platform::Outcome<T>> outcome_;
};

std::string nameOf(const std::exception_ptr& error);

template <class T>
std::string Call<T>::error() const
{
    return ends_ == 1 && !outcome_->succeeded() ? nameOf(outcome_->error()) : std::string();
}

/// A program with an account, in manual time, on threads that run when the test says so. Programs
/// that share a `Machine` share the user's keychain and announcements.
class Machine
{
public:
    StepExecutor executor;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<MemoryItemStore> items = std::make_shared<MemoryItemStore>();
    TwoDeviceKeyValueStore announcements;

    /// Runs everything that can run without time going on.
    void settle();
    void advance(double seconds);
};

class SessionHost
{
public:
    explicit SessionHost(Machine& machine, std::string client = "editor");
    ~SessionHost()
    {
        release();
        // What the release cancels ends in turns of its own; a sign-out waits for its answer.
        machine.settle();
        for (const auto& transfer : network->started)
            transfer->answer(204, "");
        machine.settle();
    }

    static const TokenFactory& server();
    static std::string token(const std::string& user, const std::string& session = "s1");
    static std::string info(const std::string& user, const std::string& email = "a@example.org",
                            const std::string& audience = "editor.mac");

    /// Makes a fresh account, as a new start of the program would.
    void launchAgain();
    void release();

    template <class T>
    std::shared_ptr<Call<T>> start(platform::Awaitable<T> work)
    {
        return startOn<T>(executor_, std::move(work));
    }
    template <class T>
    std::shared_ptr<Call<T>> startOn(const platform::Executor& executor,
                                     platform::Awaitable<T> work)
    {
        auto call = std::make_shared<Call<T>>();
        task_ = platform::start<T>(executor, std::move(work), [call](platform::Outcome<T> outcome)
                                   { call->end(std::move(outcome)); });
        return call;
    }
    void cancelLastCall() { task_->cancel(); }

    /// Runs `work` on the host's main thread.
    template <class Work>
    auto onMain(Work work)
    {
        std::optional<std::invoke_result_t<Work>> result;
        main->runInside([&] { result = work(); });
        return *std::move(result);
    }
    void onMainDo(const std::function<void()>& work) { main->runInside(work); }

    void launch();
    void activate();
    void signOut();
    platform::Awaitable<tessera::AccountState> callSignIn();
    std::shared_ptr<Call<tessera::AccountState>> signIn();
    std::shared_ptr<Call<void>> refresh(bool force = true);

    /// The paths of the requests since the last time, those with a bearer token marked with "*",
    /// and the methods of deletions.
    std::vector<std::string> takeRequests();
    /// Answers the oldest open transfer of this path; there must be one.
    void answer(const std::string& path, int status, const std::string& body);
    /// Both requests of a sign-in, with the user's token and information.
    void answerSignIn(const std::string& user);
    void answerRefused(const std::string& path, const std::string& code = "some_code");

    /// Signed in, all requests answered.
    void signInAs(const std::string& user);

    std::string state() const;
    std::optional<std::string> stored(const std::string& key) const;
    void store(const std::string& key, const std::string& value);

    Machine& machine;
    std::shared_ptr<StepQueue> main, background, storage;
    std::shared_ptr<ScriptedURLSession> network = std::make_shared<ScriptedURLSession>();
    std::shared_ptr<ScriptedKeychain> keychain;
    platform::Services services;
    tessera::AccountEnvironment environment;
    tessera::AccountClient client;
    std::unique_ptr<tessera::Account> account;
    /// Every state that was published, the first included.
    std::vector<std::string> published;

private:
    platform::Executor executor_;
    platform::Subscription subscription_;
    std::optional<platform::Task<void>> task_;
    std::size_t taken_ = 0;
};

/// "loading", "failed", "pending:user", "pending:user!" with a message, "signedIn:user/remote".
std::string text(const tessera::AccountState& state);
