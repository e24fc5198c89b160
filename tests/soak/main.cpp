#include "tests/soak/Runs.hpp"

#include <unistd.h>
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <random>
#include <vector>

namespace
{

constexpr auto description =
    "Long runs that show that the keychains keep what they were told, whatever ends their "
    "processes, "
    "their power or their disk. Each prints its seed, with which it can be started again, and its "
    "counts in a closing line. Exit codes: 0 all passed, 1 something failed, 2 wrong use, 3 the "
    "run "
    "could not be carried out.";

/// Runs that judge what was synced, and do not depend on it, need no disk that is slow at it.
void keepFilesInMemory()
{
    if (access("/dev/shm", W_OK) == 0)
        setenv("TMPDIR", "/dev/shm", 0);
}

struct Wish
{
    soak::Settings settings;
    soak::Place place;
    std::uint64_t first = 0;
    unsigned process = 0;
    bool isQuiet = false;
};

struct Command
{
    const char* name;
    const char* description;
    std::function<int(const Wish&)> run;
};

const std::vector<Command>& runs()
{
    static const std::vector<Command> all{
        {"kills", "kill -9 of the writer at random instants (2000)",
         [](const Wish& wish) { return soak::runKills(wish.settings); }},
        {"powercut", "a power cut after every call on the disk (30 subsets of what was not synced)",
         [](const Wish& wish)
         {
             keepFilesInMemory();
             return soak::runPowerCut(wish.settings);
         }},
        {"faults", "every call on the disk refused once",
         [](const Wish& wish)
         {
             keepFilesInMemory();
             return soak::runFaults(wish.settings);
         }},
        {"flips", "every byte of the store's files flipped, one at a time (all)",
         [](const Wish& wish)
         {
             keepFilesInMemory();
             return soak::runFlips(wish.settings);
         }},
        {"processes", "processes that use the same items (10000 calls each)",
         [](const Wish& wish) { return soak::runProcesses(wish.settings); }},
        {"service-kills",
         "the same as kills, over a private Secret Service, whose daemon is killed too (2000)",
         [](const Wish& wish) { return soak::runServiceKills(wish.settings); }},
        {"service-processes",
         "the same as processes, over a private Secret Service (1000 calls each)",
         [](const Wish& wish) { return soak::runServiceProcesses(wish.settings); }},
    };
    return all;
}

/// What the runs start this program as.
const std::vector<Command>& parts()
{
    static const std::vector<Command> all{
        {"writer", "", [](const Wish& wish)
         { return soak::beWriter(wish.place, wish.settings.seed, wish.first, wish.isQuiet); }},
        {"contender", "",
         [](const Wish& wish)
         {
             return soak::beContender(wish.place, wish.settings.seed, wish.process,
                                      wish.settings.count);
         }},
        {"holder", "", [](const Wish& wish) { return soak::beHolder(wish.place); }},
        {"flipper", "", [](const Wish& wish) { return soak::beFlipper(wish.place); }},
    };
    return all;
}

void addRuns(CLI::App& app, Wish& wish, int& exitCode)
{
    for (const auto& command : runs())
    {
        auto* sub = app.add_subcommand(command.name, command.description);
        sub->add_option("--count", wish.settings.count,
                        "How many; the run's own number, in brackets above, if it is not given");
        sub->add_option("--seed", wish.settings.seed,
                        "Of all that is random; printed at the start");
        sub->add_option("--processes", wish.settings.processes, "How many there are, where several")
            ->capture_default_str()
            ->check(CLI::Range(2, 60));
        sub->callback([&] { exitCode = command.run(wish); });
    }
}

void addParts(CLI::App& app, Wish& wish, int& exitCode)
{
    for (const auto& command : parts())
    {
        // An empty group hides it from the help.
        auto* sub = app.add_subcommand(command.name)->group("");
        sub->add_option("--folder", wish.place.folder);
        sub->add_option("--bus", wish.place.busAddress);
        sub->add_option("--passphrase", wish.place.passphrase);
        sub->add_option("--seed", wish.settings.seed);
        sub->add_option("--count", wish.settings.count);
        sub->add_option("--first", wish.first);
        sub->add_option("--process", wish.process);
        sub->add_flag("--quiet", wish.isQuiet);
        sub->callback([&] { exitCode = command.run(wish); });
    }
}

}  // namespace

int main(int count, char** arguments)
{
    CLI::App app(description, "tessera-soak");
    app.require_subcommand(1);
    Wish wish;
    wish.settings.seed = std::random_device()();
    int exitCode = 0;
    addRuns(app, wish, exitCode);
    addParts(app, wish, exitCode);
    try
    {
        app.parse(count, arguments);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "tessera-soak: " << error.what() << std::endl;
        return 3;
    }
    return exitCode;
}
