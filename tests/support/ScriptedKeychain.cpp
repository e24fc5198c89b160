#include "tests/support/ScriptedKeychain.hpp"

#include "Platform/Security/Authentication/LocalAuthenticationContext.hpp"
#include "tests/support/SecretText.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <utility>

using platform::KeychainAnswer;
using platform::KeychainQuery;
using platform::KeychainStatus;

namespace
{

std::atomic<int> underWay = 0;
std::atomic<int> mostUnderWay = 0;

class UnderWay
{
public:
    UnderWay()
    {
        const int now = ++underWay;
        int most = mostUnderWay;
        while (most < now && !mostUnderWay.compare_exchange_weak(most, now))
        {
        }
    }
    ~UnderWay() { --underWay; }
    UnderWay(const UnderWay&) = delete;
    UnderWay& operator=(const UnderWay&) = delete;
};

template <class... Functions>
struct Overloaded : Functions...
{
    using Functions::operator()...;
};

std::string valueText(const platform::KeychainValue& value)
{
    return std::visit(
        Overloaded{[](bool flag) { return std::string(flag ? "true" : "false"); },
                   [](const std::string& given) { return given; },
                   [](const platform::SecretBytes& bytes) { return text(bytes); },
                   [](platform::KeychainClass) { return std::string("kSecClassGenericPassword"); },
                   [](platform::KeychainAccessible accessible)
                   { return std::to_string(static_cast<int>(accessible)); },
                   [](platform::KeychainMatchLimit limit)
                   {
                       return std::string(limit == platform::KeychainMatchLimit::kSecMatchLimitOne
                                              ? "one"
                                              : "all");
                   },
                   [](const std::shared_ptr<const platform::AccessControl>& control)
                   {
                       return std::to_string(static_cast<int>(control->accessible)) + "+" +
                              std::to_string(static_cast<unsigned>(control->flag));
                   },
                   [](const std::shared_ptr<platform::LocalAuthenticationContext>& context)
                   {
                       return context->interactionNotAllowed()
                                  ? std::string("barred")
                                  : "\"" + context->localizedReason() + "\"";
                   }},
        value);
}

}  // namespace

std::string text(const KeychainQuery& query)
{
    static constexpr std::array names{"kSecClass",
                                      "kSecAttrService",
                                      "kSecUseDataProtectionKeychain",
                                      "kSecAttrAccessGroup",
                                      "kSecAttrAccessible",
                                      "kSecAttrSynchronizable",
                                      "kSecAttrAccessControl",
                                      "kSecAttrAccount",
                                      "kSecValueData",
                                      "kSecMatchLimit",
                                      "kSecReturnData",
                                      "kSecReturnAttributes",
                                      "kSecUseAuthenticationContext"};
    std::string all;
    for (const auto& [attribute, value] : query.entries())
    {
        all += all.empty() ? "" : ", ";
        all += names.at(static_cast<std::size_t>(attribute));
        all += "=" + valueText(value);
    }
    return all;
}

/// Answers in the name of its keychain; the scope of `next` does the work.
class ScriptedKeychain::Staged final : public platform::KeychainStagedScope
{
public:
    Staged(ScriptedKeychain& keychain, std::unique_ptr<platform::KeychainStagedScope> next)
        : keychain_(keychain), next_(std::move(next))
    {}

    KeychainStatus deleteMatching(const KeychainQuery& query) override
    {
        return keychain_.status(Operation::stagedDelete, query,
                                [&] { return next_->deleteMatching(query); });
    }
    KeychainStatus add(const KeychainQuery& attributes) override
    {
        return keychain_.status(Operation::stagedAdd, attributes,
                                [&] { return next_->add(attributes); });
    }

private:
    ScriptedKeychain& keychain_;
    const std::unique_ptr<platform::KeychainStagedScope> next_;
};

ScriptedKeychain::ScriptedKeychain(std::shared_ptr<platform::Keychain> next)
    : next_(std::move(next))
{}

void ScriptedKeychain::answer(Operation operation, KeychainAnswer answer)
{
    const std::lock_guard lock(mutex_);
    script_[operation].push_back(std::move(answer));
}

void ScriptedKeychain::answer(Operation operation, KeychainStatus status)
{
    answer(operation, KeychainAnswer{status, {}});
}

void ScriptedKeychain::onCall(std::function<void(const Call&)> hook)
{
    const std::lock_guard lock(mutex_);
    hook_ = std::move(hook);
}

std::vector<std::string> ScriptedKeychain::takeCalls()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(calls_, {});
}

int ScriptedKeychain::greatestOverlap()
{
    return mostUnderWay;
}

KeychainStatus ScriptedKeychain::add(const KeychainQuery& attributes)
{
    return status(Operation::add, attributes, [&] { return next_->add(attributes); });
}

KeychainAnswer ScriptedKeychain::copyMatching(const KeychainQuery& query)
{
    return answered(Operation::copyMatching, query, [&] { return next_->copyMatching(query); });
}

KeychainStatus ScriptedKeychain::deleteMatching(const KeychainQuery& query)
{
    return status(Operation::deleteMatching, query, [&] { return next_->deleteMatching(query); });
}

std::unique_ptr<platform::KeychainStagedScope> ScriptedKeychain::stage()
{
    return std::make_unique<Staged>(*this, next_ ? next_->stage() : nullptr);
}

std::shared_ptr<const platform::AccessControl> ScriptedKeychain::makeAccessControl(
    platform::KeychainAccessible accessible, platform::AccessControlFlag flag)
{
    if (const auto hook = std::exchange(accessControlHook_, nullptr))
        hook();
    return makesAccessControl_ ? Keychain::makeAccessControl(accessible, flag) : nullptr;
}

KeychainStatus ScriptedKeychain::status(Operation operation, const KeychainQuery& query,
                                        const std::function<KeychainStatus()>& forward)
{
    return answered(operation, query, [&] { return KeychainAnswer{forward(), {}}; }).status;
}

KeychainAnswer ScriptedKeychain::answered(Operation operation, const KeychainQuery& query,
                                          const std::function<KeychainAnswer()>& forward)
{
    static constexpr std::array names{"add", "copy", "delete", "staged delete", "staged add"};
    const UnderWay counted;
    std::unique_lock lock(mutex_);
    calls_.push_back(std::string(names.at(static_cast<std::size_t>(operation))) + ": " +
                     text(query));
    if (const auto hook = hook_)
    {
        lock.unlock();
        hook({operation, query});
        lock.lock();
    }

    auto& answers = script_[operation];
    if (!answers.empty())
    {
        auto answer = std::move(answers.front());
        answers.pop_front();
        return answer;
    }
    lock.unlock();
    if (next_)
        return forward();
    const bool adds = operation == Operation::add || operation == Operation::stagedAdd;
    return {adds ? KeychainStatus::success : KeychainStatus::itemNotFound, {}};
}
