#include "NetTasks/AsyncURLSessionUploadTask.hpp"

#include "NetTasks/SessionExtension.hpp"
#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Networking/CurlURLSession.hpp"
#include "Platform/Networking/URLError.hpp"
#include "tests/NetTasks/TransferTest.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tools/scripted-server/ScriptedServer.hpp"

#include <fstream>

using namespace nettasks;
namespace fs = std::filesystem;

namespace
{

using UploadTask = TransferTest;

/// Retries what the server does not answer with 2xx, without waiting.
struct Impatient final : RetryPolicy
{
    double baseDelay() const override { return 0; }
    int maximumRetries() const override { return 2; }
    bool shouldRetry(const platform::SecretBytes&,
                     const platform::URLResponse& response) const override
    {
        return platform::httpStatusCode(response) >= 300;
    }
};

}  // namespace

TEST_F(UploadTask, RemovesTheEntryThatItWasToldToWhateverTheOutcome)
{
    const TemporaryFolder folder;
    const auto file = folder.path() / "file";
    const auto link = folder.path() / "link";
    const auto inner = folder.path() / "folder";
    const auto upload = [&](const fs::path& what, bool deletes, auto end)
    {
        std::ofstream(file) << "text";
        if (!is_symlink(link))
            fs::create_symlink(file, link);
        fs::create_directory(inner);
        auto task = asyncUploadTask(session, request(), what, deletes);
        auto call = started(task->resume());
        EXPECT_EQ(session->started.back()->file, what);
        end(call);
        loop->runReady();
        EXPECT_TRUE(session->started.back()->ended());
    };
    const auto answers = [&](auto&) { session->started.back()->answer(500, ""); };
    const auto fails = [&](auto&)
    { session->started.back()->fail(std::make_exception_ptr(std::runtime_error("cable"))); };
    const auto isCancelled = [&](auto& call) { call.cancel(); };

    upload(file, false, answers);
    EXPECT_TRUE(exists(file));
    upload(file, true, answers);
    EXPECT_FALSE(exists(file));
    upload(file, true, fails);
    EXPECT_FALSE(exists(file));
    upload(file, true, isCancelled);
    EXPECT_FALSE(exists(file));
    upload(link, true, answers);
    EXPECT_FALSE(is_symlink(link));
    EXPECT_TRUE(exists(file)) << "what the link led to is not ours";
    upload(inner, true, answers);
    EXPECT_TRUE(exists(inner));

    asyncUploadTask(session, request(), file, true).reset();
    EXPECT_TRUE(exists(file)) << "never started";
}

TEST_F(UploadTask, ASecondAttemptFailsWhenTheFirstOneDeletedTheFile)
{
    const ScriptedServer server(
        ScriptedServer::answering("HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n"));
    const auto curl = std::make_shared<platform::CurlURLSession>();
    const TemporaryFolder folder;
    const auto file = folder.path() / "file";
    auto put = request();
    put.url = platform::URL::parse(server.address()).value();
    put.method = "PUT";
    for (const bool deletes : {false, true})
    {
        std::ofstream(file) << "text";
        auto task = asyncUploadTask(curl, put, file, deletes, std::make_shared<Impatient>());
        auto call = started(task->resume());
        if (deletes)
            EXPECT_THROW(ended(call), platform::URLError);
        else
            EXPECT_EQ(status(call), 503);
    }
    EXPECT_EQ(server.requests().size(), 4u) << "three attempts with the file, one that deleted it";
}
