#include "tools/tessera/keychain/Doctor.hpp"

#include "Platform/Security/Authentication/Passcode.hpp"
#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"
#include "Platform/Services/Services.hpp"
#include "tools/shared/Terminal.hpp"
#include "tools/tessera/Failure.hpp"
#include "tools/tessera/keychain/EmbeddedFiles.hpp"
#include "tools/tessera/keychain/NamedStore.hpp"

#include <algorithm>

namespace commandline
{
namespace
{

using State = Finding::State;

Finding chosen(const KeychainCommand& command)
{
    const std::string why =
        command.chosenBy == "default" ? "by default" : "because " + command.chosenBy + " names it";
    return {"keychain.inUse", State::good,
            (command.kind == KeychainKind::embedded ? "The embedded keychain is in use, "
                                                    : "The Secret Service is in use, ") +
                why + "."};
}

Finding wrapping(bool wrapped)
{
    if (wrapped)
        return {"embedded.passphrase", State::good, "The key is wrapped under a passphrase."};
    return {"embedded.passphrase", State::note,
            "The key has no passphrase: it protects copies of the data folder alone."};
}

void examinePasscode(std::shared_ptr<platform::ItemStore> store, Findings& findings)
{
    const platform::Passcode passcode(std::move(store),
                                      [] { return platform::ProtectionServices(); });
    const auto answer = passcode.isSet();
    if (answer.status == platform::KeychainStatus::success)
        findings.push_back({"passcode", answer.isSet ? State::good : State::note,
                            answer.isSet ? "A passcode is set."
                                         : "No passcode is set: items that demand one cannot be "
                                           "kept."});
}

void examineContent(const KeychainCommand& command, KeychainHost& host,
                    const std::shared_ptr<platform::ItemStore>& store, Findings& findings)
{
    const auto keychain = platform::keychainOver(store);
    examineStores(command, *keychain, host.log(), findings);
    if (!hasFault(findings))
        examinePasscode(store, findings);
    host.log().take();
}

Finding formatFound(const platform::EmbeddedContent& found)
{
    return {"embedded.format", State::good,
            "The database has format " + std::to_string(found.format) +
                ", for programs that know format " + std::to_string(found.oldestReader) +
                " or a later one, and is complete: " + counted(found.items, "item") +
                " of all programs."};
}

Finding asFinding(const Report& report)
{
    if (report.diagnostics.empty())
        return {"embedded.read", State::fault, report.message, report.next};
    return faultFrom("embedded.read", report.diagnostics.front());
}

std::string replaced(std::string text, const std::string& old, const std::string& replacement)
{
    for (auto at = text.find(old); at != std::string::npos;
         at = text.find(old, at + replacement.size()))
        text.replace(at, old.size(), replacement);
    return text;
}

void examineCopy(const KeychainCommand& command, KeychainHost& host, const EmbeddedCopy& copy,
                 Findings& findings)
{
    try
    {
        const auto configuration = host.embeddedConfiguration(copy.places());
        findings.push_back(formatFound(contentOf(configuration)));
        examineContent(command, host, std::make_shared<platform::EmbeddedItemStore>(configuration),
                       findings);
    }
    catch (const Failure& failure)
    {
        findings.push_back(asFinding(failure.report()));
    }
}

/// On a copy: a store that is opened makes files of its own.
void examineEmbedded(const KeychainCommand& command, KeychainHost& host,
                     const platform::StorePlaces& places, Findings& findings)
{
    try
    {
        const bool wrapped = keyIsWrapped(places);
        findings.push_back(wrapping(wrapped));
        if (wrapped && !host.asking().canGivePassphrase())
        {
            findings.push_back({"embedded.locked", State::fault,
                                "The items were not looked at, for want of the passphrase.",
                                "Give it with --passphrase-fd N, or run this at a terminal."});
            return;
        }
        const EmbeddedCopy copy(places);
        examineCopy(command, host, copy, findings);
        // People know the originals alone.
        for (auto& finding : findings)
            for (auto* text : {&finding.text, &finding.next})
                *text = replaced(replaced(*text, copy.places().dataFolder, places.dataFolder),
                                 copy.places().keyFolder, places.keyFolder);
    }
    catch (const Failure& failure)
    {
        findings.push_back(asFinding(failure.report()));
    }
}

/// What the program has left in the keychain that is not in use. That it cannot be read is no fault
/// of the one that is.
void noteSecretServiceItems(KeychainHost& host, Findings& findings)
{
    std::size_t items = 0;
    try
    {
        const auto store = std::make_shared<platform::SecretServiceItemStore>(
            platform::SecretServiceItemStore::Configuration{});
        for (const auto& visible : visibleStores(*platform::keychainOver(store)))
            items += visible.items;
    }
    catch (const valet::KeychainError&)
    {}
    host.log().take();
    if (items > 0)
        findings.push_back({"secretService.leftover", State::note,
                            "The Secret Service holds " + std::to_string(items) +
                                " of the program's items, too, which are not seen here; see them "
                                "with --keychain secret-service."});
}

}  // namespace

void examineSecretService(bool inUse, const SecretServiceFacts& facts, Findings& findings)
{
    const auto missing = inUse ? State::fault : State::note;
    const std::string otherwise = ", or use --keychain embedded.";
    const auto add = [&](const char* name, State state, std::string text, std::string next)
    {
        findings.push_back({name, state, std::move(text),
                            state == State::fault ? std::move(next) : std::string()});
    };
    if (!facts.hasLibrary)
        return add("secretService.library", missing, "libsecret is not installed.",
                   "Install it (libsecret-1-0)" + otherwise);
    if (!facts.hasBus)
        return add("secretService.bus", missing, "There is no session bus.",
                   "Run this in a desktop session or under \"dbus-run-session\"" + otherwise);
    if (!facts.isRunning)
        return add("secretService.service", facts.canBeStarted ? State::note : missing,
                   facts.canBeStarted ? "The Secret Service does not run; its first use starts it."
                                      : "No Secret Service runs in this session.",
                   "Start the desktop's keyring (gnome-keyring, for one)" + otherwise);
    add("secretService.service", State::good, "A Secret Service runs in this session.", "");
    if (!facts.hasCollection)
        return add("secretService.collection", missing,
                   "The Secret Service has no default collection.",
                   "Make one with: tessera keychain unlock --keychain secret-service");
    add("secretService.collection", facts.isLocked ? missing : State::good,
        facts.isLocked ? "The default collection of the Secret Service is locked."
                       : "The default collection of the Secret Service is unlocked.",
        "Unlock it with: tessera keychain unlock --keychain secret-service");
}

std::string_view word(Finding::State state)
{
    switch (state)
    {
        case State::good:
            return "good";
        case State::note:
            return "note";
        case State::fault:
            return "fault";
    }
    return "fault";
}

Finding faultFrom(std::string name, const platform::Diagnostic& diagnostic)
{
    return {std::move(name), State::fault, asSentence(diagnostic.cause),
            asSentence(diagnostic.nextStep)};
}

std::string counted(std::uint64_t count, const std::string& what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

bool hasFault(const Findings& findings)
{
    return std::ranges::any_of(
        findings, [](const Finding& finding) { return finding.state == State::fault; });
}

Findings examine(const KeychainCommand& command, KeychainHost& host)
{
    Findings findings{chosen(command)};
    const bool embedded = command.kind == KeychainKind::embedded;
    const auto places = embeddedPlaces();
    Findings files;
    const bool usable = examineFiles(places, files);
    const bool isThere = std::ranges::any_of(
        files, [](const Finding& finding)
        { return finding.name == "embedded.database" || finding.name == "embedded.key"; });
    if (embedded)
    {
        findings.insert(findings.end(), files.begin(), files.end());
        if (usable && isThere)
            examineEmbedded(command, host, places, findings);
    }
    else if (isThere)
        findings.push_back({"embedded.leftover", State::note,
                            "There is an embedded keychain too, in " + places.dataFolder.string() +
                                ", whose items are not seen here."});
    const auto facts = lookAtSecretService();
    examineSecretService(!embedded, facts, findings);
    if (!embedded && facts.isUsable())
        examineContent(command, host, host.store(), findings);
    if (embedded && facts.isUsable())
        noteSecretServiceItems(host, findings);
    return findings;
}

}  // namespace commandline
