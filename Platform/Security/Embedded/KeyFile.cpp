#include "Platform/Security/Embedded/KeyFile.hpp"

#include "Platform/Security/Authentication/Fields.hpp"
#include "Platform/Security/Embedded/StoreFault.hpp"

#include <algorithm>
#include <string>
#include <string_view>

#include <sodium.h>

namespace platform
{
namespace
{

constexpr std::string_view magic = "TSRAKEY\n";
constexpr std::size_t checksumSize = 32;
constexpr std::size_t bodySize = MasterKey::size + crypto_aead_xchacha20poly1305_ietf_ABYTES;

// Three passes over 64 MiB, as RFC 9106 (4) advises where memory is scarce. A file that asks for
// more than the upper bounds was not written by this program and would stop it for minutes.
constexpr std::uint64_t operations = 3;
constexpr std::uint64_t memory = 64ULL << 20;
constexpr std::uint64_t mostOperations = 16;
constexpr std::uint64_t mostMemory = 1ULL << 30;

[[noreturn]] void refuse(std::string cause, std::string nextStep)
{
    throw StoreFault(KeychainStatus::notAvailable, std::move(cause), std::move(nextStep));
}

[[noreturn]] void refuseDamaged()
{
    refuse("The key file is damaged.",
           "Put back a copy of keychain.key that fits the database. If there is none, the items "
           "are lost: remove both files to start anew.");
}

std::array<std::byte, checksumSize> checksum(std::span<const std::byte> bytes)
{
    std::array<std::byte, checksumSize> sum;
    crypto_generichash(writable(sum), sum.size(), readable(bytes), bytes.size(), nullptr, 0);
    return sum;
}

class WrappingKey
{
public:
    WrappingKey(const SecretString& passphrase, std::span<const std::byte> salt,
                std::uint64_t passes, std::uint64_t bytes)
    {
        if (crypto_pwhash(key_.data(), key_.size(), passphrase.view().data(), passphrase.size(),
                          readable(salt), passes, bytes, crypto_pwhash_ALG_ARGON2ID13) != 0)
            refuse("There is too little memory for the key's passphrase.",
                   "Free memory and try again.");
    }
    const unsigned char* data() const noexcept { return key_.data(); }

private:
    GuardedBytes key_{crypto_aead_xchacha20poly1305_ietf_KEYBYTES};
};

}  // namespace

KeyFile KeyFile::plain(const MasterKey& key)
{
    KeyFile file;
    file.body_.append(key.bytes());
    file.body_.resize(bodySize);
    return file;
}

KeyFile KeyFile::wrapped(const MasterKey& key, const SecretString& passphrase)
{
    KeyFile file;
    file.wrapped_ = true;
    file.operations_ = operations;
    file.memory_ = memory;
    randombytes_buf(file.salt_.data(), file.salt_.size());
    randombytes_buf(file.nonce_.data(), file.nonce_.size());
    file.body_.resize(bodySize);

    const WrappingKey wrapping(passphrase, file.salt_, operations, memory);
    const auto head = file.head();
    crypto_aead_xchacha20poly1305_ietf_encrypt(
        writable(file.body_.mutableView()), nullptr, readable(key.bytes()), key.bytes().size(),
        readable(head.view()), head.size(), nullptr, readable(file.nonce_), wrapping.data());
    return file;
}

/// What every later change of the file leaves as it is, and what the wrap therefore authenticates.
SecretBytes KeyFile::head() const
{
    FieldWriter fields;
    fields.raw(std::as_bytes(std::span(magic))).number(version).number(std::uint32_t{wrapped_});
    return fields.number(operations_).number(memory_).raw(salt_).take();
}

SecretBytes KeyFile::encoded() const
{
    FieldWriter fields;
    fields.reserve(size);
    fields.raw(head().view()).number(std::uint32_t{databaseMade}).number(std::uint32_t{0});
    fields.raw(nonce_).raw(body_.view());
    const auto sum = checksum(fields.bytes().view());
    return fields.raw(sum).take();
}

KeyFile KeyFile::decoded(std::span<const std::byte> bytes)
{
    FieldReader fields(bytes);
    const bool ours = std::ranges::equal(fields.raw(magic.size()), std::as_bytes(std::span(magic)));
    const auto found = fields.number<std::uint32_t>();
    if (ours && fields.complete() && found > version)
        refuse("The key file has format " + std::to_string(found) + ", and this program knows " +
                   std::to_string(version) + ".",
               "Use a newer version of the program.");
    if (!ours || bytes.size() != size || found != version)
        refuseDamaged();

    KeyFile file;
    const auto kind = fields.number<std::uint32_t>();
    file.operations_ = fields.number<std::uint64_t>();
    file.memory_ = fields.number<std::uint64_t>();
    fields.fill(file.salt_);
    const auto made = fields.number<std::uint32_t>();
    const auto reserved = fields.number<std::uint32_t>();
    fields.fill(file.nonce_);
    file.body_.append(fields.raw(bodySize));
    if (sodium_memcmp(fields.rest().data(), checksum(bytes.first(size - checksumSize)).data(),
                      checksumSize) != 0 ||
        kind > 1 || made > 1 || reserved != 0 || file.operations_ > mostOperations ||
        file.memory_ > mostMemory)
        refuseDamaged();
    file.wrapped_ = kind == 1;
    file.databaseMade = made == 1;
    return file;
}

std::shared_ptr<const MasterKey> KeyFile::unwrapped(const SecretString& passphrase) const
{
    if (!wrapped_)
        return std::make_shared<const MasterKey>(body_.view().first<MasterKey::size>());
    const WrappingKey wrapping(passphrase, salt_, operations_, memory_);
    const auto head = this->head();
    SecretBytes key;
    key.resize(MasterKey::size);
    if (crypto_aead_xchacha20poly1305_ietf_decrypt(
            writable(key.mutableView()), nullptr, nullptr, readable(body_.view()), body_.size(),
            readable(head.view()), head.size(), readable(nonce_), wrapping.data()) != 0)
        refuse("The passphrase of the keychain is wrong.", "Give the right passphrase.");
    return std::make_shared<const MasterKey>(key.view().first<MasterKey::size>());
}

}  // namespace platform
