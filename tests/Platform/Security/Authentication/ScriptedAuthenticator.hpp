#pragma once

#include "Platform/Security/Authentication/Authenticator.hpp"
#include "Platform/Security/Authentication/ItemProtection.hpp"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// A user who does as the test says, and remembers what was asked.
class ScriptedAuthenticator final : public platform::Authenticator
{
public:
    using Outcome = platform::Authenticator::Outcome;

    explicit ScriptedAuthenticator(std::function<void()> onGone = {}) : onGone_(std::move(onGone))
    {}
    ~ScriptedAuthenticator() override
    {
        if (onGone_)
            onGone_();
    }

    Answer authenticate(const Request& request) override
    {
        std::unique_lock lock(mutex_);
        requests_.push_back(request);
        markedThread_ = platform::isAuthenticating();
        mostAtOnce_ = std::max(mostAtOnce_, ++inside_);
        changed_.notify_all();
        const std::stop_callback woken(request.ended, [this] { changed_.notify_all(); });
        changed_.wait(lock,
                      [&] { return !held_ || (obedient_ && request.ended.stop_requested()); });
        --inside_;
        const auto during = during_;
        const Answer answer{.outcome = outcome_, .passcode = platform::SecretString(passcode_)};
        lock.unlock();
        if (during)
            during();
        return answer;
    }

    bool offers(platform::AccessControlFlag demanded) const override
    {
        const std::lock_guard lock(mutex_);
        return offered_.contains(demanded);
    }

    std::optional<std::string> fingerprintSet() const override
    {
        const std::lock_guard lock(mutex_);
        return fingerprints_;
    }

    void answer(Outcome outcome, std::string passcode = {})
    {
        const std::lock_guard lock(mutex_);
        outcome_ = outcome;
        passcode_ = std::move(passcode);
    }
    void enrol(std::optional<std::string> set)
    {
        const std::lock_guard lock(mutex_);
        fingerprints_ = std::move(set);
    }
    void offer(std::set<platform::AccessControlFlag> flags)
    {
        const std::lock_guard lock(mutex_);
        offered_ = std::move(flags);
    }
    /// Runs on the authenticator's thread before it answers.
    void meanwhile(std::function<void()> action)
    {
        const std::lock_guard lock(mutex_);
        during_ = std::move(action);
    }

    /// Requests wait until `letGo`; an obedient user also ends with the request.
    void hold(bool obedient)
    {
        const std::lock_guard lock(mutex_);
        held_ = true;
        obedient_ = obedient;
    }
    void letGo()
    {
        const std::lock_guard lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    void waitUntilAsked(std::size_t times)
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return requests_.size() >= times; });
    }

    std::vector<Request> requests() const
    {
        const std::lock_guard lock(mutex_);
        return requests_;
    }
    std::size_t asked() const { return requests().size(); }
    int mostAtOnce() const
    {
        const std::lock_guard lock(mutex_);
        return mostAtOnce_;
    }
    bool ranOnMarkedThread() const
    {
        const std::lock_guard lock(mutex_);
        return markedThread_;
    }

private:
    using Flag = platform::AccessControlFlag;

    const std::function<void()> onGone_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Outcome outcome_ = Outcome::confirmed;
    std::string passcode_;
    std::optional<std::string> fingerprints_ = "two thumbs";
    std::set<Flag> offered_ = {Flag::userPresence, Flag::anyFingerprint,
                               Flag::currentFingerprintSet, Flag::devicePasscode};
    std::function<void()> during_;
    bool held_ = false;
    bool obedient_ = true;
    std::vector<Request> requests_;
    int inside_ = 0;
    int mostAtOnce_ = 0;
    bool markedThread_ = false;
};
