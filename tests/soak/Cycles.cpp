#include "tests/soak/Child.hpp"
#include "tests/soak/CyclesProgram.hpp"
#include "tests/soak/CyclesShared.hpp"
#include "tests/soak/Random.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "Tessera/Model/AccountError.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tools/account-server/Mailer.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <thread>
#include <utility>

namespace soak
{
namespace
{

using namespace std::chrono_literals;
using platform::SecretString;
using tessera::AccountState;

// A call that takes so long hangs. (A server that does not answer is given 60 s; this one answers.)
constexpr auto patience = 30s;
// The last of the looks for a changed token is 7 s after the announcement.
constexpr auto agreementLimit = 10s;

/// What a program does at any moment, by chance.
constexpr std::string_view acts[]{
    "signIn",     "signIn",       "signIn", "signIn",  "refresh", "refresh", "activate", "consent",
    "newsletter", "authenticate", "end",    "signOut", "release", "release", "cancel",   "cancel"};

/// The account server for development as a child of this process, on free ports of loopback and
/// without a limit on codes.
class Server
{
public:
    /// `folder` is its own.
    Server(const std::filesystem::path& program, std::filesystem::path folder)
        : folder_(std::move(folder)),
          child_({program, "--state", folder_, "--port", "0", "--quiet", "--codes-per-hour", "0",
                  "--code-tries", "1000", "--reauthenticate-after", "0"})
    {
        std::string printed;
        while (printed.find("listening on ") == std::string::npos)
        {
            const auto next = hear<char>(child_.channel());
            if (!next)
                throw std::runtime_error("the account server did not start");
            printed += *next;
        }
    }

    std::filesystem::path environmentFile() const { return folder_ / "environment.json"; }

    /// The code of the newest mail to the address; its mails are removed.
    std::string takeCode(const std::string& email) const
    {
        const auto code = accountserver::newestCode(folder_, email);
        if (!code)
            throw std::runtime_error("no code was mailed");
        for (const auto& entry : std::filesystem::directory_iterator(folder_ / "mailbox"))
            if (entry.path().filename().string().find(email) != std::string::npos)
                std::filesystem::remove(entry.path());
        return *code;
    }

private:
    const std::filesystem::path folder_;
    const Child child_;
};

/// Whether a call may end so while another program, a cancellation or a release is at work.
bool mayEndSo(const std::exception_ptr& error)
{
    try
    {
        std::rethrow_exception(error);
    }
    catch (const std::exception& thrown)
    {
        const auto* own = dynamic_cast<const tessera::AccountError*>(&thrown);
        return dynamic_cast<const platform::CancellationError*>(&thrown) ||
               dynamic_cast<const tessera::AccountRemoteError*>(&thrown) ||
               (own && own->errorCase() == tessera::AccountError::accountRequired);
    }
}

/// Sign-in, refresh and sign-out by the two programs of one user, over and over, in real time. Some
/// cycles are calm, and everything in them must succeed; in the others calls are cancelled and
/// accounts released at any moment. After each cycle every call has ended once, and both programs
/// agree with the store. What goes wrong is thrown as a `std::runtime_error`.
///
/// The thread that makes it is the main thread of the programs. Most of the time they wait for each
/// other, so that several users fit on a machine.
class Cycles
{
public:
    Cycles(Server& server, CyclesShared& shared, const std::filesystem::path& folder,
           std::uint64_t seed)
        : server_(server),
          shared_(shared),
          user_(folder.filename()),
          random_(seed),
          first_(stage_, tools::readEnvironmentFile(server.environmentFile()), "editor", folder),
          second_(stage_, tools::readEnvironmentFile(server.environmentFile()), "example", folder)
    {}

    void run(std::uint64_t count)
    {
        for (std::uint64_t number = 1; number <= count; ++number)
        {
            const bool isCalm = random_.oneIn(3);
            before_ = std::exchange(acts_, isCalm ? "calm" : "");
            const auto during = attempt([&] { isCalm ? calm() : disturbed(); });
            const auto after = attempt([&] { settle(); });
            const auto where = user_ + ", cycle " + std::to_string(number);
            shared_.judged(during.empty() ? after : during,
                           where + " [" + acts_ + "; before that " + before_ + "]");
            if (!shared_.weighsAfter(number))
                continue;
            if (const auto unrested = attempt([&] { weigh(); }); !unrested.empty())
                shared_.judged(unrested, where);
        }
        shared_.add(counts_);
    }

private:
    using Call = std::shared_ptr<CyclesCall>;

