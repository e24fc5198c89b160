// Another program of the user, for the tests: takes part in the folder of its first argument.
//   echo         answers "ping" with "pong" until its input ends
//   storm COUNT  writes "storm" as often, then "last"

#include "Platform/Concurrency/WorkerThread.hpp"
#include "Platform/KeyValueStore/FileKeyValueStore.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <future>
#include <string>

int main(int, char** arguments)
{
    platform::WorkerThread watcher;
    platform::FileKeyValueStore store(watcher.executor(),
                                      {.folder = arguments[1], .diagnostics = nullptr});
    std::unique_ptr<platform::UbiquitousKeyValueStore::Participant> participant;
    std::promise<void> assigned;
    const bool echoes = std::string(arguments[2]) == "echo";
    participant =
        store.join(watcher.executor(),
                   [&participant, echoes, ready = assigned.get_future().share()](
                       const platform::ExternalKeyValueChange& change)
                   {
                       if (!echoes || std::ranges::count(*change.changedKeys, "ping") == 0)
                           return;
                       ready.wait();
                       participant->setString(participant->string("ping").value_or(""), "pong");
                       participant->synchronize();
                   });
    assigned.set_value();
    char joined = '\n';
    if (::write(STDOUT_FILENO, &joined, 1) != 1)
        return 1;
    while (echoes)
    {
        // The participant belongs to the other thread.
        if (::read(STDIN_FILENO, &joined, 1) <= 0)
            std::_Exit(0);
    }
    for (long count = std::atol(arguments[3]); count > 0; --count)
    {
        participant->setString(std::string(1024, count % 2 == 0 ? 'a' : 'b'), "storm");
        participant->synchronize();
    }
    participant->setString("", "last");
    participant->synchronize();
    std::_Exit(0);
}
