#pragma once

#include <map>
#include <mutex>
#include <string>

typedef struct _GDBusConnection GDBusConnection;
typedef struct _GDBusMessage GDBusMessage;

/// A Secret Service without any sense on a bus where there is no other: answers each method with a
/// text that the test gave, in GVariant's notation. It agrees to encrypted sessions and knows no
/// key, so that nothing that it says can be decrypted.
class NonsenseSecretService
{
public:
    /// By method; by property where the method is "Get", and "OpenSession plain" for a session
    /// without encryption. "!name" is an error of that name, and no
    /// answer is given where the text is empty. What is not in it is an unknown method.
    /// "Completed" is the signal that a prompt is followed by, and "Locked afterwards" what
    /// "Locked" is from then on.
    using Script = std::map<std::string, std::string>;

    explicit NonsenseSecretService(const std::string& busAddress);
    ~NonsenseSecretService();
    NonsenseSecretService(const NonsenseSecretService&) = delete;
    NonsenseSecretService& operator=(const NonsenseSecretService&) = delete;

    void play(Script script);

private:
    static GDBusMessage* filter(GDBusConnection*, GDBusMessage* message, int isIncoming,
                                void* self);
    void answer(GDBusMessage* call);
    /// With the lock held.
    void complete(const char* prompt);

    GDBusConnection* bus_ = nullptr;
    unsigned filter_ = 0;
    std::mutex mutex_;
    Script script_;
};
