#pragma once

#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Concurrency/WorkerThread.hpp"
#include "Platform/KeyValueStore/FileKeyValueStore.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <boost/asio/post.hpp>

#include <future>
#include <mutex>
#include <string>
#include <vector>

/// A folder, a thread that watches it, a loop that is told, and what diagnostics came.
struct KeyValueHost : testing::Test
{
    struct Listener
    {
        std::unique_ptr<platform::UbiquitousKeyValueStore::Participant> participant;
        std::vector<std::string> heard;

        bool set(std::string_view value, std::string_view key)
        {
            participant->setString(value, key);
            return participant->synchronize();
        }
    };

    std::shared_ptr<Listener> join(platform::FileKeyValueStore& where)
    {
        auto listener = std::make_shared<Listener>();
        listener->participant = where.join(executorOf(loop),
                                           [heard = std::weak_ptr(listener)](const auto& change)
                                           {
                                               auto& all = heard.lock()->heard;
                                               all.insert(all.end(), change.changedKeys->begin(),
                                                          change.changedKeys->end());
                                           });
        return listener;
    }

    platform::FileKeyValueStore::Configuration configuration()
    {
        return {.folder = folder,
                .diagnostics = [this](const platform::Diagnostic& told)
                {
                    const std::lock_guard lock(mutex);
                    diagnostics.push_back(told.cause + " -> " + told.nextStep);
                }};
    }

    /// What has been told since the last call.
    std::vector<std::string> told()
    {
        const std::lock_guard lock(mutex);
        return std::exchange(diagnostics, {});
    }

    void waitFor(const Listener& listener, std::string_view key)
    {
        loop->runUntil([&] { return std::ranges::count(listener.heard, key) > 0; });
    }

    /// Nothing is read of what the kernel has to tell while this lives.
    struct Stop
    {
        explicit Stop(platform::WorkerThread& worker)
        {
            boost::asio::post(worker.executor(),
                              [this, go = release.get_future().share()]
                              {
                                  stopped.set_value();
                                  go.wait();
                              });
            stopped.get_future().wait();
        }
        ~Stop() { release.set_value(); }
        std::promise<void> stopped, release;
    };

    TemporaryFolder home;
    const std::filesystem::path folder = home.path() / "state/shared";
    std::mutex mutex;
    std::vector<std::string> diagnostics;
    std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
    platform::WorkerThread worker;
    platform::FileKeyValueStore store{worker.executor(), configuration()};
};
