#pragma once

#include "Platform/Networking/URLSession.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <future>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

inline platform::URLRequest requestTo(std::string_view address, std::string method = "GET")
{
    return {.url = platform::URL::parse(address).value(), .method = std::move(method)};
}

inline platform::SecretBytes bytesOf(std::string_view text)
{
    return platform::SecretBytes(std::as_bytes(std::span(text)));
}

inline std::string textOf(const platform::SecretBytes& bytes)
{
    return std::string(platform::SecretString(bytes).view());
}

/// The case of the error, or "" when there is none.
inline std::string errorOf(const platform::URLCompletion& completion)
{
    try
    {
        if (completion.error)
            std::rethrow_exception(completion.error);
        return "";
    }
    catch (const std::exception& error)
    {
        return error.what();
    }
}

/// A transfer that was started, and its end.
class Call
{
public:
    Call(platform::URLSession& session, platform::URLRequest request)
    {
        task = session.dataTask(std::move(request), completion());
        task->resume();
    }

    /// An upload of the file.
    Call(platform::URLSession& session, platform::URLRequest request, std::filesystem::path file)
    {
        task = session.uploadTask(std::move(request), std::move(file), completion());
        task->resume();
    }

    platform::URLCompletion wait()
    {
        if (endsWithin(std::chrono::seconds(20)))
            return end_.get();
        ADD_FAILURE() << "the transfer does not end";
        std::abort();
    }

    bool endsWithin(std::chrono::milliseconds limit)
    {
        return end_.wait_for(limit) == std::future_status::ready;
    }

    std::shared_ptr<platform::URLSessionTask> task;

private:
    platform::URLSession::Completion completion()
    {
        auto promise = std::make_shared<std::promise<platform::URLCompletion>>();
        end_ = promise->get_future();
        return [promise](platform::URLCompletion ended) { promise->set_value(std::move(ended)); };
    }

    std::future<platform::URLCompletion> end_;
};

/// Sends the request and waits for its end.
inline platform::URLCompletion call(platform::URLSession& session, platform::URLRequest request)
{
    return Call(session, std::move(request)).wait();
}
