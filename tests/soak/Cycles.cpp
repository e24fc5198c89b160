#include "tests/soak/Cycles.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "Tessera/Model/AccountError.hpp"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace soak
{

using namespace std::chrono_literals;
using platform::SecretString;
using tessera::AccountState;

namespace
{

// A call that takes so long hangs. (A server that does not answer is given 60 s; this one answers.)
constexpr auto patience = 30s;
// The last of the looks for a changed token is 7 s after the announcement.
constexpr auto agreementLimit = 10s;

// What `act` chooses from.
constexpr const char* actNames[]{
    "signIn",     "signIn",       "signIn", "signIn",  "refresh", "refresh", "activate", "consent",
    "newsletter", "authenticate", "end",    "signOut", "release", "release", "cancel",   "cancel"};

/// Whether a call may end so while another program, a cancellation or a release is at work.
bool mayEndSo(const std::exception_ptr& error)
{
    try
    {
        std::rethrow_exception(error);
    }
    catch (const platform::CancellationError&)
    {
        return true;
    }
    catch (const tessera::AccountRemoteError&)
    {
        return true;
    }
    catch (const tessera::AccountError& thrown)
    {
        return thrown.errorCase() == tessera::AccountError::accountRequired;
    }
    catch (...)
    {
        return false;
    }
}

bool isSignedOut(const AccountState& state)
{
    return state.get<AccountState::SignedOut>() != nullptr;
}

bool isSignedIn(const AccountState& state)
{
    return state.get<tessera::AccountProfile>() != nullptr;
}

}  // namespace

Cycles::Cycles(CyclesServer& server, CyclesShared& shared, std::filesystem::path folder,
               std::uint64_t seed)
    : server_(server),
      shared_(shared),
      user_(folder.filename()),
      random_(seed),
      first_(stage_, tools::readEnvironmentFile(server.environmentFile()), "editor", folder),
      second_(stage_, tools::readEnvironmentFile(server.environmentFile()), "example", folder)
{}

void Cycles::run(std::uint64_t count)
{
    for (std::uint64_t number = 1; number <= count; ++number)
    {
        const auto wrong = cycle(number);
        if (wrong.empty())
            shared_.passed();
        else
            shared_.failed(user_ + ", " + wrong);
        if (shared_.weighsAfter(number))
            if (const auto unrested = weigh(); !unrested.empty())
                shared_.failed(user_ + ", cycle " + std::to_string(number) + ": " + unrested);
    }
    shared_.add(counts_);
}

std::string Cycles::cycle(std::uint64_t number)
{
    const bool isCalm = random_.oneIn(3);
    before_ = std::exchange(acts_, isCalm ? "calm" : "");
    auto wrong = isCalm ? calm() : disturbed();
    const auto after = settle();
    if (wrong.empty())
        wrong = after;
    return wrong.empty() ? ""
                         : "cycle " + std::to_string(number) + ": " + wrong + " [" + acts_ +
                               "; before that " + before_ + "]";
}

/// Sign-in, refresh and sign-out, each followed by the other program.
std::string Cycles::calm()
{
    ++counts_.calmCycles;
    auto& chief = anyProgram();
    auto& other = &chief == &first_ ? second_ : first_;
    if (!isSignedOut(chief.state()))
        chief.account().signOut();
    if (auto wrong = bothReach(isSignedOut, "signed out before the sign-in"); !wrong.empty())
        return wrong;
    if (auto wrong = signInCalmly(chief, other); !wrong.empty())
        return wrong;
    if (!random_.oneIn(8))
        chief.account().signOut();
    else if (auto wrong = succeed(stage_.begin("deleteAccount", chief.account().deleteAccount()));
             !wrong.empty())
        return wrong;
    return bothReach(isSignedOut, "signed out");
}

std::string Cycles::signInCalmly(CyclesProgram& chief, CyclesProgram& other)
{
    const auto email = address();
    const auto code =
        stage_.begin("requestOneTimeCode", chief.account().requestOneTimeCode(SecretString(email)));
    if (auto wrong = succeed(code); !wrong.empty())
        return wrong;
    const auto signIn = stage_.begin(
        "signIn",
        chief.account().signIn(SecretString(email), SecretString(server_.takeCode(email))),
        random_.oneIn(4));
    if (auto wrong = succeed(signIn); !wrong.empty())
        return wrong;
    if (auto wrong = bothReach(isSignedIn, "signed in"); !wrong.empty())
        return wrong;
    // Begun together, so that it meets the refresh with which the other program followed.
    const auto one = stage_.begin("refresh", chief.account().refresh(true), random_.oneIn(4));
    const auto two = stage_.begin("refresh", other.account().refresh(true), random_.oneIn(4));
    auto wrong = succeed(one);
    return wrong.empty() ? succeed(two) : wrong;
}

std::string Cycles::disturbed()
{
    for (auto acts = 3 + random_.below(6); acts > 0; --acts)
    {
        act(anyProgram());
        switch (random_.below(3))
        {
            case 0:
                break;
            case 1:
                stage_.runFor(moment(4));
                break;
            default:
                stage_.runUntil([call = stage_.calls().empty() ? nullptr : stage_.calls().back()]
                                { return !call || call->hasEnded(); }, 20ms);
        }
    }
    return {};
}

void Cycles::act(CyclesProgram& program)
{
    auto& account = program.account();
    const auto choice = random_.below(std::size(actNames));
    acts_ += " " + program.name() + "." + actNames[choice];
    const bool elsewhere = random_.oneIn(4);
    switch (choice)
    {
        case 0:
        case 1:
        case 2:
        case 3:
            return beginSignIn(program);
        case 4:
        case 5:
            stage_.begin("refresh", account.refresh(random_.oneIn(2)), elsewhere);
            return;
        case 6:
            return account.applicationDidBecomeActive();
        case 7:
            stage_.begin("consentToTerms", account.consentToTerms("2026-10-01", "en"), elsewhere);
            return;
        case 8:
            stage_.begin("requestNewsletter", account.requestNewsletter(), elsewhere);
            return;
        case 9:
            if (const auto token = account.state().token())
            {
                account.authenticate(*token);
                authenticates_ = true;
            }
            return;
        case 10:
            if (random_.oneIn(4))
                stage_.begin("deleteAccount", account.deleteAccount(), elsewhere);
            else if (random_.oneIn(2))
                account.deauthenticate();
            return;
        case 11:
            return account.signOut();
        case 12:
        case 13:
            ++counts_.released;
            return program.restartAccount();
        default:
            return cancelOne();
    }
}

void Cycles::beginSignIn(CyclesProgram& program)
{
    const auto email = address();
    const auto mailed = stage_.begin("requestOneTimeCode",
                                     program.account().requestOneTimeCode(SecretString(email)));
    if (!stage_.runUntil([&] { return mailed->hasEnded(); }, patience) || mailed->error)
        return;
    stage_.begin(
        "signIn",
        program.account().signIn(SecretString(email), SecretString(server_.takeCode(email))),
        random_.oneIn(4));
}

void Cycles::cancelOne()
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

std::string Cycles::settle()
{
    // What `authenticate` has begun ends before a refresh does.
    if (std::exchange(authenticates_, false))
        for (auto* program : {&first_, &second_})
            stage_.begin("refresh", program->account().refresh(false));
    auto wrong = callsEnded();
    first_.drain();
    second_.drain();
    auto disagreement = agree();
    counts_.calls += stage_.calls().size();
    stage_.forgetCalls();
    return wrong.empty() ? disagreement : wrong;
}

std::string Cycles::callsEnded()
{
    const auto ended = [&]
    {
        return std::ranges::all_of(stage_.calls(),
                                   [](const auto& call) { return call->hasEnded(); });
    };
    stage_.runUntil(ended, patience);
    for (const auto& call : stage_.calls())
        if (call->ends != 1 || (call->error && !mayEndSo(call->error)))
            return call->name + " " + call->end();
    return {};
}

std::string Cycles::agree()
{
    const auto begin = std::chrono::steady_clock::now();
    std::string wrong;
    stage_.runUntil(
        [&]
        {
            wrong = first_.inconsistency();
            if (wrong.empty())
                wrong = second_.inconsistency();
            return wrong.empty();
        },
        agreementLimit);
    counts_.longestAgreement =
        std::max(counts_.longestAgreement, std::chrono::duration_cast<std::chrono::milliseconds>(
                                               std::chrono::steady_clock::now() - begin));
    return wrong.empty() ? "" : wrong + " (" + shown() + ")";
}

/// Where both stand, and by which way they came there.
std::string Cycles::shown()
{
    std::string text;
    for (auto* program : {&first_, &second_})
    {
        const auto transitions = platform::runToEnd<std::vector<tessera::AccountTransition>>(
            stage_.loop(), program->account().history());
        text += (text.empty() ? "" : "; ") + program->shown(transitions);
    }
    return text;
}

std::string Cycles::succeed(const Call& call)
{
    stage_.runUntil([&] { return call->hasEnded(); }, patience);
    return call->hasSucceeded() ? "" : call->name + " " + call->end();
}

std::string Cycles::bothReach(const std::function<bool(const AccountState&)>& state,
                              const char* what)
{
    const auto reached = [&]
    {
        return state(first_.state()) && state(second_.state()) && first_.inconsistency().empty() &&
               second_.inconsistency().empty();
    };
    return stage_.runUntil(reached, agreementLimit)
               ? ""
               : std::string("the programs were not both ") + what + " (" + shown() + ")";
}

/// Whether the users rest, and what they hold then, with nothing under way: that is kept for good.
std::string Cycles::weigh()
{
    first_.account().signOut();
    auto wrong = bothReach(isSignedOut, "signed out to rest");
    for (auto* program : {&first_, &second_})
    {
        const auto told =
            stage_.begin("serverSignOutEnded", program->account().serverSignOutEnded());
        if (auto unended = succeed(told); wrong.empty())
            wrong = std::move(unended);
    }
    stage_.forgetCalls();
    first_.rest();
    second_.rest();
    shared_.weigh();
    first_.resume();
    second_.resume();
    return wrong;
}

}  // namespace soak
