#include "Platform/Security/Embedded/StoreHeader.hpp"

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

constexpr std::string_view magic = "TSRADB\r\n";
constexpr std::size_t macSize = 32;

std::array<std::byte, macSize> mac(std::span<const std::byte> fields, const MasterKey& key)
{
    std::array<std::byte, macSize> sum;
    crypto_generichash(writable(sum), sum.size(), readable(fields), fields.size(), key.header(),
                       MasterKey::size);
    return sum;
}

[[noreturn]] void refuseDamaged()
{
    throw StoreFault(KeychainStatus::damaged, "The header of the keychain file is damaged.",
                     "Put back a copy of the keychain's files, or remove them to start anew.");
}

}  // namespace

SecretBytes StoreHeader::encoded(const MasterKey& key) const
{
    FieldWriter fields;
    fields.raw(std::as_bytes(std::span(magic))).number(format).number(oldestReader).raw(keyName);
    fields.number(static_cast<std::uint32_t>(log)).number(items).raw(digest.sum());
    fields.raw(further.view());
    const auto sum = mac(fields.bytes().view(), key);
    return fields.raw(sum).take();
}

StoreHeader StoreHeader::decoded(std::span<const std::byte> record, const MasterKey& key)
{
    FieldReader fields(record);
    if (!std::ranges::equal(fields.raw(magic.size()), std::as_bytes(std::span(magic))))
        refuseDamaged();
    StoreHeader header;
    header.format = fields.number<std::uint32_t>();
    header.oldestReader = fields.number<std::uint32_t>();
    fields.fill(header.keyName);
    if (!fields.complete())
        refuseDamaged();
    // Before the rest is believed or even understood: a later format may lay it out otherwise.
    if (header.oldestReader > currentFormat)
        throw StoreFault(KeychainStatus::notAvailable,
                         "The keychain file has format " + std::to_string(header.format) +
                             " and may be opened by programs of format " +
                             std::to_string(header.oldestReader) + " or later; this one knows " +
                             std::to_string(currentFormat) + ".",
                         "Use a newer version of the program.");
    if (header.keyName != key.name())
        throw StoreFault(
            KeychainStatus::notAvailable, "The key file is not the one of the keychain file.",
            "Put back the keychain.key that belongs to keychain.db. If there is none, the "
            "items are lost: remove both files to start anew.");
    const auto log = fields.number<std::uint32_t>();
    header.items = fields.number<std::uint64_t>();
    ItemMark sum{};
    fields.fill(sum);
    header.digest = ItemDigest(sum);
    if (!fields.complete() || fields.rest().size() < macSize || log > 2)
        refuseDamaged();
    header.log = static_cast<LogState>(log);
    header.further.append(fields.rest().first(fields.rest().size() - macSize));
    const auto expected = mac(record.first(record.size() - macSize), key);
    if (sodium_memcmp(record.last(macSize).data(), expected.data(), macSize) != 0)
        refuseDamaged();
    return header;
}

}  // namespace platform