    template <class Function>
    static std::string attempt(Function function)
    {
        try
        {
            function();
            return {};
        }
        catch (const std::runtime_error& wrong)
        {
            return wrong.what();
        }
    }

    CyclesProgram& anyProgram() { return random_.oneIn(2) ? first_ : second_; }

    /// Sign-in, refresh and sign-out, each followed by the other program.
    void calm()
    {
        ++counts_.calmCycles;
        auto& chief = anyProgram();
        auto& other = &chief == &first_ ? second_ : first_;
        if (!chief.isSignedOut())
            chief.account().signOut();
        bothReach(&CyclesProgram::isSignedOut, "signed out before the sign-in");
        const auto signIn = beginSignIn(chief);
        if (!signIn)
            throw std::runtime_error("no code could be requested");
        succeed(signIn);
        bothReach(&CyclesProgram::isSignedIn, "signed in");
        // Begun together, so that it meets the refresh with which the other program followed.
        const auto one = stage_.begin("refresh", chief.account().refresh(true), random_.oneIn(4));
        const auto two = stage_.begin("refresh", other.account().refresh(true), random_.oneIn(4));
        succeed(one);
        succeed(two);
        if (random_.oneIn(8))
            succeed(stage_.begin("deleteAccount", chief.account().deleteAccount()));
        else
            chief.account().signOut();
        bothReach(&CyclesProgram::isSignedOut, "signed out");
    }

