#include "tests/support/SecretServiceForTest.hpp"

#include "tests/support/GBusForTest.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace
{

constexpr const char* password = "of the test";
constexpr const char* busProgram = "/usr/bin/dbus-daemon";
constexpr const char* keyringProgram = "/usr/bin/gnome-keyring-daemon";

// No service folder: nothing is started but by this fixture.
constexpr const char* busConfiguration = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>ADDRESS</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="max_replies_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
</busconfig>
)";

struct Pipe
{
    std::array<int, 2> ends{-1, -1};

    Pipe()
    {
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
    }
    ~Pipe()
    {
        closeEnd(0);
        closeEnd(1);
    }
    void closeEnd(std::size_t end)
    {
        if (ends[end] >= 0)
            close(ends[end]);
        ends[end] = -1;
    }
};

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> all;
    for (auto& text : texts)
        all.push_back(text.data());
    all.push_back(nullptr);
    return all;
}

pid_t start(std::vector<std::string> arguments, std::vector<std::string> environment, int input,
            int output, const std::filesystem::path& log)
{
    const auto argumentPointers = pointers(arguments);
    const auto environmentPointers = pointers(environment);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no child process");
    if (child > 0)
        return child;
    // Nothing but system calls from here on: the test program may have threads.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(127);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int logFile = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(input >= 0 ? input : open("/dev/null", O_RDONLY), 0);
    dup2(output >= 0 ? output : logFile, 1);
    dup2(logFile, 2);
    execve(argumentPointers.front(), argumentPointers.data(), environmentPointers.data());
    _exit(127);
}

void killAndWait(pid_t& process)
{
    if (process <= 0)
        return;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    process = -1;
}

std::vector<std::string> environmentIn(const std::filesystem::path& folder,
                                       const std::string& busAddress)
{
    return {"PATH=/usr/bin:/bin",
            "LANG=C.UTF-8",
            "HOME=" + (folder / "home").string(),
            "XDG_DATA_HOME=" + (folder / "data").string(),
            "XDG_CONFIG_HOME=" + (folder / "config").string(),
            "XDG_CACHE_HOME=" + (folder / "cache").string(),
            "XDG_RUNTIME_DIR=" + (folder / "run").string(),
            "DBUS_SESSION_BUS_ADDRESS=" + busAddress};
}

}  // namespace

bool PrivateSecretService::isInstalled()
{
    return access(busProgram, X_OK) == 0 && access(keyringProgram, X_OK) == 0;
}

PrivateSecretService::PrivateSecretService(Start start)
{
    for (const char* name : {"home", "data", "config", "cache", "run", "lock"})
        mkdir((folder_.path() / name).c_str(), 0700);
    busAddress_ = "unix:path=" + (folder_.path() / "run" / "bus").string();
    std::string configuration = busConfiguration;
    configuration.replace(configuration.find("ADDRESS"), 7, busAddress_);
    folder_.write("bus.conf", configuration);
    startBus();
    if (start == Start::unlocked)
        startDaemon();
}

PrivateSecretService::~PrivateSecretService()
{
    killAndWait(daemon_);
    killAndWait(bus_);
}

void PrivateSecretService::startBus()
{
    std::filesystem::remove(folder_.path() / "run" / "bus");
    Pipe ready;
    bus_ = start({busProgram, "--config-file=" + (folder_.path() / "bus.conf").string(), "--nofork",
                  "--nopidfile", "--print-address=1"},
                 environmentIn(folder_.path(), busAddress_), -1, ready.ends[1],
                 folder_.path() / "log");
    ready.closeEnd(1);
    char character = 0;
    if (read(ready.ends[0], &character, 1) != 1)
        throw std::runtime_error("the bus did not start");
}

void PrivateSecretService::killBus()
{
    killAndWait(bus_);
}

void PrivateSecretService::startDaemon()
{
    // Once in some ten thousand starts gnome-keyring's default alias leads nowhere until it is
    // started anew; that is not what a test is about.
    for (int attempt = 0; !startDaemonOnce(); ++attempt)
    {
        killDaemon();
        if (attempt == 2)
            throw std::runtime_error("the keyring has no default collection that is unlocked");
    }
}

bool PrivateSecretService::startDaemonOnce()
{
    Pipe input;
    daemon_ = start({keyringProgram, "--foreground", "--unlock", "--components=secrets"},
                    environmentIn(folder_.path(), busAddress_), input.ends[0], -1,
                    folder_.path() / "log");
    if (write(input.ends[1], password, std::string_view(password).size()) < 0)
        throw std::runtime_error("the keyring takes no password");
    input.closeEnd(1);
    const GBusForTest bus(busAddress_);
    bus.awaitName("org.freedesktop.secrets");
    // It unlocks before it takes the name.
    return bus.hasUnlockedDefault();
}

void PrivateSecretService::killDaemon()
{
    killAndWait(daemon_);
}

void PrivateSecretService::lock()
{
    GBusForTest(busAddress_).lockAll();
}

void PrivateSecretService::unlock()
{
    GBusForTest(busAddress_).unlock(password);
}
