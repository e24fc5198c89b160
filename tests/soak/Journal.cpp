#include "tests/soak/Journal.hpp"

#include <poll.h>
#include <unistd.h>
#include <climits>
#include <stdexcept>
#include <type_traits>

namespace soak
{

static_assert(std::is_trivially_copyable_v<JournalRecord>);
static_assert(sizeof(JournalRecord) <= PIPE_BUF);

void writeRecord(int descriptor, const JournalRecord& record)
{
    if (write(descriptor, &record, sizeof record) != sizeof record)
        throw std::runtime_error("the pipe of the journal is broken");
}

std::optional<JournalRecord> JournalReader::next(int milliseconds)
{
    pollfd waiting{.fd = descriptor_, .events = POLLIN, .revents = 0};
    JournalRecord record;
    if (poll(&waiting, 1, milliseconds) != 1 ||
        read(descriptor_, &record, sizeof record) != sizeof record)
        return std::nullopt;
    return record;
}

}  // namespace soak
