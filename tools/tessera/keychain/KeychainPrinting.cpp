#include "tools/tessera/keychain/KeychainPrinting.hpp"

#include "Platform/Basics/Wipe.hpp"
#include "Platform/Coding/Base64.hpp"
#include "Platform/Coding/JSONWriter.hpp"
#include "Platform/Coding/Text.hpp"
#include "Platform/Security/SecretCoding.hpp"
#include "tools/shared/Terminal.hpp"
#include "tools/tessera/Printing.hpp"
#include "tools/tessera/keychain/Escaping.hpp"

#include <unistd.h>

#include <algorithm>

namespace commandline
{
namespace
{

using platform::JSONWriter;
using platform::SecretString;

void write(std::string_view name, const std::vector<std::string>& texts, JSONWriter& json)
{
    json.key(name);
    json.beginArray();
    for (const auto& text : texts)
        json.text(text);
    json.endArray();
}

void write(const std::vector<StoreSummary>& stores, JSONWriter& json)
{
    json.key("stores");
    json.beginArray();
    for (const auto& store : stores)
    {
        json.beginObject();
        json.member("service", store.service);
        json.member("accessGroup", store.accessGroup);
        json.member("synchronizable", store.synchronizable);
        write("accessibility", store.accessibilities, json);
        write("accessControl", store.accessControls, json);
        json.member("items", static_cast<std::int64_t>(store.items));
        json.member("canary", store.hasCanary);
        json.endObject();
    }
    json.endArray();
}

/// Text as it is; bytes that are none in base64.
void write(const platform::SecretBytes& value, JSONWriter& json)
{
    const SecretString text(value);
    if (platform::isValidUTF8(text.view()))
        return json.member("text", text);
    auto encoded = platform::encodeBase64(value.view());
    json.member("base64", encoded);
    platform::wipe(encoded.data(), encoded.size());
}

void write(const Findings& findings, JSONWriter& json)
{
    json.member("faults", static_cast<std::int64_t>(std::ranges::count(
                              findings, Finding::State::fault, &Finding::state)));
    json.key("findings");
    json.beginArray();
    for (const auto& finding : findings)
    {
        json.beginObject();
        json.member("name", finding.name);
        json.member("state", std::string(word(finding.state)));
        json.member("text", finding.text);
        if (!finding.next.empty())
            json.member("next", finding.next);
        json.endObject();
    }
    json.endArray();
}

SecretString jsonText(const KeychainResult& result,
                      const std::vector<platform::Diagnostic>& diagnostics)
{
    SecretString text;
    JSONWriter json(text);
    json.beginObject();
    json.member("command", words(result.verb));
    if (!result.service.empty())
        json.member("service", result.service);
    if (!result.key.empty())
        json.member("key", result.key);
    if (result.stores)
        write(*result.stores, json);
    if (result.keys)
        write("keys", *result.keys, json);
    if (result.value)
        write(*result.value, json);
    if (result.isSet)
        json.member("set", *result.isSet);
    if (result.findings)
        write(*result.findings, json);
    if (!diagnostics.empty())
        writeDiagnostics(diagnostics, json);
    json.endObject();
    text.append("\n");
    return text;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const auto& word : words)
        text += ", " + word;
    return text;
}

void printForPeople(const std::vector<StoreSummary>& stores)
{
    const bool colours = takesColours(STDOUT_FILENO);
    for (const auto& store : stores)
    {
        const auto about = std::to_string(store.items) + (store.items == 1 ? " item" : " items") +
                           ", group " + store.accessGroup + joined(store.accessibilities) +
                           joined(store.accessControls) +
                           (store.synchronizable ? ", synchronizable" : "");
        print(escaped(store.service) + "\n  " + styled(escaped(about), Style::label, colours) +
              "\n");
    }
}

void printForPeople(const Findings& findings)
{
    const bool colours = takesColours(STDOUT_FILENO);
    for (const auto& finding : findings)
    {
        const auto style = finding.state == Finding::State::fault  ? Style::error
                           : finding.state == Finding::State::note ? Style::warning
                                                                   : Style::good;
        std::string label(word(finding.state));
        label.resize(7, ' ');
        print(styled(std::move(label), style, colours) + printable(finding.text) + "\n");
        if (!finding.next.empty())
            print("       " + printable(finding.next) + "\n");
    }
}

void printForPeople(const platform::SecretBytes& value)
{
    print(SecretString(value).view());
    if (isTerminal(STDOUT_FILENO))
        print("\n");
}

}  // namespace

void print(const KeychainResult& result, const std::vector<platform::Diagnostic>& diagnostics,
           bool json)
{
    if (json)
        return print(jsonText(result, diagnostics).view());
    print(result.sentence);
    if (result.stores)
        printForPeople(*result.stores);
    if (result.keys)
        for (const auto& key : *result.keys)
            print(escaped(key) + "\n");
    if (result.value)
        printForPeople(*result.value);
    if (result.findings)
        printForPeople(*result.findings);
    print(diagnostics);
}

}  // namespace commandline
