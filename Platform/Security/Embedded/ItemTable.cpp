#include "Platform/Security/Embedded/ItemTable.hpp"

#include "Platform/Security/Embedded/StoreFault.hpp"
#include "Platform/Security/Embedded/StoreLimits.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>

namespace platform
{
namespace
{

// Compared with what stands in the file, letter by letter.
constexpr std::string_view headerTable =
    "CREATE TABLE header (number INTEGER PRIMARY KEY, record BLOB NOT NULL)";
constexpr std::string_view itemTable =
    "CREATE TABLE item (number INTEGER PRIMARY KEY, service BLOB NOT NULL, account BLOB NOT NULL, "
    "accessGroup BLOB NOT NULL, synchronizable INTEGER NOT NULL, accessible INTEGER NOT NULL, "
    "accessControl INTEGER NOT NULL, seal BLOB NOT NULL, value BLOB NOT NULL)";

constexpr const char* attributes =
    "service, account, accessGroup, synchronizable, accessible, accessControl, seal";

constexpr std::size_t mostHeader = 4096;

[[noreturn]] void refuseDamaged(const char* what)
{
    throw StoreFault(KeychainStatus::damaged,
                     std::string("The keychain file is damaged: ") + what + ".",
                     "Put back a copy of the keychain's files, or remove them to start anew.");
}

std::string text(const std::optional<std::span<const std::byte>>& bytes, std::size_t limit)
{
    if (!bytes || bytes->size() > limit)
        refuseDamaged("an item's text is none");
    return {reinterpret_cast<const char*>(bytes->data()), bytes->size()};
}

KeychainAccessible accessible(std::optional<std::int64_t> number)
{
    using enum KeychainAccessible;
    for (const auto value : {kSecAttrAccessibleWhenUnlocked, kSecAttrAccessibleAfterFirstUnlock,
                             kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly,
                             kSecAttrAccessibleWhenUnlockedThisDeviceOnly,
                             kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly})
    {
        if (number == static_cast<std::int64_t>(value))
            return value;
    }
    refuseDamaged("an item's accessibility is none");
}

AccessControlFlag accessControl(std::optional<std::int64_t> number)
{
    using enum AccessControlFlag;
    for (const auto value :
         {none, userPresence, anyFingerprint, currentFingerprintSet, devicePasscode})
    {
        if (number == static_cast<std::int64_t>(value))
            return value;
    }
    refuseDamaged("an item's access control is none");
}

}  // namespace

bool ItemTable::isMissing(Database& database)
{
    Statement count(database, "SELECT count(*) FROM sqlite_schema");
    Statement::Use use(count);
    return use.next() && use.number(0) == 0;
}

void ItemTable::make(Database& database, const MasterKey& key)
{
    database.execute(std::string(headerTable).c_str());
    database.execute(std::string(itemTable).c_str());
    StoreHeader header;
    header.keyName = key.name();
    const auto record = header.encoded(key);
    Statement insert(database, "INSERT INTO header (number, record) VALUES (1, ?1)");
    Statement::Use(insert).bind(1, record.view()).run();
}

ItemTable::ItemTable(Database& database, std::shared_ptr<const MasterKey> key)
    : database_(database),
      key_(std::move(key)),
      sealing_(*key_),
      readHeader_(database, "SELECT record FROM header WHERE number = 1"),
      writeHeader_(database, "UPDATE header SET record = ?1 WHERE number = 1"),
      take_(database, std::string("SELECT ") + attributes + ", value FROM item WHERE number = ?1"),
      find_(database, std::string("SELECT ") + attributes + " FROM item WHERE number = ?1"),
      value_(database, "SELECT value FROM item WHERE number = ?1"),
      all_(database, std::string("SELECT ") + attributes + ", number FROM item ORDER BY number"),
      insert_(database, std::string("INSERT INTO item (") + attributes +
                            ", value, number) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)"),
      erase_(database, "DELETE FROM item WHERE number = ?1")
{}

/// A table of the right name may have any columns, and computed ones at that, so nothing but the
/// exact text will do. Of a later format that lets this program in, only our tables are looked at.
void ItemTable::check(Database& database, const MasterKey& key)
{
    Statement schema(database, "SELECT type, name, sql FROM sqlite_schema LIMIT 64");
    Statement::Use row(schema);
    bool hasHeader = false;
    bool hasItems = false;
    int others = 0;
    while (row.next())
    {
        const auto isTable = [&](std::string_view name, std::string_view statement)
        { return row.text(0) == "table" && row.text(1) == name && row.text(2) == statement; };
        if (isTable("header", headerTable))
            hasHeader = true;
        else if (isTable("item", itemTable))
            hasItems = true;
        else
            ++others;
    }
    if (!hasHeader)
        refuseDamaged("it is no keychain");
    Statement record(database, "SELECT record FROM header WHERE number = 1");
    const auto header = readHeader(record, key);
    if (!hasItems || (others > 0 && header.format <= StoreHeader::currentFormat))
        refuseDamaged("its tables are not the keychain's");
}

StoreHeader ItemTable::readHeader(Statement& statement, const MasterKey& key)
{
    Statement::Use use(statement);
    if (!use.next())
        refuseDamaged("its header is missing");
    const auto record = use.bytes(0);
    if (!record || record->size() > mostHeader)
        refuseDamaged("its header is none");
    return StoreHeader::decoded(*record, key);
}

void ItemTable::write(const StoreHeader& header)
{
    const auto record = header.encoded(*key_);
    Statement::Use(writeHeader_).bind(1, record.view()).run();
}

ItemRow ItemTable::read(const Statement::Use& row, std::int64_t number)
{
    ItemRow item;
    item.number = number;
    auto& identity = item.attributes.identity;
    identity.service = text(row.bytes(0), keychainLimits::service);
    identity.account = text(row.bytes(1), keychainLimits::account);
    identity.accessGroup = text(row.bytes(2), keychainLimits::accessGroup);
    identity.synchronizable = row.number(3) == 1;
    item.attributes.accessible = accessible(row.number(4));
    item.attributes.accessControl = accessControl(row.number(5));
    const auto seal = row.bytes(6);
    if (!seal || seal->size() != item.seal.size() || (row.number(3).value_or(2) & ~1) != 0)
        refuseDamaged("an item has no seal");
    std::memcpy(item.seal.data(), seal->data(), seal->size());
    return item;
}

std::optional<KeychainItem> ItemTable::take(const KeychainIdentity& identity)
{
    Statement::Use use(take_);
    const auto number = sealing_.row(identity);
    if (!use.bind(1, number).next())
        return std::nullopt;
    auto row = read(use, number);
    const auto sealed = use.bytes(7);
    if (row.attributes.identity != identity || !sealed)
        return std::nullopt;
    auto plain = sealing_.opened(row.attributes, row.seal, *sealed);
    if (!plain)
        return std::nullopt;
    row.attributes.data = std::move(*plain);
    return std::move(row.attributes);
}

std::optional<ItemRow> ItemTable::find(const KeychainIdentity& identity)
{
    const auto number = sealing_.row(identity);
    Statement::Use use(find_);
    if (!use.bind(1, number).next())
        return std::nullopt;
    auto row = read(use, number);
    if (row.attributes.identity != identity)
        refuseDamaged("an item stands in another's place");
    return row;
}

SecretBytes ItemTable::value(const ItemRow& row)
{
    Statement::Use use(value_);
    if (!use.bind(1, row.number).next())
        refuseDamaged("an item vanished");
    const auto sealed = use.bytes(0);
    auto plain = sealed ? sealing_.opened(row.attributes, row.seal, *sealed) : std::nullopt;
    if (!plain)
        refuseDamaged("an item is not what was stored");
    return std::move(*plain);
}

bool ItemTable::knowsItems()
{
    return known_ && known_->changes == database_.changesByOthers();
}

void ItemTable::requireGenuine(const ItemRow& row)
{
    if (!knowsItems())
    {
        value(row);
        return;
    }
    const auto known = known_->marks.find(row.number);
    if (known == known_->marks.end() || known->second != mark(row))
        refuseDamaged("an item is not what was stored");
}

std::vector<ItemRow> ItemTable::collect(const std::function<bool(const KeychainItem&)>& wanted)
{
    const auto header = this->header();
    Known known{database_.changesByOthers(), {}, header.log == LogState::lost};
    ItemDigest digest;
    std::vector<ItemRow> collected;
    Statement::Use use(all_);
    while (use.next())
    {
        // The header is genuine, so its count also bounds what a file with loops makes us read.
        if (known.marks.size() == header.items)
            refuseDamaged("it holds items that were not stored");
        auto row = read(use, use.number(7).value_or(-1));
        if (row.number != sealing_.row(row.attributes.identity))
            refuseDamaged("an item stands in another's place");
        const auto rowMark = mark(row);
        digest.add(rowMark);
        known.marks.emplace(row.number, rowMark);
        if (wanted(row.attributes))
            collected.push_back(std::move(row));
    }
    if (known.marks.size() != header.items || digest != header.digest)
        refuseDamaged("its items are not those that were stored");
    known_ = std::move(known);
    requireComplete();
    return collected;
}

void ItemTable::requireComplete()
{
    if (!knowsItems())
        collect([](const KeychainItem&) { return false; });
    if (known_->logLost)
        throw StoreFault(KeychainStatus::notAvailable,
                         "The keychain's log, keychain.db-wal, was removed while it was needed: "
                         "items that are not found may have been lost.",
                         "Put back the log or a copy of the keychain's files, or remove them to "
                         "start anew.");
}

void ItemTable::requireAbsent(const KeychainIdentity& identity)
{
    requireComplete();
    if (known_->marks.contains(sealing_.row(identity)) && !find(identity))
        refuseDamaged("an item cannot be found where it stands");
}

ItemRow ItemTable::insert(const KeychainItem& item)
{
    ItemRow row;
    row.number = sealing_.row(item.identity);
    row.attributes.identity = item.identity;
    row.attributes.accessible = item.accessible;
    row.attributes.accessControl = item.accessControl;
    const auto sealed = sealing_.sealed(item, row.seal);
    Statement::Use use(insert_);
    use.bind(1, item.identity.service).bind(2, item.identity.account);
    use.bind(3, item.identity.accessGroup).bind(4, std::int64_t{item.identity.synchronizable});
    use.bind(5, static_cast<std::int64_t>(item.accessible));
    use.bind(6, static_cast<std::int64_t>(item.accessControl));
    use.bind(7, row.seal).bind(8, sealed).bind(9, row.number).run();
    return row;
}

void ItemTable::erase(const ItemRow& row)
{
    Statement::Use(erase_).bind(1, row.number).run();
}

void ItemTable::committed(const Changes& changes)
{
    if (!known_)
        return;
    for (const auto& [number, mark] : changes)
    {
        if (mark)
            known_->marks.insert_or_assign(number, *mark);
        else
            known_->marks.erase(number);
    }
    // SQLite counts our own commit as a change too.
    known_->changes = database_.changesByOthers();
}

void ItemTable::forget()
{
    known_.reset();
}

}  // namespace platform
