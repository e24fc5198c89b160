#pragma once

#include <map>
#include <string>
#include <string_view>

namespace accountserver
{

/// The register of the programs that may talk to the server, and what their user agent tells:
///
///     Editor/7.2-beta Account/2026-10-17-rhubarb (Mac14,2; 14.5.0; Direct)
class Clients
{
public:
    /// The name as the user agent shows it, and the identifier that it stands for.
    explicit Clients(std::map<std::string, std::string> identifiers)
        : identifiers_(std::move(identifiers))
    {}

    /// The audience of the info tokens for the program: its identifier, ".", and the kind of
    /// device. Throws `Refusal`.
    std::string audience(std::string_view userAgent) const;

private:
    std::map<std::string, std::string> identifiers_;
};

}  // namespace accountserver
