// An address that was understood is understood again, as the same one; a path leads to no other
// server, and neither does what the request builder makes of it. The input is an address, a
// reference and the first part of a path, a line each.

#include "Platform/Networking/URL.hpp"
#include "Tessera/API/AccountRequestBuilder.hpp"
#include "tests/fuzz/Require.hpp"

#include <algorithm>
#include <cstdint>

using platform::URL;
using tessera::AccountRequestBuilder;
using tessera::AccountRequestBuilderError;

namespace
{

std::string_view nextLine(std::string_view& rest)
{
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    return line;
}

bool isSameServer(const URL& left, const URL& right)
{
    return left.scheme() == right.scheme() && left.host() == right.host() &&
           left.port() == right.port();
}

bool isControl(unsigned char c)
{
    return c < 0x20 || c == 0x7F;
}

/// Nothing but what may stand in an address as it is.
bool isPlain(unsigned char c)
{
    return c > 0x20 && c < 0x7F;
}

void judge(const URL& url)
{
    const auto again = URL::parse(url.string());
    require(again == url && isSameServer(*again, url));
    require(again->path() == url.path() && again->isLoopback() == url.isLoopback());
    require(url.string().starts_with(url.scheme() + "://") && url.path().starts_with('/'));
    require(url.port() >= 0 && url.port() <= 65535 && !url.host().empty());
    require(
        std::ranges::all_of(url.host(), [](char c) { return isPlain(c) && c != '/' && c != '@'; }));
    require(std::ranges::none_of(url.string(), isControl));
}

void judgeBuilder(const URL& endpoint, std::string_view version)
{
    const tessera::AccountEnvironment environment{.localizedName = {},
                                                  .localizedKeychainIdentifier = {},
                                                  .jwtPublicKey = {},
                                                  .endpointURL = endpoint,
                                                  .accountURL = endpoint,
                                                  .marketingURL = endpoint};
    const AccountRequestBuilder builder(environment, {}, std::string(version),
                                        platform::SecretString("token"));
    try
    {
        const auto request = builder.accountInfoRequest();
        judge(request.url);
        require(std::ranges::none_of(version, isControl));
        // An empty part, or one that begins with a slash, would make "//", and that begins a host.
        const bool isPart = !version.empty() && version.front() != '/';
        require(!isPart || isSameServer(request.url, endpoint));
        require(request.method == "GET" && request.header("Authorization"));
    }
    catch (const AccountRequestBuilderError& error)
    {
        require(error == AccountRequestBuilderError(AccountRequestBuilderError::malformedURL));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const std::string_view base = nextLine(rest);
    const std::string_view reference = nextLine(rest);

    const auto url = URL::parse(base);
    const auto resolved = URL::resolve(base, reference);
    require(url || !resolved);
    require(!url || std::ranges::none_of(base, isControl));
    require(!resolved || std::ranges::none_of(reference, isControl));
    if (resolved)
        judge(*resolved);
    if (!url)
        return 0;
    judge(*url);
    const bool isPath = reference.starts_with('/') && !reference.starts_with("//");
    if (resolved && isPath)
    {
        require(isSameServer(*resolved, *url));
        require(std::ranges::all_of(resolved->string(), isPlain) ||
                !std::ranges::all_of(base, isPlain));
    }
    if (const auto second = url->resolved(reference))
        judge(*second);
    judgeBuilder(*url, rest);
    return 0;
}
