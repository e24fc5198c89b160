#include "tools/tessera/keychain/KeychainOptions.hpp"

#include "tools/tessera/keychain/KeychainValues.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <map>

namespace commandline
{
namespace
{

constexpr auto epilogue = "See \"tessera --help\" for the exit codes.";

constexpr auto explanation =
    R"(A store is named by --id, as programs do, or by --service, the exact name under which its items are
kept; "keychain list" without either shows the stores. Items are looked for as the program of
--program. Between the programs of one user that is a rule of politeness, not a protection: each of
them can read what the others keep.

Values, passcodes and passphrases are read from standard input, from a descriptor or asked for at
the terminal, and never taken from an argument.

See "tessera --help" for the exit codes.)";

const std::map<std::string, const char*> parentDescriptions{
    {"passcode", "The passcode that releases items which demand it"},
    {"passphrase", "The passphrase of the embedded keychain's key file"}};

/// A line of help for each name, below the description.
template <class Value>
std::string listed(std::string description, const NamesOf<Value>& values)
{
    for (const auto& [name, value] : values)
        description += "\n  " + name;
    return description;
}

CLI::Option* addText(CLI::App& app, const std::string& name, std::optional<std::string>& into,
                     const std::string& type, const std::string& description)
{
    return app
        .add_option_function<std::string>(
            name, [&into](const std::string& text) { into = text; }, description)
        ->type_name(type);
}

void addCommon(CLI::App& app, KeychainValues& values)
{
    addText(app, "--keychain", values.keychain, "NAME",
            "embedded or secret-service (default: TESSERA_KEYCHAIN, else embedded)");
    addText(app, "--program", values.program, "IDENTIFIER",
            "Whose items are meant (default: net.ostra.tessera)");
    addText(app, "--passphrase-fd", values.passphraseDescriptor, "N",
            "Read the key's passphrase from this descriptor, to the line's end");
    app.add_flag("--json", values.json, "Print one JSON object on standard output, for errors too");
}

void addStore(CLI::App& app, KeychainValues& values)
{
    addText(app, "--id", values.identifier, "NAME", "The store's identifier, as programs give it");
    addText(app, "--service", values.service, "NAME",
            "The store's service name, used as it stands");
    addText(app, "--group", values.group, "PREFIX.GROUP",
            "The access group that the store is shared in;\nalone, its nameless store");
    addText(
        app, "--accessibility", values.accessibility, "NAME",
        listed("When the items may be read, the first by default, one of:", accessibilityNames()));
    addText(app, "--access-control", values.accessControl, "NAME",
            listed("The store asks the user for one of:", accessControlNames()));
    app.add_flag("--single-prompt", values.singlePrompt,
                 "With --access-control: the kind that asks once for several values");
    app.add_flag("--synchronizable", values.synchronizable,
                 "The kind of store whose items may travel");
}

void addKey(CLI::App& app, KeychainVerb verb, KeychainValues& values)
{
    auto* key = addText(app, "KEY", values.key, "",
                        "The key of the item; after \"--\" it may begin with a dash");
    if (verb != KeychainVerb::remove)
        key->required();
    app.add_flag("--escaped", values.keyIsEscaped,
                 "The key is written as \"keychain list\" shows it");
}

void addOwn(CLI::App& app, KeychainVerb verb, KeychainValues& values)
{
    if (takesKey(verb))
        addKey(app, verb, values);
    if (verb == KeychainVerb::get)
    {
        app.add_flag("--force", values.force, "Write binary values to a terminal, too");
        addText(app, "--prompt", values.prompt, "TEXT", "What to tell whoever must agree");
        addText(app, "--passcode-fd", values.passcodeDescriptor, "N",
                "Read the passcode from this descriptor, to the line's end");
    }
    if (verb == KeychainVerb::remove)
    {
        app.add_flag("--all", values.all, "Remove all items of the store");
        app.add_flag("--yes", values.confirmed, "Remove them without asking");
    }
    if (verb == KeychainVerb::passcodeRemove)
        app.add_flag("--yes", values.confirmed, "Remove it without asking whether to");
    if (takesStore(verb))
        addStore(app, values);
    addCommon(app, values);
}

}  // namespace

/// Options that several subcommands share end in the same place, since one is used at a time.
struct KeychainOptions::Parsers
{
    CLI::App* root = nullptr;
    std::map<std::string, CLI::App*> parents;
    std::map<KeychainVerb, CLI::App*> verbs;
    KeychainValues values;

    /// Made when its first subcommand is, so that help has them in their order.
    CLI::App& parent(const std::string& name)
    {
        auto*& parent = parents[name];
        if (parent == nullptr)
        {
            parent = name.empty() ? root : root->add_subcommand(name, parentDescriptions.at(name));
            parent->require_subcommand(1);
            parent->footer(name.empty() ? explanation : epilogue);
        }
        return *parent;
    }
};

KeychainOptions::KeychainOptions(CLI::App& app) : parsers_(std::make_unique<Parsers>())
{
    parsers_->root = app.add_subcommand("keychain", "Show, change and examine the keychain");
    for (const auto& [verb, parent, word, description] : keychainVerbs())
    {
        auto* parser = parsers_->verbs[verb] =
            parsers_->parent(parent).add_subcommand(word, description);
        parser->footer(epilogue);
        addOwn(*parser, verb, parsers_->values);
    }
}

KeychainOptions::~KeychainOptions() = default;

bool KeychainOptions::used() const
{
    return parsers_->root->parsed();
}

KeychainCommand KeychainOptions::command() const
{
    const auto used = std::ranges::find_if(parsers_->verbs,
                                           [](const auto& verb) { return verb.second->parsed(); });
    return commandFrom(used->first, parsers_->values);
}

}  // namespace commandline
