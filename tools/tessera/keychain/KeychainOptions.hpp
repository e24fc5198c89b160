#pragma once

#include "tools/tessera/keychain/KeychainCommand.hpp"

#include <memory>

namespace CLI
{
class App;
}

namespace commandline
{

/// The part of the command line that begins with "keychain".
class KeychainOptions
{
public:
    /// Adds the subcommands to `app`, which must outlive this.
    explicit KeychainOptions(CLI::App& app);
    ~KeychainOptions();
    KeychainOptions(const KeychainOptions&) = delete;
    KeychainOptions& operator=(const KeychainOptions&) = delete;

    /// Whether one of them was used; asked after parsing.
    bool used() const;

    /// What was asked for, if one was used. Throws `Failure` of the class `usage`.
    KeychainCommand command() const;

private:
    struct Parsers;
    std::unique_ptr<Parsers> parsers_;
};

}  // namespace commandline
