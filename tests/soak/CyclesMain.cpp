#include "tests/soak/Cycles.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <unistd.h>
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>
#include <random>
#include <thread>
#include <vector>

namespace
{

constexpr auto description =
    "Sign-in, refresh and sign-out by the programs of four users, over and over, against the\n"
    "account server for development. Prints its seed, with which it makes the same choices again,\n"
    "and its counts in a closing line. Exit codes: 0 all passed, 1 something failed, 2 wrong use,\n"
    "3 the run could not be carried out.";

// Each waits for its own programs most of the time.
constexpr unsigned users = 4;

int runCycles(const std::filesystem::path& serverProgram, std::uint64_t count, std::uint64_t seed)
{
    soak::CyclesUsage::prepare();
    // Nothing here judges what was synced.
    if (access("/dev/shm", W_OK) == 0)
        setenv("TMPDIR", "/dev/shm", 0);
    const TemporaryFolder folder;
    // Before there are threads.
    soak::CyclesServer server(serverProgram, folder.path() / "server");
    const auto each = (count + users - 1) / users;
    soak::Report report("cycles", users * each, seed);
    soak::CyclesShared shared(report, users, each);
    std::vector<std::thread> threads;
    for (unsigned user = 0; user < users; ++user)
        threads.emplace_back(
            [&, user]
            {
                soak::Cycles cycles(server, shared, folder.path() / ("user" + std::to_string(user)),
                                    seed + user);
                cycles.run(each);
            });
    for (auto& thread : threads)
        thread.join();
    return report.close(shared.detail());
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    CLI::App app(description, "tessera-cycles");
    std::uint64_t count = 2000, seed = std::random_device()();
    std::filesystem::path server =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / "tessera-account-server";
    app.add_option("--count", count, "How many cycles in all")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--seed", seed, "Of all that is random; printed at the start");
    app.add_option("--server", server, "The program of the server, if it is not beside this one");
    try
    {
        app.parse(argumentCount, arguments);
        return runCycles(server, count, seed);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "tessera-cycles: " << error.what() << std::endl;
        return 3;
    }
}
