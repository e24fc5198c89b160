#include "Platform/Security/RSASignature.hpp"
#include "tests/support/TestKey.hpp"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <algorithm>

using namespace platform;

namespace
{

std::span<const std::byte> view(const std::vector<std::byte>& bytes)
{
    return bytes;
}

}  // namespace

TEST(RSASignature, IsConfirmedByItsKeyMessageAndHashAlone)
{
    const TestKey key;
    const TestKey other;
    const std::string message = "header.payload";
    for (const auto hash : {HashFunction::sha256, HashFunction::sha384, HashFunction::sha512})
    {
        const auto signature = key.sign(message, hash);
        auto verifier = RSASignatureVerifier::fromPKCS1(key.publicDER(), hash);
        ASSERT_TRUE(verifier);

        EXPECT_TRUE(verifier->verify(message, signature));
        EXPECT_FALSE(verifier->verify(message + "x", signature));
        EXPECT_FALSE(verifier->verify(message, view(signature).first(signature.size() - 1)));
        EXPECT_FALSE(verifier->verify(message, {}));
        EXPECT_FALSE(verifier->verify(message, other.sign(message, hash)));
        auto flipped = signature;
        flipped[100] ^= std::byte{1};
        EXPECT_FALSE(verifier->verify(message, flipped));
        EXPECT_TRUE(verifier->verify(message, signature))
            << "a refusal must not spoil the verifier";
        const auto otherHash =
            hash == HashFunction::sha256 ? HashFunction::sha512 : HashFunction::sha256;
        EXPECT_FALSE(verifier->verify(message, key.sign(message, otherHash)));
    }
    EXPECT_EQ(ERR_peek_error(), 0u) << "the host's error queue was touched";
}

TEST(RSASignature, KeysThatAreNotExactlyPKCS1AreRefused)
{
    const TestKey key;
    auto longer = key.publicDER();
    longer.push_back(std::byte{0});
    auto shorter = key.publicDER();
    shorter.pop_back();
    const std::vector<std::vector<std::byte>> refused{
        {}, longer, shorter, key.subjectPublicKeyInfoDER(), key.privateDER()};

    for (const auto& der : refused)
        EXPECT_FALSE(RSASignatureVerifier::fromPKCS1(der, HashFunction::sha256)) << der.size();
    EXPECT_TRUE(RSASignatureVerifier::fromPKCS1(key.publicDER(), HashFunction::sha256));
    EXPECT_EQ(ERR_peek_error(), 0u) << "the host's error queue was touched";
}