    void disturbed()
    {
        for (auto left = 3 + random_.below(6); left > 0; --left)
        {
            act(anyProgram());
            const auto pause = random_.below(3);
            const auto& calls = stage_.calls();
            if (pause == 1)
                stage_.runUntil([] { return false; },
                                std::chrono::microseconds(random_.below(4'000)));
            if (pause == 2 && !calls.empty())
                stage_.runUntil([call = calls.back()] { return call->hasEnded(); }, 20ms);
        }
    }

    void act(CyclesProgram& program)
    {
        auto& account = program.account();
        const auto name = acts[random_.below(std::size(acts))];
        acts_ += " " + program.name() + "." + std::string(name);
        const bool elsewhere = random_.oneIn(4);
        if (name == "signIn")
            beginSignIn(program);
        if (name == "refresh")
            stage_.begin("refresh", account.refresh(random_.oneIn(2)), elsewhere);
        if (name == "activate")
            account.applicationDidBecomeActive();
        if (name == "consent")
            stage_.begin("consent", account.consentToTerms("2026-10-01", "en"), elsewhere);
        if (name == "newsletter")
            stage_.begin("newsletter", account.requestNewsletter(), elsewhere);
        if (name == "authenticate")
            if (const auto token = account.state().token())
            {
                account.authenticate(*token);
                authenticates_ = true;
            }
        if (name == "end" && random_.oneIn(4))
            stage_.begin("deleteAccount", account.deleteAccount(), elsewhere);
        else if (name == "end" && random_.oneIn(2))
            account.deauthenticate();
        if (name == "signOut")
            account.signOut();
        if (name == "cancel")
            cancelOne();
        if (name == "release")
        {
            ++counts_.released;
            program.restartAccount();
        }
    }

    /// Null when the code could not be had.
    Call beginSignIn(CyclesProgram& program)
    {
        const auto email = user_ + (random_.oneIn(2) ? "-one@example.org" : "-two@example.org");
        const auto mailed = stage_.begin("requestOneTimeCode",
                                         program.account().requestOneTimeCode(SecretString(email)));
        stage_.runUntil([&] { return mailed->hasEnded(); }, patience);
        if (!mailed->hasSucceeded())
            return nullptr;
        return stage_.begin(
            "signIn",
            program.account().signIn(SecretString(email), SecretString(server_.takeCode(email))),
            random_.oneIn(4));
    }

    void cancelOne()
    {
        std::vector<Call> open;
        for (const auto& call : stage_.calls())
            if (!call->hasEnded())
                open.push_back(call);
        if (open.empty())
            return;
        ++counts_.cancelled;
        open[random_.below(open.size())]->cancel();
    }

    void settle()
    {
        // What `authenticate` has begun ends before a refresh does.
        if (std::exchange(authenticates_, false))
            for (auto* program : programs_)
                stage_.begin("refresh", program->account().refresh(false));
        const auto unended = attempt([&] { awaitCalls(); });
        for (auto* program : programs_)
            program->drain();
        counts_.calls += stage_.calls().size();
        stage_.forgetCalls();
        agree();
        if (!unended.empty())
            throw std::runtime_error(unended);
    }

    void awaitCalls()
    {
        const auto ended = [&]
        { return std::ranges::all_of(stage_.calls(), &CyclesCall::hasEnded, &Call::operator*); };
        stage_.runUntil(ended, patience);
        for (const auto& call : stage_.calls())
            if (call->ends != 1 || (call->error && !mayEndSo(call->error)))
                throw std::runtime_error(call->end());
    }

    void agree()
    {
        const auto begin = std::chrono::steady_clock::now();
        bothReach(nullptr, "in agreement with the store");
        counts_.longestAgreement = std::max(counts_.longestAgreement,
                                            std::chrono::duration_cast<std::chrono::milliseconds>(
                                                std::chrono::steady_clock::now() - begin));
    }

    void succeed(const Call& call)
    {
        stage_.runUntil([&] { return call->hasEnded(); }, patience);
        if (!call->hasSucceeded())
            throw std::runtime_error(call->end());
    }

    /// Until both are in this state, if one is given, and agree with the store.
    void bothReach(bool (CyclesProgram::*state)() const, const char* what)
    {
        const auto reached = [&](const CyclesProgram* program)
        { return (!state || (program->*state)()) && program->inconsistency().empty(); };
        if (stage_.runUntil([&] { return std::ranges::all_of(programs_, reached); },
                            agreementLimit))
            return;
        auto text = std::string("the programs were not both ") + what;
        for (auto* program : programs_)
            text += "; " + program->inconsistency() + " (" + program->shown() + ")";
        throw std::runtime_error(text);
    }

    /// What the users hold when nothing is under way is kept for good.
    void weigh()
    {
        const auto unrested = attempt(
            [&]
            {
                first_.account().signOut();
                bothReach(&CyclesProgram::isSignedOut, "signed out to rest");
                for (auto* program : programs_)
                    succeed(stage_.begin("serverSignOutEnded",
                                         program->account().serverSignOutEnded()));
            });
        stage_.forgetCalls();
        for (auto* program : programs_)
            program->rest();
        shared_.weigh();
        for (auto* program : programs_)
            program->resume();
        if (!unrested.empty())
            throw std::runtime_error(unrested);
    }

    Server& server_;
    CyclesShared& shared_;
    const std::string user_;
    Random random_;
    CyclesStage stage_;
    CyclesProgram first_;
    CyclesProgram second_;
    const std::array<CyclesProgram*, 2> programs_{&first_, &second_};
    CyclesShared::Counts counts_;
    bool authenticates_ = false;
    /// Of this cycle and of the one before it, for messages.
    std::string acts_;
    std::string before_;
};

int runCycles(std::uint64_t count, std::uint64_t seed)
{
    const auto bin = std::filesystem::read_symlink(Child::thisProgram).parent_path();
    // Each waits for its own programs most of the time.
    constexpr unsigned users = 4;
    const auto each = (count + users - 1) / users;
    Report report("cycles", users * each, seed);
    CyclesShared shared(report, users, each);
    // Nothing here judges what was synced.
    if (access("/dev/shm", W_OK) == 0)
        setenv("TMPDIR", "/dev/shm", 0);
    const TemporaryFolder folder;
    Server server(bin / "tessera-account-server", folder.path() / "server");
    std::vector<std::thread> threads;
    for (unsigned user = 0; user < users; ++user)
        threads.emplace_back(
            [&, user]
            {
                const auto own = folder.path() / ("user" + std::to_string(user));
                Cycles(server, shared, own, seed + user).run(each);
            });
    for (auto& thread : threads)
        thread.join();
    return report.close(shared.detail());
}

constexpr auto description =
    "Sign-in, refresh and sign-out by the programs of four users, over and over, against the\n"
    "account server for development. Prints its seed, with which it makes the same choices again,\n"
    "and its counts in a closing line. Exit codes: 0 all passed, 1 something failed, 2 wrong use,\n"
    "3 the run could not be carried out.";

}  // namespace
}  // namespace soak

int main(int argumentCount, char** arguments)
{
    CLI::App app(soak::description, "tessera-cycles");
    std::uint64_t count = 2000, seed = std::random_device()();
    app.add_option("--count", count, "How many cycles in all")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--seed", seed, "Of all that is random; printed at the start");
    try
    {
        app.parse(argumentCount, arguments);
        return soak::runCycles(count, seed);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "tessera-cycles: " << error.what() << std::endl;
        return 3;
    }
}
