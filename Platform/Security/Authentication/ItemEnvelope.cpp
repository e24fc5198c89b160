#include "Platform/Security/Authentication/ItemEnvelope.hpp"

#include "Platform/Security/Authentication/Fields.hpp"

#include <array>

#include <sodium.h>

namespace platform
{
namespace
{

constexpr std::uint8_t envelopeVersion = 1;
constexpr std::size_t fingerprintsSize = 32;
constexpr std::size_t keySize = crypto_aead_xchacha20poly1305_ietf_KEYBYTES;
constexpr std::size_t nonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t tagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t sealedKeySize = keySize + crypto_box_SEALBYTES;

void putHead(FieldWriter& out, AccessControlFlag demanded)
{
    out.number(envelopeVersion).number(static_cast<std::uint8_t>(demanded));
}

/// What a sealed value is bound to.
SecretBytes bindings(const KeychainItem& item, const RecordName& pair)
{
    FieldWriter out;
    putHead(out, item.accessControl);
    out.raw(pair);
    out.text(item.identity.service).text(item.identity.account).text(item.identity.accessGroup);
    out.number(static_cast<std::uint8_t>(item.identity.synchronizable));
    out.number(static_cast<std::uint8_t>(item.accessible));
    return out.take();
}

}  // namespace

KeychainStatus ItemEnvelope::read(const KeychainItem& item, ItemEnvelope& envelope)
{
    FieldReader in(item.data.view());
    const auto version = in.number<std::uint8_t>();
    envelope.demanded = static_cast<AccessControlFlag>(in.number<std::uint8_t>());
    // These two bytes stay what they are in all versions.
    if (version == 0 || envelope.demanded != item.accessControl)
        return KeychainStatus::damaged;
    if (version > envelopeVersion)
        return KeychainStatus::notAvailable;
    if (envelope.demanded == AccessControlFlag::currentFingerprintSet)
    {
        std::array<std::byte, fingerprintsSize> name{};
        in.fill(name);
        envelope.fingerprints.assign(reinterpret_cast<const char*>(name.data()), name.size());
    }
    if (envelope.demanded == AccessControlFlag::devicePasscode)
        in.fill(envelope.pair);
    envelope.content = in.rest();

    return in.complete() ? KeychainStatus::success : KeychainStatus::damaged;
}

SecretBytes ItemEnvelope::closed(const KeychainItem& item, std::string_view fingerprints)
{
    FieldWriter out;
    out.reserve(2 + fingerprints.size() + item.data.size());
    putHead(out, item.accessControl);
    out.raw(std::as_bytes(std::span(fingerprints))).raw(item.data.view());
    return out.take();
}

SecretBytes ItemEnvelope::sealed(const KeychainItem& item, const PasscodeRecord& record)
{
    prepareSodium();
    GuardedBytes key(keySize);
    crypto_aead_xchacha20poly1305_ietf_keygen(key.data());
    const auto bound = bindings(item, record.pair);

    FieldWriter out;
    out.reserve(2 + record.pair.size() + sealedKeySize + nonceSize + item.data.size() + tagSize);
    putHead(out, item.accessControl);
    out.raw(record.pair);
    crypto_box_seal(writable(out.room(sealedKeySize)), key.data(), key.size(),
                    readable(record.publicKey));
    std::array<std::byte, nonceSize> nonce;
    randombytes_buf(nonce.data(), nonce.size());
    out.raw(nonce);
    crypto_aead_xchacha20poly1305_ietf_encrypt(writable(out.room(item.data.size() + tagSize)),
                                               nullptr, readable(item.data.view()),
                                               item.data.size(), readable(bound.view()),
                                               bound.size(), nullptr, readable(nonce), key.data());
    return out.take();
}

std::optional<SecretBytes> ItemEnvelope::unsealed(const KeychainItem& item,
                                                  const PasscodeKey& opened) const
{
    FieldReader in(content);
    const auto sealedKey = in.raw(sealedKeySize);
    const auto nonce = in.raw(nonceSize);
    if (!in.complete() || in.rest().size() < tagSize)
        return std::nullopt;

    GuardedBytes key(keySize);
    if (crypto_box_seal_open(key.data(), readable(sealedKey), sealedKey.size(),
                             readable(opened.publicKey), opened.privateKey.data()) != 0)
        return std::nullopt;
    const auto bound = bindings(item, pair);
    SecretBytes value;
    value.resize(in.rest().size() - tagSize);
    if (crypto_aead_xchacha20poly1305_ietf_decrypt(
            writable(value.mutableView()), nullptr, nullptr, readable(in.rest()), in.rest().size(),
            readable(bound.view()), bound.size(), readable(nonce), key.data()) != 0)
        return std::nullopt;
    return value;
}

std::string ItemEnvelope::fingerprintsNamed(std::string_view set)
{
    prepareSodium();
    std::string name(fingerprintsSize, '\0');
    crypto_generichash(reinterpret_cast<unsigned char*>(name.data()), name.size(),
                       reinterpret_cast<const unsigned char*>(set.data()), set.size(), nullptr, 0);
    return name;
}

}  // namespace platform
