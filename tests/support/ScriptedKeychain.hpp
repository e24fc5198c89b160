#pragma once

#include "Platform/Security/Keychain/Keychain.hpp"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Remembers every call, and answers with what the test laid down for the operation. Where nothing
/// is laid down it passes the call on to `next`; without one it is a keychain that is always empty.
class ScriptedKeychain final : public platform::Keychain
{
public:
    enum class Operation
    {
        add,
        copyMatching,
        deleteMatching,
        stagedDelete,
        stagedAdd,
    };
    struct Call
    {
        Operation operation;
        platform::KeychainQuery query;
    };

    explicit ScriptedKeychain(std::shared_ptr<platform::Keychain> next = nullptr);

    /// The answers of the next calls of this operation, first laid down first.
    void answer(Operation operation, platform::KeychainAnswer answer);
    void answer(Operation operation, platform::KeychainStatus status);

    /// Called before each call is answered, on the caller's thread. It may throw and may wait.
    void onCall(std::function<void(const Call&)> hook);

    void makeNoAccessControl() { makesAccessControl_ = false; }
    void onMakeAccessControl(std::function<void()> hook) { accessControlHook_ = std::move(hook); }

    /// The calls since the last time, each as "operation: attribute=value, ..." in their order.
    std::vector<std::string> takeCalls();

    /// The most calls of any scripted keychain of the process that were under way at once.
    static int greatestOverlap();

    platform::KeychainStatus add(const platform::KeychainQuery& attributes) override;
    platform::KeychainAnswer copyMatching(const platform::KeychainQuery& query) override;
    platform::KeychainStatus deleteMatching(const platform::KeychainQuery& query) override;
    std::unique_ptr<platform::KeychainStagedScope> stage() override;
    std::shared_ptr<const platform::AccessControl> makeAccessControl(
        platform::KeychainAccessible accessible, platform::AccessControlFlag flag) override;

private:
    class Staged;

    platform::KeychainAnswer answered(Operation operation, const platform::KeychainQuery& query,
                                      const std::function<platform::KeychainAnswer()>& forward);
    platform::KeychainStatus status(Operation operation, const platform::KeychainQuery& query,
                                    const std::function<platform::KeychainStatus()>& forward);

    const std::shared_ptr<platform::Keychain> next_;
    std::mutex mutex_;
    std::map<Operation, std::deque<platform::KeychainAnswer>> script_;
    std::vector<std::string> calls_;
    std::function<void(const Call&)> hook_;
    std::function<void()> accessControlHook_;
    bool makesAccessControl_ = true;
};

/// The attributes in their order, such as "kSecAttrService=Tokens, kSecReturnData=true".
std::string text(const platform::KeychainQuery& query);
