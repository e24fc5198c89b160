#pragma once

#include <Platform/Networking/CurlURLSession.hpp>
#include <Tessera/Model/AccountEnvironment.hpp>

#include <QtCore/QString>

#include <optional>
#include <string>

namespace desktop
{

/// An account server, and the authority that is trusted for it instead of those of the system. A
/// program for customers needs the presets of `AccountEnvironment` alone; this is for development.
struct Environment
{
    tessera::AccountEnvironment account;
    std::optional<std::string> authority;

    platform::CurlURLSession::Configuration configuration() const
    {
        return {.timeLimit = std::chrono::seconds(20), .trustedAuthority = authority};
    }
};

/// Reads the file that the development server writes. Throws `std::runtime_error`, whose text is a
/// sentence.
Environment readEnvironment(const QString& file);

}  // namespace desktop
