#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace accountserver
{

struct Account
{
    std::int64_t id = 0;
    std::string user;
    std::string uuid;
    std::optional<std::string> email;  ///< as first written; absent: an anonymous account
    std::string acceptedRevision;      ///< empty: nothing accepted yet
};

struct Session
{
    std::string id;
    Account account;
    double signedInAt = 0;
};

struct Code
{
    std::string address;
    std::string digits;
    double expires = 0;
    int wrongTries = 0;
};

/// Everything that outlives the process, in one SQLite database. It knows no rules: what may be
/// done to an account is decided in `Accounts`.
///
/// An `address` is an e-mail address in the form that is compared (see `comparable`). Times are
/// seconds since 1970. Used on one thread. Throws `Failure` when the database cannot be opened or
/// written, or was written by a newer server.
class Store
{
public:
    explicit Store(const std::filesystem::path& file);
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    ~Store();

    /// All or nothing: rolled back unless `commit` was reached.
    class Transaction
    {
    public:
        explicit Transaction(Store& store);
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;
        ~Transaction();
        void commit();

    private:
        Store& store_;
        bool open_ = true;
    };

    /// Replaces the code that the address had.
    void putCode(const Code& code);
    std::optional<Code> code(const std::string& address);
    void countWrongTry(const std::string& address);
    void removeCode(const std::string& address);
    void noteMail(const std::string& address, double at);
    struct Mails
    {
        int count = 0;
        double oldest = 0;
    };
    /// The mails to the address between the two times. Notes of other times are dropped, those of
    /// the future too: the clock was moved then.
    Mails mails(const std::string& address, double since, double now);

    Account createAccount(const std::optional<std::string>& email, double now);
    std::optional<Account> accountWithAddress(const std::string& address);
    void setEmail(std::int64_t account, const std::string& email);
    /// With its sessions, consents and subscription.
    void removeAccount(std::int64_t account);

    void addSession(const Session& session, const std::string& tokenDigest);
    std::optional<Session> sessionWithToken(const std::string& tokenDigest);
    void removeSession(const std::string& session);
    /// These two act on one session, or on all of an account; they return how many.
    int removeSessions(const std::string& session, const std::string& user);
    int ageSessions(const std::string& session, const std::string& user, double seconds);

    std::string currentTerms();  ///< empty before the first publication
    /// False when the revision was published before.
    bool publishTerms(const std::string& revision, double now);
    void consent(std::int64_t account, const std::string& revision, const std::string& language,
                 double now);
    void subscribe(std::int64_t account, double now);

private:
    struct Database;
    std::unique_ptr<Database> database_;
};

/// The address in lower case: addresses that differ in the case of ASCII letters are one.
std::string comparable(std::string email);

}  // namespace accountserver
