#pragma once

#include "Platform/Security/RSASignature.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// A fresh 2048-bit RSA key that signs what a server would sign.
class TestKey
{
public:
    TestKey();
    ~TestKey();
    TestKey(const TestKey&) = delete;
    TestKey& operator=(const TestKey&) = delete;

    std::vector<std::byte> sign(std::string_view message, platform::HashFunction hash) const;

    std::vector<std::byte> publicDER() const;
    std::vector<std::byte> privateDER() const;
    std::vector<std::byte> subjectPublicKeyInfoDER() const;

    /// "-----BEGIN RSA PUBLIC KEY-----", lines of 64, a line feed between lines and none at the
    /// end.
    std::string publicPEM() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
