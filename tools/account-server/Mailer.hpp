#pragma once

#include "tools/account-server/Accounts.hpp"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/thread_pool.hpp>

#include <filesystem>
#include <optional>
#include <string>

namespace accountserver
{

/// Brings codes to their owners: a file for each mail in the mailbox folder and a line on standard
/// output, or an SMTP server when one is configured. SMTP runs on a thread of its own.
class Mailer
{
public:
    struct Setup
    {
        std::filesystem::path mailbox;
        std::string smtp;  ///< host:port
        std::string sender;
        bool print = true;
    };

    explicit Mailer(Setup setup);
    ~Mailer();

    /// Waits for the mail that is being sent; after this `deliver` must not be called.
    void finish();

    /// False when the mail was not taken; the reason is written to standard error.
    boost::asio::awaitable<bool> deliver(Mail mail);

private:
    void keep(const Mail& mail);
    std::string compose(const Mail& mail) const;

    Setup setup_;
    boost::asio::thread_pool thread_;
};

/// The code of the newest mail to the address in the mailbox folder of a state folder.
std::optional<std::string> newestCode(const std::filesystem::path& state, const std::string& email);

}  // namespace accountserver
