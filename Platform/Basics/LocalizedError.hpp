#pragma once

#include <exception>
#include <string>

namespace platform
{

/// The base of every error that a host may want to show to a person.
///
/// `what()` names the case for a log ("JWTError.verificationFailed") and never holds a secret.
/// `errorDescription()` is the sentence for the user, in the user's language; it may hold a text
/// that the server sent and therefore belongs on the screen, not in a log.
class LocalizedError : public std::exception
{
public:
    virtual std::string errorDescription() const = 0;
};

/// The sentence to show for any error: the localized description where there is one, `what()`
/// otherwise.
std::string describe(const std::exception& error);
std::string describe(const std::exception_ptr& error);

}  // namespace platform
