#pragma once

#include "Platform/Networking/URLSession.hpp"

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A session without a network: a test sees the requests that were started and answers them.
/// For one thread, or for tests that hand over between threads by themselves.
class ScriptedURLSession final : public platform::URLSession
{
public:
    /// A started transfer that has not ended. It may outlive everything else.
    class Transfer;

    std::shared_ptr<platform::URLSessionTask> dataTask(platform::URLRequest request,
                                                       Completion completion) override;

    /// Nothing reads the file; it stands beside the request.
    std::shared_ptr<platform::URLSessionTask> uploadTask(platform::URLRequest request,
                                                         std::filesystem::path file,
                                                         Completion completion) override;

    /// The transfers that were started, in order; the ended ones stay.
    std::vector<std::shared_ptr<Transfer>> started;
};

class ScriptedURLSession::Transfer final : public platform::URLSessionTask
{
public:
    Transfer(ScriptedURLSession& session, platform::URLRequest ofRequest, Completion completion)
        : request(std::move(ofRequest)), session_(session), completion_(std::move(completion))
    {}

    const platform::URLRequest request;
    std::filesystem::path file;

    bool ended() const { return !completion_; }

    /// No status: an answer that did not come over HTTP.
    void answer(std::optional<int> status, std::string_view body);
    void fail(std::exception_ptr error) { end({{}, {}, error}); }

    void resume() override;
    void cancel() override;
    platform::Progress& progress() override { return progress_; }
    std::int64_t countOfBytesExpectedToReceive() const override { return 4; }
    std::int64_t countOfBytesReceived() const override { return 3; }
    std::int64_t countOfBytesExpectedToSend() const override { return 2; }
    std::int64_t countOfBytesSent() const override { return 1; }

    std::weak_ptr<Transfer> self;

private:
    void end(platform::URLCompletion completion);

    ScriptedURLSession& session_;
    Completion completion_;
    platform::Progress progress_;
    bool cancelled_ = false;
};
