#pragma once

#include "Platform/Networking/CurlURLSession.hpp"
#include "tools/conformance/Verdict.hpp"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace conformance
{

/// The limits that the data files are written for.
constexpr std::chrono::milliseconds callLimit{2000};
constexpr std::size_t bodyLimit = std::size_t{1} << 20;

/// What the requests of a case carry, and what must not get to anybody else.
constexpr std::string_view bearer = "Bearer conformance-credential";

/// How a call ended.
struct Answer
{
    /// Of a response; nothing when the call ended with an error.
    std::optional<int> status = {};
    platform::URLCompletion completion = {};
    /// The class of the error in the words of the data files, such as "timeout".
    std::string error = {};
    std::chrono::milliseconds duration = {};

    std::string_view body() const;
    /// All of it as a text for the report.
    std::string description() const;
};

/// The surroundings of a case that calls a server: an own folder as home and working directory,
/// with a netrc file that has a password for everybody, no proxy, and a file that TLS keys would be
/// written to. For a process of its own, while that has one thread.
class NetworkScene
{
public:
    NetworkScene();
    NetworkScene(const NetworkScene&) = delete;
    NetworkScene& operator=(const NetworkScene&) = delete;
    ~NetworkScene();

    /// Whether anything was stored in all the time.
    bool isUntouched() const;

private:
    std::filesystem::path folder_;
};

/// Makes a call and waits for its end. Without a text for it, there is no Authorization header.
Answer call(platform::CurlURLSession& session, std::string_view address,
            std::string_view method = "GET", std::string_view authorization = bearer);

/// A judge's finding that ends it.
struct Mismatch
{
    std::string expected;
    std::string found;
};

/// Throws `Mismatch` unless the condition holds.
void require(bool condition, std::string_view expected, std::string_view found);

/// Requires what holds for every call: the end in time, and either a response or one error.
void requireOrder(const Answer& answer);

/// The verdict of work that throws `Mismatch`.
template <class Work>
Verdict verdictOf(Work work)
{
    try
    {
        work();
        return Verdict::passed();
    }
    catch (const Mismatch& mismatch)
    {
        return Verdict::failed(mismatch.expected, mismatch.found);
    }
}

}  // namespace conformance
