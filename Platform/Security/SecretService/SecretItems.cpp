#include "Platform/Security/SecretService/SecretItems.hpp"

#include "Platform/Security/SecretService/SecretServiceFailure.hpp"
#include "Platform/Security/SecretService/SecretServiceNames.hpp"

#include <utility>

namespace platform
{

using namespace secretServiceNames;
using secretServiceFailures::lockedCollection;
using secretServiceFailures::lockedItem;
using secretServiceFailures::nonsense;

GHandle<GVariant> SecretItems::child(GVariant* parent, std::size_t index) const
{
    const auto& library = connection_.library();
    return {library.g_variant_get_child_value(parent, index), GRelease{&library}};
}

GHandle<GVariant> SecretItems::variant(const secretItem::Attributes& attributes) const
{
    const auto& library = connection_.library();
    GVariantBuilder builder;
    library.g_variant_builder_init(&builder, variantType("a{ss}"));
    for (const auto& [key, value] : attributes)
        library.g_variant_builder_add(&builder, "{ss}", key.c_str(), value.c_str());
    return {library.g_variant_ref_sink(library.g_variant_builder_end(&builder)),
            GRelease{&library}};
}

GHandle<GVariant> SecretItems::pathList(const std::vector<std::string>& paths) const
{
    const auto& library = connection_.library();
    GVariantBuilder builder;
    library.g_variant_builder_init(&builder, variantType("ao"));
    for (const auto& path : paths)
        library.g_variant_builder_add(&builder, "o", path.c_str());
    return {library.g_variant_ref_sink(library.g_variant_builder_end(&builder)),
            GRelease{&library}};
}

std::vector<std::string> SecretItems::paths(GVariant* list) const
{
    const auto& library = connection_.library();
    std::vector<std::string> all(library.g_variant_n_children(list));
    for (std::size_t index = 0; index < all.size(); ++index)
        all[index] = library.g_variant_get_string(child(list, index).get(), nullptr);
    return all;
}

SecretCall SecretItems::searchCall(const secretItem::Attributes& attributes) const
{
    const auto& library = connection_.library();
    const auto wanted = variant(attributes);
    return {servicePath,
            serviceInterface,
            "SearchItems",
            {library.g_variant_ref_sink(library.g_variant_new("(@a{ss})", wanted.get())),
             GRelease{&library}},
            "(aoao)"};
}

SecretCall SecretItems::propertyCall(const std::string& path, const char* interface,
                                     const char* property) const
{
    const auto& library = connection_.library();
    return {path,
            propertiesInterface,
            "Get",
            {library.g_variant_ref_sink(library.g_variant_new("(ss)", interface, property)),
             GRelease{&library}},
            "(v)"};
}

std::vector<std::string> SecretItems::foundPaths(
    const std::optional<GHandle<GVariant>>& answer) const
{
    if (!answer)
        throw nonsense("no search");
    if (connection_.library().g_variant_n_children(child(answer->get(), 1).get()) > 0)
        throw lockedItem();
    return paths(child(answer->get(), 0).get());
}

std::vector<std::vector<std::string>> SecretItems::search(
    const std::vector<secretItem::Attributes>& searches)
{
    std::vector<SecretCall> calls;
    for (const auto& attributes : searches)
        calls.push_back(searchCall(attributes));
    std::vector<std::vector<std::string>> found;
    for (const auto& answer : connection_.callAll(std::move(calls), at_))
        found.push_back(foundPaths(answer));
    return found;
}

std::optional<SecretItemRecord> SecretItems::record(const std::string& path,
                                                    GVariant* properties) const
{
    const auto& library = connection_.library();
    const auto property = [&](const char* name, const char* type)
    {
        GHandle<GVariant> value(library.g_variant_lookup_value(properties, name, variantType(type)),
                                GRelease{&library});
        if (!value)
            throw nonsense(std::string("an item without ") + name);
        return value;
    };
    const auto list = property("Attributes", "a{ss}");
    secretItem::Attributes attributes;
    for (std::size_t index = 0; index < library.g_variant_n_children(list.get()); ++index)
    {
        const auto entry = child(list.get(), index);
        const auto key = child(entry.get(), 0);
        const auto value = child(entry.get(), 1);
        attributes.emplace(library.g_variant_get_string(key.get(), nullptr),
                           library.g_variant_get_string(value.get(), nullptr));
    }
    // While it is locked, an item's attributes need not be the ones that it was stored with.
    if (library.g_variant_get_boolean(property("Locked", "b").get()))
        throw lockedItem();
    auto item = secretItem::parsed(attributes);
    if (!item)
        throw nonsense("an item whose attributes are incomplete");
    return SecretItemRecord{path, library.g_variant_get_uint64(property("Modified", "t").get()),
                            library.g_variant_get_uint64(property("Created", "t").get()),
                            std::move(*item)};
}

std::vector<std::optional<SecretItemRecord>> SecretItems::properties(
    const std::vector<std::string>& paths)
{
    const auto& library = connection_.library();
    std::vector<SecretCall> calls;
    for (const auto& path : paths)
        calls.push_back({path,
                         propertiesInterface,
                         "GetAll",
                         {library.g_variant_ref_sink(library.g_variant_new("(s)", itemInterface)),
                          GRelease{&library}},
                         "(a{sv})"});
    const auto answers = connection_.callAll(std::move(calls), at_);
    std::vector<std::optional<SecretItemRecord>> records(paths.size());
    for (std::size_t index = 0; index < paths.size(); ++index)
        if (answers[index])
            records[index] = record(paths[index], child(answers[index]->get(), 0).get());
    return records;
}

bool SecretItems::readData(std::vector<SecretItemRecord>& records)
{
    const auto& library = connection_.library();
    std::vector<std::string> wanted;
    for (const auto& one : records)
        wanted.push_back(one.path);
    const auto list = pathList(wanted);
    const auto answer = connection_.call({servicePath,
                                          serviceInterface,
                                          "GetSecrets",
                                          {library.g_variant_ref_sink(library.g_variant_new(
                                               "(@aoo)", list.get(), connection_.sessionPath())),
                                           GRelease{&library}},
                                          "(a{o(oayays)})"},
                                         at_);
    if (!answer)
        return false;
    const auto secrets = child(answer->get(), 0);
    std::map<std::string, GHandle<GVariant>> byPath;
    for (std::size_t index = 0; index < library.g_variant_n_children(secrets.get()); ++index)
    {
        const auto entry = child(secrets.get(), index);
        byPath.emplace(library.g_variant_get_string(child(entry.get(), 0).get(), nullptr),
                       child(entry.get(), 1));
    }
    for (auto& one : records)
    {
        const auto place = byPath.find(one.path);
        if (place == byPath.end())
            return false;
        const auto text = connection_.decrypted(place->second.get());
        one.unfinished = text.empty();
        if (!one.unfinished && !secretItem::readSealedText(text, one.item))
            throw nonsense("an item whose data are not as they were written");
    }
    return true;
}

std::vector<std::string> SecretItems::collections()
{
    const auto& library = connection_.library();
    const auto answer =
        connection_.call(propertyCall(servicePath, serviceInterface, "Collections"), at_);
    if (!answer)
        throw nonsense("no list of collections");
    const GHandle<GVariant> list(library.g_variant_get_variant(child(answer->get(), 0).get()),
                                 GRelease{&library});
    if (!library.g_variant_is_of_type(list.get(), variantType("ao")))
        throw nonsense("no list of collections");
    return paths(list.get());
}

bool SecretItems::readLocked(GVariant* answer) const
{
    const auto& library = connection_.library();
    const GHandle<GVariant> locked(library.g_variant_get_variant(child(answer, 0).get()),
                                   GRelease{&library});
    if (!library.g_variant_is_of_type(locked.get(), variantType("b")))
        throw nonsense("a collection without Locked");
    return library.g_variant_get_boolean(locked.get());
}

std::vector<std::string> SecretItems::lockedCollections()
{
    std::vector<std::string> locked;
    const auto all = collections();
    std::vector<SecretCall> calls;
    for (const auto& collection : all)
        calls.push_back(propertyCall(collection, collectionInterface, "Locked"));
    const auto answers = connection_.callAll(std::move(calls), at_);
    for (std::size_t index = 0; index < all.size(); ++index)
        if (answers[index] && readLocked(answers[index]->get()))
            locked.push_back(all[index]);
    return locked;
}

bool SecretItems::isNothingHidden(const std::vector<secretItem::Attributes>& searches)
{
    std::vector<SecretCall> calls;
    for (const auto& collection : collections())
        calls.push_back(propertyCall(collection, collectionInterface, "Locked"));
    const std::size_t count = calls.size();
    // Searched once more behind the question: whatever was unlocked in between is looked at.
    for (const auto& attributes : searches)
        calls.push_back(searchCall(attributes));

    const auto answers = connection_.callAll(std::move(calls), at_);
    for (std::size_t index = 0; index < count; ++index)
    {
        if (!answers[index])
            throw SecretServiceFailure(KeychainStatus::notAvailable,
                                       "A collection of the Secret Service does not answer",
                                       "Try again, or restart the keyring's daemon");
        if (readLocked(answers[index]->get()))
            throw lockedCollection();
    }
    for (std::size_t index = count; index < answers.size(); ++index)
        if (!foundPaths(answers[index]).empty())
            return false;
    return true;
}

void SecretItems::refusePrompt(const GHandle<GVariant>& answer, std::size_t index)
{
    const auto& library = connection_.library();
    const auto prompt = child(answer.get(), index);
    const std::string path = library.g_variant_get_string(prompt.get(), nullptr);
    if (path == "/")
        return;
    connection_.call({path, promptInterface, "Dismiss", {nullptr, GRelease{&library}}, "()"}, at_);
    throw lockedCollection();
}

void SecretItems::change(std::vector<SecretCall> calls,
                         std::vector<std::optional<GHandle<GVariant>>>& answers)
{
    for (auto& call : calls)
        call.changes = true;
    try
    {
        answers = connection_.callAll(std::move(calls), at_);
    }
    catch (const SecretServiceFailure& failure)
    {
        // The caller has its answer. The lock between processes is kept until the change stands in
        // the service's queue, so that no later change comes before it.
        if (failure.kind() == SecretServiceFailure::Kind::cancelled)
            connection_.settle(at_);
        throw;
    }
}

void SecretItems::create(const std::string& collection, const KeychainItem& item,
                         const SecretBytes& sealedText)
{
    const auto& library = connection_.library();
    if (collection.empty())
        throw nonsense("an item outside of any collection");
    const auto attributes = variant(secretItem::attributes(item));
    GVariantBuilder builder;
    library.g_variant_builder_init(&builder, variantType("a{sv}"));
    library.g_variant_builder_add(&builder, "{sv}", "org.freedesktop.Secret.Item.Label",
                                  library.g_variant_new("s", secretItem::label));
    library.g_variant_builder_add(&builder, "{sv}", "org.freedesktop.Secret.Item.Attributes",
                                  attributes.get());
    GVariant* const properties = library.g_variant_builder_end(&builder);
    const auto secret = connection_.encrypted(sealedText);
    std::vector<SecretCall> calls;
    calls.push_back({collection,
                     collectionInterface,
                     "CreateItem",
                     {library.g_variant_ref_sink(library.g_variant_new(
                          "(@a{sv}@(oayays)b)", properties, secret.get(), gboolean{TRUE})),
                      GRelease{&library}},
                     "(oo)"});
    std::vector<std::optional<GHandle<GVariant>>> answers;
    change(std::move(calls), answers);
    if (!answers.front())
        throw secretServiceFailures::noCollection();
    refusePrompt(*answers.front(), 1);
}

void SecretItems::remove(const std::vector<std::string>& paths)
{
    std::vector<SecretCall> calls;
    for (const auto& path : paths)
        calls.push_back(
            {path, itemInterface, "Delete", {nullptr, GRelease{&connection_.library()}}, "(o)"});
    std::vector<std::optional<GHandle<GVariant>>> answers;
    change(std::move(calls), answers);
    for (const auto& answer : answers)
        if (answer)
            refusePrompt(*answer, 0);
}

std::string SecretItems::collectionOf(const std::string& itemPath)
{
    return itemPath.substr(0, itemPath.rfind('/'));
}

}  // namespace platform
