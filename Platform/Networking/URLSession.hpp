#pragma once

#include "Platform/Networking/Progress.hpp"
#include "Platform/Networking/URLRequest.hpp"
#include "Platform/Networking/URLResponse.hpp"
#include "Platform/Security/SecretBytes.hpp"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace platform
{

/// How a transfer ended: with a body (it may be empty) and a response, or with an error alone.
struct URLCompletion
{
    std::optional<SecretBytes> body = {};
    std::optional<URLResponse> response = {};
    std::exception_ptr error = {};
};

/// One transfer, made by a session. Every function may be called from any thread.
///
/// A running transfer belongs to its session: letting go of the task does not end it. A task that
/// is let go before `resume()` never calls its completion.
class URLSessionTask
{
public:
    virtual ~URLSessionTask();

    /// Starts the transfer. Further calls do nothing.
    virtual void resume() = 0;

    /// Ends the transfer with `CancellationError`, unless it has ended already. Before `resume()`
    /// it makes the later start end that way, and nothing is sent.
    virtual void cancel() = 0;

    /// Body bytes of both directions. The total is what is to be sent until the head of the answer
    /// tells what comes; it is -1 when the answer does not tell, and before an upload has started.
    virtual Progress& progress() = 0;

    /// Lengths of the bodies, without heads. -1: not known (yet).
    virtual std::int64_t countOfBytesExpectedToReceive() const = 0;
    virtual std::int64_t countOfBytesReceived() const = 0;
    virtual std::int64_t countOfBytesExpectedToSend() const = 0;
    virtual std::int64_t countOfBytesSent() const = 0;

protected:
    URLSessionTask() = default;
    URLSessionTask(const URLSessionTask&) = delete;
    URLSessionTask& operator=(const URLSessionTask&) = delete;
};

/// Makes transfers. May be used from any thread.
class URLSession
{
public:
    /// Called once for each task that was resumed, on the session's own thread: it must hand on
    /// what it got and return soon, must not throw, and may start and cancel tasks. It must not be
    /// empty.
    using Completion = std::function<void(URLCompletion)>;

    virtual ~URLSession();

    /// A transfer that is not started yet.
    ///
    /// What its completion may report: `URLError`; `CancellationError`; `std::bad_alloc`;
    /// `std::system_error` when the machine has no thread or descriptor left. A status such as 404
    /// is an answer, not an error.
    virtual std::shared_ptr<URLSessionTask> dataTask(URLRequest request, Completion completion) = 0;

    /// The same with the contents of `file` as the body, which is read while it is sent and never
    /// held as a whole; the request's own body is not used. The file is opened when the transfer
    /// starts, and what it holds then is sent: one that cannot be read, is no regular file, or gets
    /// shorter meanwhile ends the transfer with `URLError` (`unreadableFile`).
    ///
    /// A server may answer before it has taken everything, and the transfer then ends with that
    /// answer: `countOfBytesSent` tells how much went out. One that also resets the connection may
    /// be seen as `connectionLost`, when its answer is overtaken. A HEAD request sends no body.
    virtual std::shared_ptr<URLSessionTask> uploadTask(URLRequest request,
                                                       std::filesystem::path file,
                                                       Completion completion) = 0;

protected:
    URLSession() = default;
    URLSession(const URLSession&) = delete;
    URLSession& operator=(const URLSession&) = delete;
};

}  // namespace platform
