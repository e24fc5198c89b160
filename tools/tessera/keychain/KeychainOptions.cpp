#include "tools/tessera/keychain/KeychainOptions.hpp"

#include "tools/tessera/Failure.hpp"
#include "tools/tessera/keychain/Escaping.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <cstdlib>
#include <map>

namespace commandline
{
namespace
{

using platform::KeychainAccessible;

constexpr auto epilogue = "\nSee \"tessera --help\" for the exit codes.";

constexpr auto explanation = R"(
A store is named by --id, as programs do, or by --service, the exact name under which its items are
kept; "keychain list" without either shows the stores. Items are looked for as the program of
--program. Between the programs of one user that is a rule of politeness, not a protection: each of
them can read what the others keep.

Values, passcodes and passphrases are read from standard input or asked for at the terminal, and
never taken from an argument.

See "tessera --help" for the exit codes.)";

template <class Value>
std::string namesOf(const NamesOf<Value>& values)
{
    std::string names;
    for (const auto& [name, value] : values)
        names += (names.empty() ? "" : ", ") + name;
    return names;
}

[[noreturn]] void refuse(std::string sentence, std::string next)
{
    throw Failure({ExitCode::usage, "usage", std::move(sentence), std::move(next)});
}

KeychainKind kindFrom(const std::string& word, const std::string& source)
{
    for (const auto kind : {KeychainKind::embedded, KeychainKind::secretService})
        if (word == commandline::word(kind))
            return kind;
    refuse(source + " names no keychain.", "It takes \"embedded\" or \"secret-service\".");
}

GroupName groupFrom(const std::string& text)
{
    const auto dot = text.find('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == text.size())
        refuse("--group is not a prefix, a dot and a name.",
               "Write it like \"group.org.example.shared\".");
    return {text.substr(0, dot), text.substr(dot + 1)};
}

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

}  // namespace

/// The values as the command line has them. Options that several subcommands share end in the same
/// place, since one subcommand is used at a time.
struct KeychainOptions::Values
{
    CLI::App* root = nullptr;
    std::map<KeychainVerb, CLI::App*> parsers;
    KeychainCommand command;
    std::string keychain, identifier, service, group, accessibility, accessControl, key;
    int passphraseDescriptor = -1, passcodeDescriptor = -1;
    bool keyIsEscaped = false;

    void addCommon(CLI::App& app)
    {
        app.add_option("--keychain", keychain,
                       "embedded or secret-service (default: TESSERA_KEYCHAIN, else embedded)")
            ->type_name("NAME");
        app.add_option("--program", command.program,
                       "Whose items are meant (default: net.ostra.tessera)")
            ->type_name("IDENTIFIER");
        app.add_option("--passphrase-fd", passphraseDescriptor,
                       "Read the key's passphrase from this descriptor, as far as the line's end")
            ->type_name("N");
        app.add_flag("--json", command.json,
                     "Print one JSON object on standard output, for errors too");
    }

    void addStore(CLI::App& app)
    {
        app.add_option("--id", identifier, "The store's identifier, as programs give it")
            ->type_name("NAME");
        app.add_option("--service", service, "The store's service name, used as it stands")
            ->type_name("NAME");
        app.add_option("--group", group,
                       "The access group that the store is shared in; alone, its nameless store")
            ->type_name("PREFIX.GROUP");
        app.add_option("--accessibility", accessibility,
                       "When the items may be read (default: whenUnlocked): " +
                           namesOf(accessibilityNames()))
            ->type_name("NAME");
        app.add_option("--access-control", accessControl,
                       "The store asks the user: " + namesOf(accessControlNames()))
            ->type_name("NAME");
        app.add_flag("--single-prompt", command.store.singlePrompt,
                     "With --access-control: the kind of store that asks once for several values");
        app.add_flag("--synchronizable", command.store.synchronizable,
                     "The kind of store whose items may travel");
    }

    void addKey(CLI::App& app, KeychainVerb verb)
    {
        auto* option = app.add_option("KEY", key, "The key of the item")->type_name("");
        if (verb != KeychainVerb::remove)
            option->required();
        app.add_flag("--escaped", keyIsEscaped, "The key is written as \"keychain list\" shows it");
    }

    void addOwn(CLI::App& app, KeychainVerb verb)
    {
        if (takesKey(verb))
            addKey(app, verb);
        if (verb == KeychainVerb::get)
        {
            app.add_flag("--force", command.force, "Write binary values to a terminal, too");
            app.add_option("--prompt", command.prompt, "What to tell whoever must agree")
                ->type_name("TEXT");
            app.add_option("--passcode-fd", passcodeDescriptor,
                           "Read the passcode from this descriptor, as far as the line's end")
                ->type_name("N");
        }
        if (verb == KeychainVerb::remove)
        {
            app.add_flag("--all", command.all, "Remove all items of the store");
            app.add_flag("--yes", command.confirmed, "Remove them without asking");
        }
        if (verb == KeychainVerb::passcodeRemove)
            app.add_flag("--yes", command.confirmed, "Remove it without asking whether to");
        if (takesStore(verb))
            addStore(app);
        addCommon(app);
    }

