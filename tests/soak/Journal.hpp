#pragma once

#include "tests/soak/Step.hpp"

#include <deque>
#include <optional>

namespace soak
{

/// What a writer tells through its pipe, before each step and after it. Shorter than PIPE_BUF, so a
/// record arrives whole or not at all, however the writer ends.
struct JournalRecord
{
    Step step;
    bool ended = false;
    std::int32_t status = 0;
};

void writeRecord(int descriptor, const JournalRecord& record);

/// The other end of the pipe.
class JournalReader
{
public:
    explicit JournalReader(int descriptor) : descriptor_(descriptor) {}

    /// The next record; nothing when none came within the time, or the writer has ended.
    std::optional<JournalRecord> next(int milliseconds);

private:
    const int descriptor_;
};

}  // namespace soak
