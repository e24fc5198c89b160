#pragma once

#include <sys/types.h>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace soak
{

/// This program once more, as a process of its own with a subcommand, and a pipe from its standard
/// output. Killed and reaped at the end, if it still runs.
class Child
{
public:
    enum class Input
    {
        none,
        pipe,
    };

    explicit Child(const std::vector<std::string>& arguments, Input input = Input::none);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }
    int output() const { return output_; }

    /// Writes to the child's standard input and closes it. No more than a pipe holds (64 KiB).
    void send(std::span<const std::byte> bytes);

    void signal(int number) const;

    /// Waits for the end and returns what waitpid() said.
    int wait();

private:
    pid_t pid_ = -1;
    int output_ = -1;
    int input_ = -1;
    bool reaped_ = false;
};

/// For messages: "exit code 1", "signal 11".
std::string shownEnd(int waited);

}  // namespace soak
