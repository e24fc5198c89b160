#pragma once

#include "tests/support/TemporaryFolder.hpp"

#include <sys/types.h>
#include <filesystem>
#include <string>

/// A session bus of its own with a real gnome-keyring on it, in folders of its own, unlocked and
/// empty: nothing of the user's desktop is touched. Both are child processes that end with this
/// object, or with the test program. Throws `std::runtime_error` where one of them does not come
/// up.
class PrivateSecretService
{
public:
    enum class Start
    {
        /// Bus and keyring, its default collection unlocked.
        unlocked,
        /// The bus alone.
        busAlone,
    };

    explicit PrivateSecretService(Start start = Start::unlocked);
    ~PrivateSecretService();
    PrivateSecretService(const PrivateSecretService&) = delete;
    PrivateSecretService& operator=(const PrivateSecretService&) = delete;

    /// Whether the programs are installed; a test without them is to be skipped.
    static bool isInstalled();

    const std::string& busAddress() const { return busAddress_; }
    /// For the lock between writers.
    std::filesystem::path lockFolder() const { return folder_.path() / "lock"; }
    pid_t daemonPid() const { return daemon_; }
    pid_t busPid() const { return bus_; }

    /// Kills the keyring with SIGKILL and waits for its end.
    void killDaemon();

    /// Starts the keyring, over what the one before has stored, and waits until it is unlocked.
    void startDaemon();

    void restart()
    {
        killDaemon();
        startDaemon();
    }

    void killBus();

    /// A new bus at the same address, without a keyring.
    void startBus();

    /// Locks all collections, through the bus.
    void lock();

    /// Unlocks the default collection without a prompt.
    void unlock();

private:
    bool startDaemonOnce();

    TemporaryFolder folder_;
    std::string busAddress_;
    pid_t bus_ = -1;
    pid_t daemon_ = -1;
};
