#pragma once

#include <optional>
#include <string>

typedef struct _SecretService SecretService;

/// The desktop's keyring by hand: the synchronous functions of libsecret, of which each is one call
/// on the bus, over one encrypted session and the bus of the environment. An operation makes the
/// calls that a store makes, at once where a store does, and knows as much when it ends; but
/// nothing keeps other writers out meanwhile, and no wait has a limit of its own. For one thread.
/// Throws `std::runtime_error`.
class BareSecretService
{
public:
    explicit BareSecretService(std::string service);
    ~BareSecretService();

    /// Looks whether the item is there, as a delete that is only staged does; looks again, and
    /// makes or replaces it.
    void set(const std::string& account, const std::string& value);

    std::string get(const std::string& account);
    bool exists(const std::string& account);
    void remove(const std::string& account);

    /// What libsecret offers for the same in one function, with fewer calls: a store that does not
    /// look, a lookup, and a deletion of whatever is found.
    void plainStore(const std::string& account, const std::string& value);
    std::string plainLookup(const std::string& account);
    bool plainSearch(const std::string& account);
    void plainClear(const std::string& account);

private:
    class Attributes;

    std::optional<std::string> search(const Attributes& attributes);
    std::optional<std::string> lookFor(const Attributes& attributes);
    void requireUnlocked(const std::string& itemPath);
    void requireNothingHidden(const Attributes& attributes);
    void create(const std::string& collection, Attributes& attributes, const std::string& value);
    Attributes identity(const std::string& account) const;

    const std::string serviceName_;
    SecretService* service_;
};
