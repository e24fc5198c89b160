#pragma once

#include "NetTasks/AsyncURLSessionTaskProtocol.hpp"
#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Concurrency/Task.hpp"
#include "tests/support/ScriptedURLSession.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

inline platform::URLRequest request()
{
    return {.url = *platform::URL::parse("https://api.example.net/v2/account"),
            .headers = {},
            .body = {}};
}

/// Work on a run loop whose transfers the test answers.
struct TransferTest : testing::Test
{
    std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
    std::shared_ptr<ScriptedURLSession> session = std::make_shared<ScriptedURLSession>();

    template <class T>
    platform::Task<T> started(platform::Awaitable<T> work)
    {
        auto task = platform::Task<T>::start(platform::executorOf(loop), std::move(work));
        loop->runReady();
        return task;
    }

    template <class T>
    T ended(const platform::Task<T>& task)
    {
        return platform::runToEnd(loop, task.value());
    }

    int status(const platform::Task<nettasks::DataAndResponse>& task)
    {
        return platform::httpStatusCode(ended(task).response);
    }
};
