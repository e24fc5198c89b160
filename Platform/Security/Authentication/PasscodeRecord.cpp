#include "Platform/Security/Authentication/PasscodeRecord.hpp"

#include "Platform/Security/Authentication/Fields.hpp"

#include <bit>
#include <cmath>
#include <new>

#include <sodium.h>

namespace platform
{
namespace
{

constexpr std::uint8_t recordVersion = 1;

// What a record may demand before anything in it has been authenticated.
constexpr std::uint64_t mostOperations = 64;
constexpr std::uint64_t mostMemory = std::uint64_t{4} << 30;

static_assert(sizeof(PasscodeRecord::salt) == crypto_pwhash_SALTBYTES);
static_assert(sizeof(PasscodeRecord::publicKey) == crypto_box_PUBLICKEYBYTES);
static_assert(sizeof(PasscodeRecord::nonce) == crypto_aead_xchacha20poly1305_ietf_NPUBBYTES);
static_assert(sizeof(PasscodeRecord::sealedKey) ==
              crypto_box_SECRETKEYBYTES + crypto_aead_xchacha20poly1305_ietf_ABYTES);

template <class Field>
void fillRandomly(Field& field)
{
    randombytes_buf(field.data(), field.size());
}

void derive(GuardedBytes& wrappingKey, const PasscodeRecord& record, const SecretString& passcode)
{
    if (crypto_pwhash(wrappingKey.data(), wrappingKey.size(), passcode.view().data(),
                      passcode.size(), readable(record.salt), record.cost.operations,
                      record.cost.memory, crypto_pwhash_ALG_ARGON2ID13) != 0)
        throw std::bad_alloc();
}

}  // namespace

PasscodeRecord PasscodeRecord::make(const SecretString& passcode, PasscodeCost cost)
{
    PasscodeKey key;
    fillRandomly(key.pair);
    crypto_box_keypair(writable(key.publicKey), key.privateKey.data());
    return rewrap(key, passcode, cost);
}

PasscodeRecord PasscodeRecord::rewrap(const PasscodeKey& key, const SecretString& passcode,
                                      PasscodeCost cost)
{
    PasscodeRecord record;
    record.pair = key.pair;
    record.publicKey = key.publicKey;
    record.cost = cost;
    fillRandomly(record.wrapping);
    fillRandomly(record.salt);
    fillRandomly(record.nonce);

    GuardedBytes wrappingKey(crypto_aead_xchacha20poly1305_ietf_KEYBYTES);
    derive(wrappingKey, record, passcode);
    FieldWriter head;
    record.authenticated(head);
    crypto_aead_xchacha20poly1305_ietf_encrypt(writable(record.sealedKey), nullptr,
                                               key.privateKey.data(), key.privateKey.size(),
                                               readable(head.bytes().view()), head.bytes().size(),
                                               nullptr, readable(record.nonce), wrappingKey.data());
    return record;
}

std::shared_ptr<const PasscodeKey> PasscodeRecord::open(const SecretString& passcode) const
{
    auto key = std::make_shared<PasscodeKey>();
    key->pair = pair;
    key->wrapping = wrapping;
    key->publicKey = publicKey;

    GuardedBytes wrappingKey(crypto_aead_xchacha20poly1305_ietf_KEYBYTES);
    derive(wrappingKey, *this, passcode);
    FieldWriter head;
    authenticated(head);
    const bool right = crypto_aead_xchacha20poly1305_ietf_decrypt(
                           key->privateKey.data(), nullptr, nullptr, readable(sealedKey),
                           sealedKey.size(), readable(head.bytes().view()), head.bytes().size(),
                           readable(nonce), wrappingKey.data()) == 0;
    return right ? key : nullptr;
}

void PasscodeRecord::authenticated(FieldWriter& out) const
{
    out.number(recordVersion).raw(pair).raw(wrapping);
    out.number(cost.operations).number(cost.memory).raw(salt).raw(publicKey);
}

SecretBytes PasscodeRecord::written() const
{
    FieldWriter out;
    authenticated(out);
    out.raw(nonce).raw(sealedKey);
    out.number(tries.count).number(std::bit_cast<std::uint64_t>(tries.last.secondsSince1970));
    return out.take();
}

std::optional<PasscodeRecord> PasscodeRecord::read(std::span<const std::byte> stored)
{
    FieldReader in(stored);
    PasscodeRecord record;
    const auto version = in.number<std::uint8_t>();
    in.fill(record.pair);
    in.fill(record.wrapping);
    record.cost.operations = in.number<std::uint64_t>();
    record.cost.memory = in.number<std::uint64_t>();
    in.fill(record.salt);
    in.fill(record.publicKey);
    in.fill(record.nonce);
    in.fill(record.sealedKey);
    record.tries.count = in.number<std::uint32_t>();
    record.tries.last = {std::bit_cast<double>(in.number<std::uint64_t>())};

    const bool affordable = record.cost.operations >= crypto_pwhash_OPSLIMIT_MIN &&
                            record.cost.operations <= mostOperations &&
                            record.cost.memory >= crypto_pwhash_MEMLIMIT_MIN &&
                            record.cost.memory <= mostMemory;
    if (version != recordVersion || !in.complete() || !in.rest().empty() || !affordable ||
        !std::isfinite(record.tries.last.secondsSince1970))
        return std::nullopt;
    return record;
}

}  // namespace platform
