#pragma once

#include <poll.h>
#include <sys/types.h>
#include <unistd.h>
#include <csignal>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace soak
{

/// A program as a process of its own, with one end of a socket as its standard input and output.
/// Killed and reaped at the end, if it still runs, and killed when the thread ends that started it.
class Child
{
public:
    static constexpr auto thisProgram = "/proc/self/exe";

    /// The first word is the path of the program. Throws `std::system_error`.
    explicit Child(std::vector<std::string> words);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }

    /// The other end of the socket.
    int channel() const { return channel_; }

    void signal(int number) const { kill(pid_, number); }

    /// Waits for the end and returns what waitpid() said.
    int wait();

private:
    pid_t pid_ = -1;
    int channel_ = -1;
    bool reaped_ = false;
};

/// For messages: "exit code 1", "signal 11".
std::string shownEnd(int waited);

/// Sends it whole or not at all, however this process ends. False when nobody listens any more.
template <class Record>
bool tell(int channel, const Record& record)
{
    static_assert(std::is_trivially_copyable_v<Record>);
    return write(channel, &record, sizeof record) == sizeof record;
}

/// The next record; nothing when none came within the time (for ever by default), or the other side
/// has ended.
template <class Record>
std::optional<Record> hear(int channel, int milliseconds = -1)
{
    pollfd waiting{.fd = channel, .events = POLLIN, .revents = 0};
    Record record{};
    if (poll(&waiting, 1, milliseconds) != 1 ||
        read(channel, &record, sizeof record) != sizeof record)
        return std::nullopt;
    return record;
}

}  // namespace soak
