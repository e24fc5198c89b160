// The body of a refused answer becomes the error that it holds or a text that is cut: what is shown
// is well-formed and of a bounded length, and what is logged is none of the server's words.

#include "NetTasks/ResponseCheck.hpp"
#include "Platform/Coding/JSONDescribed.hpp"
#include "Platform/Coding/JSONEncoder.hpp"
#include "Platform/Coding/Text.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "tests/fuzz/Require.hpp"

#include <boost/describe/class.hpp>

#include <cmath>
#include <cstdint>

using namespace platform;
using nettasks::AsyncURLSessionDataTaskDecodingError;
using tessera::AccountRemoteError;

namespace
{

/// An error record of a host, with what the shared decoder does beside texts.
struct Refusal
{
    std::string message;
    std::optional<Date> since;
    std::optional<std::vector<std::string>> details;
    std::optional<std::int32_t> retries;
};
BOOST_DESCRIBE_STRUCT(Refusal, (), (message, since, details, retries))

SecretBytes bytesOf(std::string_view text)
{
    return SecretBytes(std::as_bytes(std::span(text)));
}

URLResponse answer(int status)
{
    static const auto url = URL::parse("https://api.example.net/v2/account");
    return {.url = *url, .status = status};
}

void judge(const AsyncURLSessionDataTaskDecodingError& error, std::string_view sent)
{
    constexpr std::string_view ellipsis = "\xE2\x80\xA6";
    const std::string& body = error.body();
    require(isValidUTF8(body) && (!isValidUTF8(sent) || body == sent));
    const std::string shown = error.errorDescription();
    require(isValidUTF8(shown) && characterCount(shown) <= 501);
    if (shown == body)
        return;
    require(shown.ends_with(ellipsis));
    require(body.starts_with(shown.substr(0, shown.size() - ellipsis.size())));
}

std::string wireText(const AccountRemoteError::ErrorCode& code)
{
    if (const auto* other = std::get_if<AccountRemoteError::OtherCode>(&code))
        return other->text;
    switch (std::get<AccountRemoteError::KnownCode>(code))
    {
        case AccountRemoteError::KnownCode::noConsent:
            return "no_consent";
        case AccountRemoteError::KnownCode::unauthorized:
            return "unauthorized";
        case AccountRemoteError::KnownCode::reauthenticationRequired:
            break;
    }
    return "reauthentication_required";
}

std::string written(const AccountRemoteError& error)
{
    std::string json;
    JSONWriter writer(json);
    writer.beginObject();
    if (error.code())
        writer.member("code", wireText(*error.code()));
    writer.member("message", error.message());
    writer.endObject();
    return json;
}

template <class Error>
std::optional<Error> errorIn(std::string_view body, int status)
{
    try
    {
        nettasks::check<Error>(bytesOf(body), answer(status));
        require(status == 200 || status == 204);
    }
    catch (const Error& error)
    {
        return error;
    }
    catch (const AsyncURLSessionDataTaskDecodingError& error)
    {
        require(status == 403);
        judge(error, body);
    }
    return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    require(!errorIn<AccountRemoteError>(body, size % 2 == 0 ? 200 : 204));
    if (const auto refusal = errorIn<Refusal>(body, 403))
        require(!refusal->since || std::isfinite(refusal->since->secondsSince1970));

    const auto error = errorIn<AccountRemoteError>(body, 403);
    if (!error)
        return 0;
    const std::string shown = error->errorDescription();
    require(!shown.empty() && isValidUTF8(shown));
    require(error->message().empty() || shown == error->message());
    const std::string_view logged = error->what();
    require(logged.starts_with("AccountRemoteError") && logged.size() < 48);
    require(errorIn<AccountRemoteError>(written(*error), 403) == error);
    return 0;
}
