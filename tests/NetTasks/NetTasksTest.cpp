#include "NetTasks/AsyncURLSessionDataTask.hpp"
#include "NetTasks/HTTPMethod.hpp"
#include "NetTasks/SessionExtension.hpp"
#include "Platform/Concurrency/CancellationError.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "tests/NetTasks/TransferTest.hpp"
#include "tests/support/ManualClock.hpp"

#include <gtest/gtest.h>
#include <boost/describe/class.hpp>

using namespace nettasks;
using platform::Awaitable;
using platform::Task;
using tessera::AccountRemoteError;

namespace
{

/// A record with a date in the format of responses.
struct Event
{
    platform::Date at;
    bool operator==(const Event&) const = default;
};
BOOST_DESCRIBE_STRUCT(Event, (), (at))

struct NetTasks : TransferTest
{
    /// Runs a check against one answer; gives the error's name, or nothing when it was accepted.
    std::string checked(std::optional<int> status, std::string_view body)
    {
        auto call = started(checkResponse<AccountRemoteError>(session, request()));
        session->started.back()->answer(status, body);
        try
        {
            ended(call);
            return "";
        }
        catch (const platform::LocalizedError& error)
        {
            lastDescription = error.errorDescription();
            return error.what();
        }
    }

    std::string lastDescription;
};

}  // namespace

TEST_F(NetTasks, ExactlyTheFiveStatusesAreAccepted)
{
    const std::string mismatch = "AsyncURLSessionDataTaskDecodingError.errorTypeMismatch";
    for (const int status : {200, 201, 202, 203, 204})
        EXPECT_EQ(checked(status, ""), "") << status;
    for (const int status : {-1, 0, 100, 199, 205, 206, 226, 301, 302, 304, 400, 404, 500, 599})
    {
        EXPECT_EQ(checked(status, ""), mismatch) << status;
        EXPECT_EQ(lastDescription, "") << status;
    }
    EXPECT_EQ(checked(std::nullopt, ""), mismatch);
}

TEST_F(NetTasks, ARejectedBodyBecomesTheCallersErrorOrItsText)
{
    const std::string mismatch = "AsyncURLSessionDataTaskDecodingError.errorTypeMismatch";
    EXPECT_EQ(checked(401, R"({"code":"unauthorized","message":"Go away"})"),
              "AccountRemoteError.unauthorized");
    EXPECT_EQ(lastDescription, "Go away");
    EXPECT_EQ(checked(500, R"({"code":"unauthorized"})"), mismatch);
    EXPECT_EQ(checked(502, "<html>\xF0\x9F bad\xFF</html>"), mismatch);
    EXPECT_EQ(lastDescription, "<html>\uFFFD bad\uFFFD</html>");

    std::string longest;
    for (int i = 0; i < 500; ++i)
        longest += "e\u0301";
    EXPECT_EQ(checked(500, longest), mismatch);
    EXPECT_EQ(lastDescription, longest);
    EXPECT_EQ(checked(500, longest + "!"), mismatch);
    EXPECT_EQ(lastDescription, longest + "…");
}

TEST_F(NetTasks, AcceptedBodiesAreDecodedWithTheResponseDateFormat)
{
    const auto decoding = [&](std::string_view body)
    {
        auto call = started(decodeData<Event, AccountRemoteError>(session, request()));
        session->started.back()->answer(200, body);
        return ended(call);
    };

    EXPECT_EQ(decoding(R"({"at":"2026-10-17T12:34:56.789+0200"})"), (Event{{1792233296.789}}));
    EXPECT_THROW(decoding(R"({"at":1792233296})"), platform::DecodingError);
    EXPECT_THROW(decoding(""), platform::DecodingError);
}

TEST_F(NetTasks, ErrorsOfTheTransferComeThroughUnchanged)
{
    auto call = started(checkResponse<AccountRemoteError>(session, request()));
    session->started.back()->fail(std::make_exception_ptr(std::runtime_error("cable")));

    EXPECT_THROW(ended(call), std::runtime_error);
}

TEST_F(NetTasks, CancellingTheCallerCancelsTheTransfer)
{
    auto waiting = started(checkResponse<AccountRemoteError>(session, request()));
    ASSERT_EQ(session->started.size(), 1u);
    waiting.cancel();
    loop->runReady();
    EXPECT_TRUE(session->started.back()->ended());
    EXPECT_THROW(ended(waiting), platform::CancellationError);
}

TEST_F(NetTasks, ACallerThatWasCancelledBeforeSendsNothing)
{
    auto clock = std::make_shared<ManualClock>();
    auto cancelledFirst = [](std::shared_ptr<ManualClock> time,
                             Awaitable<void> call) -> Awaitable<void>
    {
        auto wait = time->sleep(1);
        auto waited = co_await platform::detail::outcomeOf<void>(std::move(wait));
        EXPECT_FALSE(waited.succeeded());
        co_await std::move(call);
    };
    auto decoding = [](std::shared_ptr<ScriptedURLSession> with) -> Awaitable<void>
    {
        auto value = co_await decodeData<Event, AccountRemoteError>(with, request());
        EXPECT_EQ(value, Event());
    };
    for (const bool decodes : {false, true})
    {
        auto work =
            decodes ? decoding(session) : checkResponse<AccountRemoteError>(session, request());
        auto call =
            Task<void>::start(platform::executorOf(loop), cancelledFirst(clock, std::move(work)));
        call.cancel();
        EXPECT_THROW(ended(call), platform::CancellationError);
    }
    EXPECT_TRUE(session->started.empty());
}

TEST_F(NetTasks, ATaskReportsItsTransferAndEndsItWhenAsked)
{
    auto task = std::make_shared<AsyncURLSessionDataTask>(request(), session);
    EXPECT_TRUE(session->started.empty()) << "made, but not started";
    auto call = started(task->resume());

    session->started.back()->progress().update(10, 5);
    EXPECT_EQ(task->progress().completedUnitCount(), 5);
    EXPECT_EQ(task->countOfBytesExpectedToReceive(), 4);
    EXPECT_EQ(task->countOfBytesReceived(), 3);
    EXPECT_EQ(task->countOfBytesExpectedToSend(), 2);
    EXPECT_EQ(task->countOfBytesSent(), 1);
    task->cancel();

    EXPECT_THROW(ended(call), platform::CancellationError);
}

TEST_F(NetTasks, LettingGoOfATaskLeavesItsCallerWaitingForTheAnswer)
{
    auto task = std::make_shared<AsyncURLSessionDataTask>(request(), session);
    auto call = started(task->resume());
    task.reset();

    session->started.back()->answer(418, "tea");

    const auto answer = ended(call);
    EXPECT_EQ(platform::httpStatusCode(answer.response), 418);
    EXPECT_EQ(answer.body.size(), 3u);
}

TEST(HTTPMethod, WordsAreLowerCaseInCodeAndUpperCaseOnTheWire)
{
    EXPECT_EQ(httpMethodName(HTTPMethod::delete_), "DELETE");
    EXPECT_EQ(platform::rawValue(HTTPMethod::query), "query");
    EXPECT_EQ(platform::fromRawValue<HTTPMethod>("delete"), HTTPMethod::delete_);
    EXPECT_EQ(platform::fromRawValue<HTTPMethod>("DELETE"), std::nullopt);
    EXPECT_EQ(platform::fromRawValue<HTTPMethod>("head"), std::nullopt);
}
