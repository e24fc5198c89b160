#pragma once

#include "Platform/Basics/LocalizedError.hpp"

namespace platform
{

/// The one error of work that was cancelled, whoever cancelled it and wherever it was.
class CancellationError final : public LocalizedError
{
public:
    const char* what() const noexcept override { return "CancellationError"; }
    std::string errorDescription() const override { return "The operation was cancelled."; }

    bool operator==(const CancellationError&) const noexcept { return true; }
};

}  // namespace platform
