#pragma once

#include "Platform/Security/SecretBytes.hpp"
#include "Platform/Security/SecretService/GLibThread.hpp"
#include "Platform/Security/SecretService/SecretLibrary.hpp"

#include <optional>
#include <string>
#include <vector>

namespace platform
{

/// A method call on the service's bus name.
struct SecretCall
{
    std::string path;
    const char* interface;
    const char* method;
    /// The arguments as a tuple, or nothing.
    GHandle<GVariant> arguments;
    /// The type that the answer must have.
    const char* answerType;
    /// Whether it changes something, so that an answer that is lost leaves that open.
    bool changes = false;
};

/// The one connection of a store: a bus connection of its own (the shared one of GLib could end the
/// process with the bus), the unique bus name of the running service, and one encrypted session.
/// Opened when it is needed and after it was lost. Lives on the GLib thread alone.
///
/// Every function throws `SecretServiceFailure`. Calls are ended by `GWork::cancellable` and have
/// no time limit of their own.
class SecretConnection
{
public:
    SecretConnection(const SecretLibrary& library, std::string busAddress);

    /// Opens what is not open. A service that offers no encrypted session is refused.
    void open(const GWork& at);

    /// Drops everything, so that the next `open` begins anew.
    void close() noexcept;

    /// The answer, or nothing where the object does not exist.
    std::optional<GHandle<GVariant>> call(SecretCall call, const GWork& at);

    /// Sends all calls at once, in their order, and waits for all answers. The first failure that
    /// is not an object that does not exist is thrown after the last answer; `cancelled` where any
    /// of the calls was given up.
    std::vector<std::optional<GHandle<GVariant>>> callAll(std::vector<SecretCall> calls,
                                                          const GWork& at);

    /// Asks the bus itself for an answer, so that all that was sent before has been handed to the
    /// service, and nothing that others send later can come before it. Has no time limit.
    void settle(const GWork& at) noexcept;

    /// A text as the service takes it, encrypted for the session.
    GHandle<GVariant> encrypted(const SecretBytes& text) const;

    /// The text of an answer; what cannot be decrypted is nonsense.
    SecretBytes decrypted(GVariant* secret) const;

    /// The path of the session, for calls that need one.
    const char* sessionPath() const;

    const SecretLibrary& library() const noexcept { return library_; }
    GDBusConnection* bus() const noexcept { return bus_.get(); }
    const std::string& owner() const noexcept { return owner_; }

private:
    void connect(const GWork& at);
    bool findRunning(const GWork& at);
    void findOwner(const GWork& at);
    void openSession(const GWork& at);
    GHandle<GVariant> callBus(const char* method, GVariant* arguments, const char* answerType,
                              const GWork& at);

    const SecretLibrary& library_;
    const std::string busAddress_;
    GHandle<GDBusConnection> bus_;
    std::string owner_;
    GHandle<SecretService> service_;
};

}  // namespace platform
