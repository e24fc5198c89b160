#pragma once

#include "Platform/Basics/LocalizedError.hpp"
#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Networking/URLResponse.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <optional>
#include <set>
#include <string>

namespace nettasks
{

/// A rejected answer whose body is not the error record that the caller named.
///
/// `body()` and `errorDescription()` hold what the server sent: for the screen, not for a log.
class AsyncURLSessionDataTaskDecodingError final : public platform::LocalizedError
{
public:
    /// The body as text, ill-formed parts replaced by U+FFFD.
    static AsyncURLSessionDataTaskDecodingError errorTypeMismatch(std::string body)
    {
        return AsyncURLSessionDataTaskDecodingError(std::move(body));
    }

    const std::string& body() const noexcept { return body_; }

    const char* what() const noexcept override
    {
        return "AsyncURLSessionDataTaskDecodingError.errorTypeMismatch";
    }

    /// The body, cut after 500 characters as a reader counts them.
    std::string errorDescription() const override;

    bool operator==(const AsyncURLSessionDataTaskDecodingError& other) const
    {
        return body_ == other.body_;
    }

private:
    explicit AsyncURLSessionDataTaskDecodingError(std::string body) : body_(std::move(body)) {}

    std::string body_;
};

/// 200 to 204. Every other status is rejected, other 2xx and all 3xx among them.
const std::set<int>& acceptedStatusCodes();

/// Decodes all answers and error bodies; dates are texts such as "2026-10-17T12:34:56.789+0000".
const platform::JSONDecoder& sharedResponseDecoder();

namespace detail
{

[[noreturn]] void throwErrorTypeMismatch(const platform::SecretBytes& body);

}  // namespace detail

/// Returns when the response is accepted. Otherwise throws the `Error` that the body holds, or
/// `AsyncURLSessionDataTaskDecodingError` when it holds none.
template <class Error>
void check(const platform::SecretBytes& body, const platform::URLResponse& response)
{
    if (acceptedStatusCodes().contains(platform::httpStatusCode(response)))
        return;
    std::optional<Error> error;
    try
    {
        error = sharedResponseDecoder().decode<Error>(body.view());
    }
    catch (const platform::DecodingError&)
    {
        detail::throwErrorTypeMismatch(body);
    }
    throw std::move(*error);
}

}  // namespace nettasks
