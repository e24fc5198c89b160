#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace accountserver
{

/// A request that the server turns down: the HTTP status and the two members of the error body.
/// Thrown where the rule stands, turned into an answer by `Routes` alone.
class Refusal : public std::runtime_error
{
public:
    Refusal(int status, std::string code, const std::string& message)
        : std::runtime_error(message), status_(status), code_(std::move(code))
    {}

    int status() const { return status_; }
    const std::string& code() const { return code_; }

    /// Headers that go with the answer.
    std::vector<std::pair<std::string, std::string>> headers;

private:
    int status_;
    std::string code_;
};

}  // namespace accountserver
