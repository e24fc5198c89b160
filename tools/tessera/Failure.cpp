#include "tools/tessera/Failure.hpp"

#include "NetTasks/ResponseCheck.hpp"
#include "Platform/Coding/Text.hpp"
#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Networking/URLError.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "Tessera/API/AccountRequestBuilder.hpp"
#include "Tessera/Model/AccountError.hpp"
#include "Tessera/Tokens/JWTError.hpp"
#include "Valet/KeychainError.hpp"
#include "tools/environment/EnvironmentFile.hpp"

#include <new>

namespace commandline
{
namespace
{

using tessera::AccountRemoteError;

Report report(const platform::URLError& error)
{
    using Code = platform::URLError::Code;
    std::string next;
    if (error.code() == Code::connectionRefused)
        next = connectionAdvice();
    if (error.code() == Code::tls)
        next = "Check the date of this machine and the authority in the environment file.";
    if (error.code() == Code::invalidMethod || error.code() == Code::invalidHeader)
        return report(ExitCode::internal, error);
    const bool byAddress = error.code() == Code::insecureURL;
    return report(byAddress ? ExitCode::environment : ExitCode::network, error, next);
}

/// The server's own advice, but where this program knows better and where there is none.
std::string nextStep(const AccountRemoteError& error, const std::string& advice)
{
    const auto* other =
        error.code() ? std::get_if<AccountRemoteError::OtherCode>(&*error.code()) : nullptr;
    const std::string_view code = other != nullptr ? std::string_view(other->text) : "";
    if (code == "invalid_email")
        return "Check --email.";
    if (code == "revision_not_current")
        return "See the current revision with \"tessera info\".";
    if (!advice.empty())
        return advice;
    // Only a limit, and a fault of the server, pass with time.
    if (code.starts_with("too_many_") || code == "internal_error" || code == "mail_failed")
        return "Try again later.";
    return "Check what the command was given, or ask whoever runs the server.";
}

Report report(const AccountRemoteError& error)
{
    using enum AccountRemoteError::KnownCode;
    if (error.is(unauthorized))
        return report(ExitCode::signInNeeded, error, "Sign in with \"tessera sign-in\".");
    if (error.is(reauthenticationRequired))
        return report(ExitCode::signInNeeded, error,
                      "Sign in anew with \"tessera sign-in\", then repeat this.");
    if (error.is(noConsent))
        return report(ExitCode::refused, error, "Accept the terms with \"tessera consent\".");
    auto refused = report(ExitCode::refused, error);
    refused.next = nextStep(error, refused.next);
    return refused;
}

Report report(const nettasks::AsyncURLSessionDataTaskDecodingError& error)
{
    return {ExitCode::refused, error.what(),
            "The server refused with an answer that is no error record: \"" +
                platform::abbreviated(error.body(), 80) + "\".",
            "Check the server's address, or try again later."};
}

Report report(const tessera::JWTError& error)
{
    return report(ExitCode::verification, error,
                  "Check that the token and the server belong to the environment that was named.");
}

Report report(const tessera::AccountError& error)
{
    switch (error.errorCase())
    {
        case tessera::AccountErrorCase::accountRequired:
            return report(ExitCode::signInNeeded, error, "Sign in with \"tessera sign-in\".");
        case tessera::AccountErrorCase::keychainAccess:
            return report(ExitCode::keychain, error,
                          "Let \"tessera keychain doctor\" look for the cause.");
        case tessera::AccountErrorCase::audienceMismatch:
            break;
    }
    return report(ExitCode::verification, error,
                  "The server signed it for another program or user; check --client-identifier.");
}

Report report(const platform::DecodingError& error)
{
    return report(ExitCode::verification, error,
                  "A token does not hold what it must; check the server's address and version.");
}

Report report(const tessera::AccountRequestBuilderError& error)
{
    const bool byAddress =
        error.errorCase() == tessera::AccountRequestBuilderErrorCase::malformedURL;
    return report(byAddress ? ExitCode::environment : ExitCode::signInNeeded, error,
                  byAddress ? "Check \"endpointURL\" in the environment file." : "");
}

Report report(const tools::EnvironmentFileError& error)
{
    const auto name =
        error.field().empty() ? "EnvironmentFileError" : "EnvironmentFileError." + error.field();
    return {ExitCode::environment, name, error.sentence(), error.nextStep()};
}

Report report(const valet::KeychainError& error)
{
    using enum valet::KeychainErrorCase;
    switch (error.errorCase())
    {
        case userCancelled:
            return {ExitCode::declined, error.what(),
                    "The keychain did not get the passcode or the consent that it asks for.",
                    "Run the command again and answer the question."};
        case itemNotFound:
            return {ExitCode::itemNotFound, error.what(), "The store holds no such item.",
                    "See its keys with \"tessera keychain list\"."};
        case missingEntitlement:
            return {ExitCode::keychain, error.what(),
                    "The program may not use the access group of this store.",
                    "Check --group and --program."};
        case emptyKey:
            return {ExitCode::usage, error.what(), "The key is empty.", "Name the item's key."};
        case emptyValue:
            return {ExitCode::usage, error.what(), "The value is empty.",
                    "Pass it to standard input, or remove the item instead."};
        case couldNotAccessKeychain:
            break;
    }
    return {ExitCode::keychain, error.what(), "The keychain cannot be used, or refuses this.",
            "Let \"tessera keychain doctor\" look for the cause."};
}

Report report(const platform::CancellationError& error)
{
    return report(ExitCode::interrupted, error, "Run the command again.");
}

Report report(const Failure& failure)
{
    return failure.report();
}

Report report(const std::bad_alloc&)
{
    return outOfMemory();
}

/// The report of the first of these types that the error is.
template <class First, class... Rest>
Report reportAs(const std::exception& error)
{
    if (const auto* known = dynamic_cast<const First*>(&error))
        return report(*known);
    if constexpr (sizeof...(Rest) > 0)
        return reportAs<Rest...>(error);
    else
        return unexpected(error);
}

}  // namespace

Report reportOf(const std::exception_ptr& error)
{
    try
    {
        std::rethrow_exception(error);
    }
    catch (const std::exception& known)
    {
        return reportAs<Failure, tools::EnvironmentFileError, valet::KeychainError,
                        platform::CancellationError, platform::URLError, AccountRemoteError,
                        nettasks::AsyncURLSessionDataTaskDecodingError, tessera::JWTError,
                        tessera::AccountError, platform::DecodingError,
                        tessera::AccountRequestBuilderError, std::bad_alloc>(known);
    }
    catch (...)
    {
        return unexpected();
    }
}

}  // namespace commandline
