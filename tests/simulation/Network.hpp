#pragma once

#include "Platform/Networking/URLSession.hpp"
#include "tests/simulation/Texts.hpp"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace simulation
{

enum class Operation
{
    oneTimeCode,
    signIn,
    info,
    signOut,
    deleteAccount,
    newsletter,
    consent,
    unknown
};

std::string_view nameOf(Operation operation);

/// A request that a host's account has sent.
struct Request
{
    int host = -1;
    Operation operation = Operation::unknown;
    /// Null where there is none; a bearer that the server never issued is `isBearerUnknown`.
    const Text* bearer = nullptr;
    bool isBearerUnknown = false;
    /// Of a sign-in, read from its body: whose address, and which call of the host's.
    int user = -1;
    int call = -1;
    /// Which of the host's changes of session was the latest when it was sent.
    int change = 0;

    /// For the trace.
    std::string description() const;
};

/// A request on its way, until it has been answered.
class Transfer final : public platform::URLSessionTask
{
public:
    Transfer(class Network& network, int host, platform::URLRequest request,
             platform::URLSession::Completion completion);

    const Request& request() const { return read_; }
    Request& request() { return read_; }
    bool isCancelled() const { return cancelled_; }

    void answer(int status, std::string_view body);
    void fail(std::exception_ptr error) { end({{}, {}, error}); }

    void resume() override;
    /// What the caller hears then, the end or an answer that was faster, is a step of its own.
    void cancel() override { cancelled_ = true; }
    platform::Progress& progress() override { return progress_; }
    std::int64_t countOfBytesExpectedToReceive() const override { return -1; }
    std::int64_t countOfBytesReceived() const override { return 0; }
    std::int64_t countOfBytesExpectedToSend() const override { return 0; }
    std::int64_t countOfBytesSent() const override { return 0; }

    std::weak_ptr<Transfer> self;

private:
    void end(platform::URLCompletion completion);

    Network& network_;
    platform::URLRequest request_;
    Request read_;
    platform::URLSession::Completion completion_;
    platform::Progress progress_;
    bool started_ = false;
    bool cancelled_ = false;
};

/// Carries the requests of all hosts; a seed decides which is answered when.
class Network
{
public:
    explicit Network(std::function<void(Request&)> onRequest) : onRequest_(std::move(onRequest)) {}

    /// What the account of `host` sends goes through here.
    std::shared_ptr<platform::URLSession> sessionOf(int host);

    /// Started and not ended, in the order of the starts.
    const std::vector<std::shared_ptr<Transfer>>& open() const { return open_; }

private:
    friend class Transfer;

    const std::function<void(Request&)> onRequest_;
    std::vector<std::shared_ptr<Transfer>> open_;
};

}  // namespace simulation