    CLI::App& usedParser() const { return *parsers.at(usedVerb()); }
    KeychainVerb usedVerb() const
    {
        return std::ranges::find_if(parsers, [](const auto& p) { return p.second->parsed(); })
            ->first;
    }

    void readKind(KeychainCommand& into, bool given) const
    {
        const char* variable = std::getenv("TESSERA_KEYCHAIN");
        if (given)
        {
            into.kind = kindFrom(keychain, "--keychain");
            into.chosenBy = "--keychain";
        }
        else if (variable != nullptr && *variable != '\0')
        {
            into.kind = kindFrom(variable, "The environment variable TESSERA_KEYCHAIN");
            into.chosenBy = "TESSERA_KEYCHAIN";
        }
    }

    void readStore(KeychainCommand& into, const CLI::App& parser) const
    {
        auto& store = into.store;
        if (parser.count("--id") > 0)
            store.identifier = identifier;
        if (parser.count("--service") > 0)
            store.service = service;
        if (parser.count("--group") > 0)
            store.group = groupFrom(group);
        if (parser.count("--accessibility") > 0)
            store.accessible = valueOf(accessibilityNames(), accessibility, "--accessibility");
        if (parser.count("--access-control") > 0)
            store.accessControl = valueOf(accessControlNames(), accessControl, "--access-control");
        check(into, parser.count("--accessibility") > 0);
    }

    template <class Value>
    static Value valueOf(const NamesOf<Value>& values, const std::string& name,
                         const std::string& option)
    {
        const auto found = std::ranges::find(values, name, &NamesOf<Value>::value_type::first);
        if (found == values.end())
            refuse(option + " takes none but the listed names.",
                   "It takes one of: " + namesOf(values) + ".");
        return found->second;
    }

    static void check(const KeychainCommand& command, bool accessibilityGiven)
    {
        const auto& store = command.store;
        const bool mayLackStore =
            command.verb == KeychainVerb::list || command.verb == KeychainVerb::doctor;
        const std::string next = "Name the store with --id NAME or --service NAME.";
        if (store.identifier && store.service)
            refuse("--id and --service exclude each other.", next);
        if ((store.identifier && store.identifier->empty()) ||
            (store.service && store.service->empty()))
            refuse("The name of the store is empty.", next);
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

    void readKey(KeychainCommand& into, const CLI::App& parser) const
    {
        const bool given = parser.count("KEY") > 0;
        if (into.verb == KeychainVerb::remove && given == into.all)
            refuse(given ? "A key and --all exclude each other." : "No key is named.",
                   "Name the item's key, or all items of the store with --all.");
        const auto read = keyIsEscaped ? unescaped(key) : key;
        if (!read)
            refuse("The key is not written as \"keychain list\" shows keys.",
                   "Write a backslash as \"\\\\\" and other bytes like \"\\x0A\".");
        into.key = *read;
        if (given && into.key.empty())
            refuse("The key is empty.", "Name the item's key.");
    }

    static std::optional<int> descriptor(const CLI::App& parser, const std::string& option,
                                         int number)
    {
        if (parser.get_option_no_throw(option) == nullptr || parser.count(option) == 0)
            return std::nullopt;
        if (number < 0 || number == 1 || number == 2)
            refuse(option + " takes the number of a descriptor that can be read.",
                   "Open it in the shell, like \"" + option + " 3 3< file\".");
        return number;
    }
};

KeychainOptions::KeychainOptions(CLI::App& app) : values_(std::make_unique<Values>())
{
    auto* keychain = app.add_subcommand("keychain", "Show, change and examine the keychain");
    keychain->footer(explanation);
    keychain->require_subcommand(1);
    values_->root = keychain;
    std::map<std::string, CLI::App*> parents{{"", keychain}};
    for (const auto& [name, description] :
         {std::pair("passcode", "The passcode that releases items which demand it"),
          std::pair("passphrase", "The passphrase of the embedded keychain's key file")})
    {
        auto* parent = parents[name] = keychain->add_subcommand(name, description);
        parent->require_subcommand(1);
        parent->footer(epilogue);
    }
    for (const auto& [verb, parent, word, description] : keychainVerbs())
    {
        auto* parser = values_->parsers[verb] =
            parents.at(parent)->add_subcommand(word, description);
        parser->footer(epilogue);
        values_->addOwn(*parser, verb);
    }
}

KeychainOptions::~KeychainOptions() = default;

bool KeychainOptions::used() const
{
    return values_->root->parsed();
}

KeychainCommand KeychainOptions::command() const
{
    const auto& values = *values_;
    const auto& parser = values.usedParser();
    auto command = values.command;
    command.verb = values.usedVerb();
    values.readKind(command, parser.count("--keychain") > 0);
    if (takesStore(command.verb))
        values.readStore(command, parser);
    if (takesKey(command.verb))
        values.readKey(command, parser);
    command.passphraseDescriptor =
        Values::descriptor(parser, "--passphrase-fd", values.passphraseDescriptor);
    command.passcodeDescriptor =
        Values::descriptor(parser, "--passcode-fd", values.passcodeDescriptor);
    if (command.program.empty())
        refuse("--program is empty.", "Name the program whose items are meant.");
    return command;
}

}  // namespace commandline
