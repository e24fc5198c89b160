#pragma once

#include "Platform/Basics/LocalizedError.hpp"
#include "Platform/Coding/JSONCoding.hpp"

#include <boost/describe/enum.hpp>

#include <optional>
#include <string>
#include <variant>

namespace tessera
{

/// The error with which the account server refuses a request.
///
/// `what()` names the code alone. `message` and `errorDescription()` are the server's own words:
/// for the screen, not for a log.
class AccountRemoteError final : public platform::LocalizedError
{
public:
    /// The codes that a program may act on.
    enum class KnownCode
    {
        noConsent,
        unauthorized,
        reauthenticationRequired
    };

    /// A code that this client does not know, as the server sent it.
    struct OtherCode
    {
        std::string text;
        bool operator==(const OtherCode&) const = default;
    };

    /// A known code is never equal to `OtherCode`, whatever the text of that.
    using ErrorCode = std::variant<OtherCode, KnownCode>;

    /// The code for its text on the wire, compared letter for letter.
    static ErrorCode errorCode(std::string_view wireText);

    AccountRemoteError(std::optional<ErrorCode> code, std::string message)
        : code_(std::move(code)), message_(std::move(message))
    {}

    const std::optional<ErrorCode>& code() const noexcept { return code_; }
    const std::string& message() const noexcept { return message_; }

    /// Whether the code is this one.
    bool is(KnownCode known) const { return code_ == ErrorCode(known); }

    const char* what() const noexcept override;

    /// The message; a general sentence in the user's language when the server sent an empty one.
    std::string errorDescription() const override;

    bool operator==(const AccountRemoteError& other) const
    {
        return code_ == other.code_ && message_ == other.message_;
    }
    friend std::size_t hash_value(const AccountRemoteError& error);

private:
    std::optional<ErrorCode> code_;
    std::string message_;
};

BOOST_DESCRIBE_ENUM(AccountRemoteError::KnownCode, noConsent, unauthorized,
                    reauthenticationRequired)

}  // namespace tessera

template <>
struct platform::JSONCoding<tessera::AccountRemoteError::ErrorCode>
{
    static tessera::AccountRemoteError::ErrorCode decode(const JSONReader& json)
    {
        return tessera::AccountRemoteError::errorCode(json.text());
    }
};

/// An object with a text "message". A "code" that is missing or not a text is no code.
template <>
struct platform::JSONCoding<tessera::AccountRemoteError>
{
    static tessera::AccountRemoteError decode(const JSONReader& json)
    {
        auto message = json.decode<std::string>("message");
        auto code = json.decodeLeniently<tessera::AccountRemoteError::ErrorCode>("code");
        return {std::move(code), std::move(message)};
    }
};
