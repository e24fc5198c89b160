#pragma once

#include "Platform/Concurrency/Awaitable.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform
{

/// What somebody else has changed.
struct ExternalKeyValueChange
{
    /// The keys of the entries that were written, each once. Absent where the store cannot tell.
    std::optional<std::vector<std::string>> changedKeys;
};

/// Small public values that all programs of the user share, and news of their change. Nothing
/// secret belongs in it.
///
/// Whoever takes part writes and is told of what others write: other programs, and other
/// participants of the same process. Nobody is told of what was there when they joined.
class UbiquitousKeyValueStore
{
public:
    /// Called on the executor that was given at joining. Changes that wait to be told are merged
    /// into one call.
    using Handler = std::function<void(const ExternalKeyValueChange&)>;

    /// One who takes part, until it is destroyed, which happens where its handler is called; the
    /// handler is not called any more then. Its members do not throw. For one thread at a time.
    class Participant
    {
    public:
        virtual ~Participant() = default;

        /// The value that was last written by anybody; nothing where none was, or where it cannot
        /// be read.
        virtual std::optional<std::string> string(std::string_view forKey) const = 0;

        /// Keeps a value of at most 1 KiB. Others see it after `synchronize`.
        virtual void setString(std::string_view value, std::string_view forKey) = 0;

        /// Hands over what was set, at once. False when it could not be; it is kept and tried again
        /// at the next call.
        virtual bool synchronize() = 0;
    };

    virtual ~UbiquitousKeyValueStore() = default;

    virtual std::unique_ptr<Participant> join(const Executor& executor, Handler handler) = 0;
};

}  // namespace platform
