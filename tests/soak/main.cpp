#include "tests/soak/Runs.hpp"

#include <unistd.h>
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>
#include <random>

namespace
{

constexpr auto description =
    "Long runs that show that the keychains keep what they were told, whatever ends their\n"
    "processes, their power or their disk. Each prints its seed, with which it can be started\n"
    "again, and its counts in a closing line. Exit codes: 0 all passed, 1 something failed, 2 "
    "wrong\n"
    "use, 3 the run could not be carried out.";

struct Command
{
    const char* name;
    int (*run)(const soak::Settings&);
    /// None: what the runs start this program as.
    const char* description = nullptr;
    /// What judges what was synced, and does not depend on it, needs no disk that is slow at it.
    bool keepsFilesInMemory = false;
};

constexpr Command commands[]{
    {"kills", soak::runKills, "kill -9 of the writer at random instants (2000)"},
    {"powercut", soak::runPowerCut,
     "a power cut after every call on the disk (30 subsets of what was not synced)", true},
    {"faults", soak::runFaults, "every call on the disk refused once", true},
    {"flips", soak::runFlips, "every byte of the store's files flipped, one at a time (all)", true},
    {"processes", soak::runProcesses, "processes that use the same items (10000 calls each)"},
    {"service-kills", soak::runServiceKills,
     "the same as kills, over a private Secret Service, whose daemon is killed too (2000)"},
    {"service-processes", soak::runServiceProcesses,
     "the same as processes, over a private Secret Service (1000 calls each)"},
    {"writer", soak::beWriter},
    {"contender", soak::beContender},
    {"holder", soak::beHolder},
    {"flipper", soak::beFlipper},
};

void addOptions(CLI::App& app, soak::Settings& settings)
{
    app.add_option("--count", settings.count,
                   "How many; the run's own number, in brackets below, if it is not given");
    app.add_option("--seed", settings.seed, "Of all that is random; printed at the start");
    app.add_option("--processes", settings.processes, "How many there are, where several")
        ->capture_default_str()
        ->check(CLI::Range(2, 60));
    // An empty group hides it from the help.
    app.add_option("--folder", settings.place.folder)->group("");
    app.add_option("--bus", settings.place.busAddress)->group("");
    app.add_option("--passphrase", settings.place.passphrase)->group("");
    app.add_option("--first", settings.first)->group("");
    app.add_option("--process", settings.process)->group("");
    app.add_flag("--quiet", settings.isQuiet)->group("");
}

}  // namespace

int main(int count, char** arguments)
{
    CLI::App app(description, "tessera-soak");
    app.require_subcommand(1);
    soak::Settings settings;
    settings.seed = std::random_device()();
    addOptions(app, settings);
    for (const auto& command : commands)
    {
        auto* sub =
            app.add_subcommand(command.name, command.description ? command.description : "");
        sub->fallthrough();
        if (!command.description)
            sub->group("");
    }
    try
    {
        app.parse(count, arguments);
        for (const auto& command : commands)
            if (app.got_subcommand(command.name))
            {
                if (command.keepsFilesInMemory && access("/dev/shm", W_OK) == 0)
                    setenv("TMPDIR", "/dev/shm", 0);
                return command.run(settings);
            }
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "tessera-soak: " << error.what() << std::endl;
    }
    return 3;
}
