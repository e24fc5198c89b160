#include "Tessera/API/AccountRequestBuilder.hpp"
#include "tools/conformance/Judge.hpp"

#include <algorithm>
#include <optional>

namespace conformance
{
namespace
{

using boost::json::object;
using platform::URL;
using tessera::AccountRequestBuilder;

/// The operations by the ends of their paths.
struct Operation
{
    std::string_view pathStem;
    platform::URLRequest (*request)(const AccountRequestBuilder&);
};
const Operation operations[] = {
    {"/auth/one-time-code", [](const AccountRequestBuilder& builder)
     { return builder.oneTimeCodeRequest(platform::SecretString("anna@example.org")); }},
    {"/legal/terms/consent",
     [](const AccountRequestBuilder& builder) { return builder.consentRequest("1", "en"); }},
    {"/account", [](const AccountRequestBuilder& builder) { return builder.accountInfoRequest(); }},
    {"/auth", [](const AccountRequestBuilder& builder) { return builder.signOutRequest(); }},
};

/// The builder whose paths begin with "/" and `version`. Nothing for an address that no environment
/// can have.
std::optional<AccountRequestBuilder> builderFor(std::string_view base, std::string_view version)
{
    const auto endpoint = URL::parse(base);
    if (!endpoint)
        return std::nullopt;
    auto environment = tessera::AccountEnvironment::directPreview();
    environment.endpointURL = *endpoint;
    return AccountRequestBuilder(std::move(environment), {}, std::string(version),
                                 platform::SecretString("token"));
}

/// The address of a request with this path where the builder makes such paths, that of the path
/// itself otherwise. Nothing when the path has none.
std::optional<std::string> address(std::string_view base, std::string_view path)
{
    for (const Operation& operation : operations)
    {
        if (path.size() <= operation.pathStem.size() || !path.starts_with('/') ||
            !path.ends_with(operation.pathStem))
            continue;
        const auto version = path.substr(1, path.size() - operation.pathStem.size() - 1);
        const auto builder = builderFor(base, version);
        if (!builder)
            return std::nullopt;
        try
        {
            return operation.request(*builder).url.string();
        }
        catch (const tessera::AccountRequestBuilderError& error)
        {
            if (error.errorCase() == tessera::AccountRequestBuilderError::malformedURL)
                return std::nullopt;
            throw;
        }
    }
    const auto url = URL::resolve(base, path);
    return url ? std::optional(url->string()) : std::nullopt;
}

std::string shownAddress(const std::optional<std::string>& found)
{
    return found ? shown(*found) : "malformedURL";
}

/// An address with its host in lower case, and where the host stands in it.
struct Address
{
    explicit Address(std::string_view address) : text(address)
    {
        const auto scheme = text.find("://");
        if (scheme == text.npos)
            return;
        const auto start = scheme + 3;
        const auto end = std::min(text.find_first_of("/?#", start), text.size());
        std::string_view authority(text.data() + start, end - start);
        const auto user = authority.rfind('@');
        const auto begin = user == authority.npos ? 0 : user + 1;
        authority.remove_prefix(begin);
        const auto bracket = authority.starts_with('[') ? authority.find(']') : 0;
        const auto size = std::min(authority.find(':', bracket), authority.size());
        for (std::size_t at = start + begin; at < start + begin + size; ++at)
            if (text[at] >= 'A' && text[at] <= 'Z')
                text[at] = static_cast<char>(text[at] - 'A' + 'a');
        host = text.substr(start + begin, size);
    }

    std::string text;
    std::string host;
};

Verdict judgeVector(const object& record, const object&)
{
    const auto found = address(textOf(record, "base"), textOf(record, "path"));
    const auto& url = record.at("url");
    if (url.is_null())
        return Verdict::passedIf(!found, "malformedURL", shownAddress(found));
    const Address expected(textOf(record, "url"));
    if (record.at("strict").as_bool())
        return Verdict::passedIf(found && Address(*found).text == expected.text,
                                 shown(expected.text), shownAddress(found));
    // Any spelling will do that leads to the same machine.
    return Verdict::passedIf(!found || Address(*found).host == expected.host,
                             "malformedURL or the host " + shown(expected.host),
                             shownAddress(found));
}

std::string vectorName(const object& record)
{
    return shown(textOf(record, "base")) + " and " + shown(textOf(record, "path"));
}

Verdict judgeResolution(const object& record, const object&)
{
    const auto found = address(textOf(record, "base"), textOf(record, "relative"));
    const auto& href = record.at("href");
    const auto expected =
        href.is_null() ? std::nullopt : std::optional(std::string(textOf(record, "href")));
    return Verdict::passedIf(found == expected, shownAddress(expected), shownAddress(found));
}

constexpr Judge judges[] = {{"urls.json", vectorName, judgeVector},
                            {"url_resolution.json", nameFromID, judgeResolution}};

}  // namespace

std::span<const Judge> addressJudges()
{
    return judges;
}

}  // namespace conformance
