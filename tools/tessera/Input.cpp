#include "tools/tessera/Input.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "tools/shared/Terminal.hpp"
#include "tools/tessera/Failure.hpp"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace commandline
{
namespace
{

using platform::SecretString;

/// Keeps what is typed off the screen for as long as it lives.
class HiddenTyping
{
public:
    HiddenTyping()
    {
        changed_ = ::tcgetattr(STDIN_FILENO, &before_) == 0;
        auto hidden = before_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        hidden.c_lflag |= ECHONL;
        // Not "flush": what was typed ahead of the question counts.
        changed_ = changed_ && ::tcsetattr(STDIN_FILENO, TCSADRAIN, &hidden) == 0;
    }
    ~HiddenTyping()
    {
        if (changed_)
            ::tcsetattr(STDIN_FILENO, TCSADRAIN, &before_);
    }
    HiddenTyping(const HiddenTyping&) = delete;
    HiddenTyping& operator=(const HiddenTyping&) = delete;

private:
    termios before_{};
    bool changed_ = false;
};

void print(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

/// Appends what can be read now, up to `most` bytes; false at the end of the input.
bool readMore(SecretString& text, int descriptor, std::size_t most, const Interrupts& interrupts,
              const std::stop_token& ended = {})
{
    interrupts.waitForInput(descriptor, ended);
    platform::SecretBytes piece;
    piece.resize(most);
    const auto size = ::read(descriptor, piece.mutableView().data(), piece.size());
    if (size < 0 && errno != EINTR && errno != EAGAIN)
        throw std::system_error(errno, std::generic_category(), "input");
    if (size > 0)
        text.append(
            {reinterpret_cast<const char*>(piece.view().data()), static_cast<std::size_t>(size)});
    return size != 0;
}

constexpr std::size_t pieceSize = 4096;

SecretString readLine(const Interrupts& interrupts, const std::stop_token& ended)
{
    SecretString text;
    while (text.view().find('\n') == std::string_view::npos)
        if (!readMore(text, STDIN_FILENO, pieceSize, interrupts, ended))
            throw Failure({ExitCode::declined, "noAnswer", "The question was not answered.",
                           "Run the command again and answer it."});
    return SecretString(text.view().substr(0, text.view().find('\n')));
}

}  // namespace

SecretString ask(std::string_view question, const Interrupts& interrupts,
                 const std::stop_token& ended)
{
    print(question);
    try
    {
        return readLine(interrupts, ended);
    }
    catch (const platform::CancellationError&)
    {
        print("\n");
        throw;
    }
}

SecretString askSecretly(std::string_view question, const Interrupts& interrupts,
                         const std::stop_token& ended)
{
    const HiddenTyping hidden;
    return ask(question, interrupts, ended);
}

std::optional<SecretString> readLineFrom(int descriptor, const Interrupts& interrupts)
{
    constexpr std::size_t longest = 64 * 1024;
    SecretString text;
    while (text.size() < longest && !text.view().ends_with('\n'))
        if (!readMore(text, descriptor, 1, interrupts))
            break;
    if (text.empty())
        return std::nullopt;
    return SecretString(text.view().substr(0, text.view().find('\n')));
}

SecretString readInput(std::size_t limit, const Interrupts& interrupts)
{
    SecretString text;
    try
    {
        while (text.size() <= limit && readMore(text, STDIN_FILENO, pieceSize, interrupts))
            ;
    }
    catch (const std::system_error& error)
    {
        throw Failure({ExitCode::usage, "unreadableInput",
                       "Standard input cannot be read (" + error.code().message() + ").",
                       "Check what it was redirected to."});
    }
    return text;
}

}  // namespace commandline
