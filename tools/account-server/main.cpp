#include "tools/account-server/Environment.hpp"
#include "tools/account-server/Failure.hpp"
#include "tools/account-server/Mailer.hpp"
#include "tools/account-server/Options.hpp"
#include "tools/account-server/Server.hpp"

#include <curl/curl.h>

#include <sys/stat.h>

#include <csignal>
#include <iostream>

namespace
{

using namespace accountserver;

int serve(const Settings& settings)
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    Server server(settings);
    server.stopOnSignals();
    if (const auto control = server.controlPort())
        std::cout << "control interface on http://127.0.0.1:" << *control << "/\n";
    std::cout << "listening on " << serverAddress(server.port()) << std::endl;
    server.run();
    return static_cast<int>(ExitCode::success);
}

int printCode(const ReadMailbox& mailbox)
{
    const auto code = newestCode(mailbox.state, mailbox.email);
    if (!code)
        throw Failure(ExitCode::noMail, "No code was sent to this address. Ask for one first.");
    std::cout << *code << std::endl;
    return static_cast<int>(ExitCode::success);
}

}  // namespace

int main(int count, char** arguments)
{
    // Whatever SQLite or the mailbox leaves on the disk is for this user alone.
    ::umask(077);
    std::signal(SIGPIPE, SIG_IGN);
    try
    {
        const auto wish = parseOptions(count, arguments);
        if (const auto* settings = std::get_if<Settings>(&wish))
            return serve(*settings);
        if (const auto* mailbox = std::get_if<ReadMailbox>(&wish))
            return printCode(*mailbox);
        return std::get<Done>(wish).exitCode;
    }
    catch (const Failure& failure)
    {
        std::cerr << "tessera-account-server: " << failure.what() << "\n";
        return static_cast<int>(failure.exitCode());
    }
    catch (const std::exception& error)
    {
        std::cerr << "tessera-account-server: " << error.what()
                  << ". Start it again, with another --state if that does not help.\n";
        return static_cast<int>(ExitCode::failed);
    }
}
