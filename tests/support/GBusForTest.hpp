#pragma once

#include <map>
#include <string>
#include <vector>

typedef struct _GDBusConnection GDBusConnection;
typedef struct _GVariant GVariant;

/// What a test does on a session bus past the product, with GLib linked directly: other software's
/// items, and conditions that are waited for. Throws `std::runtime_error`. For one thread.
class GBusForTest
{
public:
    using Attributes = std::map<std::string, std::string>;

    explicit GBusForTest(const std::string& address);
    ~GBusForTest();
    GBusForTest(const GBusForTest&) = delete;
    GBusForTest& operator=(const GBusForTest&) = delete;

    /// Until someone owns the name.
    void awaitName(const char* name) const;

    /// Locks every collection.
    void lockAll() const;

    /// Unlocks the default collection without a prompt, by a door that gnome-keyring keeps for
    /// this.
    void unlock(const std::string& password) const;

    /// Makes one more collection, unlocked.
    void makeCollection(const std::string& password) const;

    /// Stores an item in the collection of an alias, as any other software would.
    void store(const std::string& alias, const Attributes& attributes, const std::string& secret,
               bool replacing) const;

    /// The paths of the items that have these attributes, locked or not.
    std::vector<std::string> find(const Attributes& attributes) const;

    /// Whether there is a default collection, and it is unlocked.
    bool hasUnlockedDefault() const;

private:
    /// A reference that the caller drops.
    GVariant* call(const std::string& path, const char* interface, const char* method,
                   GVariant* arguments) const;
    std::string openPlainSession() const;
    GVariant* plainSecret(const std::string& secret) const;

    GDBusConnection* bus_ = nullptr;
};
