#pragma once

#include "tools/account-server/Http.hpp"
#include "tools/account-server/Tokens.hpp"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace accountserver
{

/// Something that goes wrong on purpose with the requests to one path.
struct Fault
{
    std::string path;              ///< "*": every path
    std::string kind;              ///< as the control interface names it
    std::optional<int> remaining;  ///< absent: until cleared

    std::chrono::milliseconds delay{0};  ///< before anything else
    /// Sent instead of the operation, which is then not carried out.
    std::optional<Response> response;
    Delivery delivery;
    TokenFault tokens = TokenFault::none;
};

/// The faults that are set, in the order in which they came.
class Faults
{
public:
    void add(Fault fault) { faults_.push_back(std::move(fault)); }
    /// The first fault for the path, counted down.
    std::optional<Fault> take(const std::string& path);
    /// An empty path clears all. Returns how many were cleared.
    std::size_t clear(const std::string& path);
    const std::vector<Fault>& all() const { return faults_; }

private:
    std::vector<Fault> faults_;
};

}  // namespace accountserver
