#include "tools/tessera/keychain/KeychainValues.hpp"

#include "Platform/Coding/Text.hpp"
#include "tools/tessera/Failure.hpp"
#include "tools/tessera/keychain/Escaping.hpp"

#include <fcntl.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace commandline
{
namespace
{

using platform::KeychainAccessible;
namespace keychainLimits = platform::keychainLimits;

[[noreturn]] void refuse(std::string sentence, std::string next)
{
    throw Failure({ExitCode::usage, "usage", std::move(sentence), std::move(next)});
}

/// What the keychains take as a name of anything, so that none of them has to refuse it.
void checkText(const std::string& what, const std::optional<std::string>& text, std::size_t limit)
{
    if (!text)
        return;
    if (text->empty())
        refuse(what + " is empty.", "Give one of at least one byte.");
    if (text->size() > limit)
        refuse(what + " is too long.", "Give one of at most " + std::to_string(limit) + " bytes.");
    if (!platform::isValidUTF8(*text))
        refuse(what + " is not UTF-8.", "Check the encoding of the terminal or of the script.");
}

KeychainKind kindFrom(const std::string& word, const std::string& source)
{
    for (const auto kind : {KeychainKind::embedded, KeychainKind::secretService})
        if (word == commandline::word(kind))
            return kind;
    refuse(source + " names no keychain.", "It takes \"embedded\" or \"secret-service\".");
}

void readKind(KeychainCommand& into, const KeychainValues& values)
{
    const char* variable = std::getenv("TESSERA_KEYCHAIN");
    if (values.keychain)
    {
        into.kind = kindFrom(*values.keychain, "--keychain");
        into.chosenBy = "--keychain";
    }
    else if (variable != nullptr && *variable != '\0')
    {
        into.kind = kindFrom(variable, "The environment variable TESSERA_KEYCHAIN");
        into.chosenBy = "TESSERA_KEYCHAIN";
    }
}

GroupName groupFrom(const std::string& text)
{
    const auto dot = text.find('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == text.size())
        refuse("--group is not a prefix, a dot and a name.",
               "Write it like \"group.org.example.shared\".");
    return {text.substr(0, dot), text.substr(dot + 1)};
}

template <class Value>
Value valueOf(const NamesOf<Value>& values, const std::string& name, const std::string& option)
{
    const auto found = std::ranges::find(values, name, &NamesOf<Value>::value_type::first);
    if (found != values.end())
        return found->second;
    std::string names;
    for (const auto& [known, value] : values)
        names += (names.empty() ? "" : ", ") + known;
    refuse(option + " takes none but the listed names.", "It takes one of: " + names + ".");
}

void checkStore(const KeychainCommand& command, bool accessibilityGiven)
{
    const auto& store = command.store;
    const bool mayLackStore =
        command.verb == KeychainVerb::list || command.verb == KeychainVerb::doctor;
    const std::string next = "Name the store with --id NAME or --service NAME.";
    if (store.identifier && store.service)
        refuse("--id and --service exclude each other.", next);
    if (!store.isNamed() && !mayLackStore)
        refuse("No store is named.", next);
    if (!store.isNamed() && (accessibilityGiven || store.accessControl || store.synchronizable))
        refuse("What a store is like was said, but not which it is.", next);
    if (store.singlePrompt && !store.accessControl)
        refuse("--single-prompt is for stores that ask the user.",
               "Say what they ask for with --access-control.");
    if (store.accessControl && (store.synchronizable || accessibilityGiven || store.service))
        refuse("--access-control excludes --service, --accessibility and --synchronizable.",
               "Name the store with --id NAME or --group PREFIX.GROUP.");
    if (store.synchronizable &&
        store.accessible > KeychainAccessible::kSecAttrAccessibleAfterFirstUnlock)
        refuse("Items that may travel are not bound to this device.",
               "Use whenUnlocked or afterFirstUnlock with --synchronizable.");
}

void readStore(KeychainCommand& into, const KeychainValues& values)
{
    checkText("The name of the store", values.identifier, keychainLimits::service);
    checkText("The name of the store", values.service, keychainLimits::service);
    checkText("The name of the group", values.group, keychainLimits::accessGroup);
    auto& store = into.store;
    store.identifier = values.identifier;
    store.service = values.service;
    if (values.group)
        store.group = groupFrom(*values.group);
    if (values.accessibility)
        store.accessible = valueOf(accessibilityNames(), *values.accessibility, "--accessibility");
    if (values.accessControl)
        store.accessControl =
            valueOf(accessControlNames(), *values.accessControl, "--access-control");
    store.singlePrompt = values.singlePrompt;
    store.synchronizable = values.synchronizable;
    checkStore(into, values.accessibility.has_value());
}

void readKey(KeychainCommand& into, const KeychainValues& values)
{
    const bool given = values.key.has_value();
    if (into.verb == KeychainVerb::remove && given == values.all)
        refuse(given ? "A key and --all exclude each other." : "No key is named.",
               "Name the item's key, or all items of the store with --all.");
    if (!given)
        return;
    const auto read = values.keyIsEscaped ? unescaped(*values.key) : values.key;
    if (!read)
        refuse("The key is not written as \"keychain list\" shows keys.",
               "Write a backslash as \"\\\\\" and other bytes like \"\\x0A\".");
    checkText("The key", read, keychainLimits::account);
    into.key = *read;
}

/// Looked at before this program opens anything, for its own descriptors have numbers, too.
bool canBeRead(int descriptor)
{
    const int flags = ::fcntl(descriptor, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != O_WRONLY;
}

std::optional<int> descriptorFrom(const std::optional<std::string>& text, const std::string& option)
{
    if (!text)
        return std::nullopt;
    int number = -1;
    const auto* end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, number);
    if (error != std::errc() || stop != end || number < 0 || number == 1 || number == 2 ||
        !canBeRead(number))
        refuse(option + " takes the number of a descriptor that can be read.",
               "Open it in the shell, like \"" + option + " 3 3< file\".");
    return number;
}

}  // namespace

bool takesStore(KeychainVerb verb)
{
    using enum KeychainVerb;
    return verb == list || verb == get || verb == set || verb == remove || verb == doctor;
}

bool takesKey(KeychainVerb verb)
{
    using enum KeychainVerb;
    return verb == get || verb == set || verb == remove;
}

KeychainCommand commandFrom(KeychainVerb verb, const KeychainValues& values)
{
    KeychainCommand command;
    command.verb = verb;
    command.all = values.all;
    command.confirmed = values.confirmed;
    command.force = values.force;
    command.json = values.json;
    command.prompt = values.prompt.value_or("");
    readKind(command, values);
    if (takesStore(verb))
        readStore(command, values);
    if (takesKey(verb))
        readKey(command, values);
    checkText("The name of the program", values.program, keychainLimits::accessGroup);
    command.program = values.program.value_or(command.program);
    command.passphraseDescriptor = descriptorFrom(values.passphraseDescriptor, "--passphrase-fd");
    command.passcodeDescriptor = descriptorFrom(values.passcodeDescriptor, "--passcode-fd");
    return command;
}

}  // namespace commandline
