#include "Platform/Security/Authentication/AuthenticatorTurn.hpp"

#include "Platform/Concurrency/Thread.hpp"
#include "Platform/Security/Authentication/ItemProtection.hpp"

#include <algorithm>
#include <mutex>
#include <system_error>
#include <utility>

namespace platform
{
namespace
{

thread_local bool insideAuthenticator = false;

enum class Desk
{
    free,
    taken,
    /// Nobody waits for the answer any more, and the authenticator has not returned.
    closing,
    /// The same, and there is no use in waiting for it.
    stuck,
};

struct Shared
{
    std::mutex mutex;
    Desk desk = Desk::free;
    std::vector<std::shared_ptr<Waiter>> queue;

    void free()
    {
        std::vector<std::shared_ptr<Waiter>> waiting;
        {
            const std::lock_guard lock(mutex);
            desk = Desk::free;
            waiting.swap(queue);
        }
        for (const auto& waiter : waiting)
            waiter->wake();
    }

    void markStuck()
    {
        std::vector<std::shared_ptr<Waiter>> waiting;
        {
            const std::lock_guard lock(mutex);
            if (desk != Desk::closing)
                return;
            desk = Desk::stuck;
            waiting.swap(queue);
        }
        for (const auto& waiter : waiting)
            waiter->wake();
    }
};

// Never torn down: an authenticator may return while the process ends.
Shared& shared()
{
    static auto& made = *new Shared;
    return made;
}

}  // namespace

bool isAuthenticating() noexcept
{
    return insideAuthenticator;
}

InsideAuthenticator::InsideAuthenticator() noexcept
    : before_(std::exchange(insideAuthenticator, true))
{}

InsideAuthenticator::~InsideAuthenticator()
{
    insideAuthenticator = before_;
}

/// What the thread that waits and the one that asks have in common. The fields below `asker` are
/// guarded by the mutex of `shared()`.
struct AuthenticatorTurn::Question
{
    std::shared_ptr<Authenticator> authenticator;
    Authenticator::Request request;
    std::stop_source ended;
    std::shared_ptr<Waiter> asker;

    bool answered = false;
    bool abandoned = false;
    Authenticator::Answer answer;

    void run();
    bool isAnswered()
    {
        const std::lock_guard lock(shared().mutex);
        return answered;
    }
};

void AuthenticatorTurn::Question::run()
{
    Authenticator::Answer given;
    try
    {
        const InsideAuthenticator inside;
        given = authenticator->authenticate(request);
    }
    catch (...)
    {
        given.outcome = Authenticator::Outcome::failed;
    }
    bool late = false;
    {
        const std::lock_guard lock(shared().mutex);
        late = abandoned;
        answered = true;
        if (!late)
            answer = std::move(given);
    }
    if (late)
        shared().free();
    else
        asker->wake();
}

AuthenticatorTurn::AuthenticatorTurn(std::shared_ptr<Clock> clock, std::uint64_t limitNanoseconds,
                                     std::stop_token ended)
    : clock_(std::move(clock)), limitNanoseconds_(limitNanoseconds), ended_(std::move(ended))
{}

AuthenticatorTurn::~AuthenticatorTurn()
{
    if (taken_)
        shared().free();
    const std::lock_guard lock(shared().mutex);
    std::erase(shared().queue, waiter_);
}

AuthenticatorTurn::Taken AuthenticatorTurn::take()
{
    auto taken = std::optional<Taken>();
    const auto settled = [&]
    {
        if (ended_.stop_requested())
            taken = Taken::contextEnded;
        if (taken)
            return true;
        const std::lock_guard lock(shared().mutex);
        auto& [mutex, desk, queue] = shared();
        if (desk == Desk::free)
        {
            desk = Desk::taken;
            taken_ = true;
            taken = Taken::yes;
        }
        else if (desk == Desk::stuck)
            taken = Taken::busy;
        else if (std::ranges::find(queue, waiter_) == queue.end())
            queue.push_back(waiter_);
        return taken.has_value();
    };
    if (settled())
        return *taken;

    const std::stop_callback woken(ended_, [waiter = waiter_] { waiter->wake(); });
    const Deadline deadline(waiter_, clock_, limitNanoseconds_);
    waiter_->wait([&] { return settled() || deadline.passed(); });
    if (!taken)
    {
        shared().markStuck();
        taken = Taken::busy;
    }
    return *taken;
}

AuthenticatorTurn::End AuthenticatorTurn::ask(std::shared_ptr<Authenticator> authenticator,
                                              Authenticator::Request request,
                                              Authenticator::Answer& answer)
{
    const auto question = std::make_shared<Question>();
    question->authenticator = std::move(authenticator);
    question->request = std::move(request);
    question->request.ended = question->ended.get_token();
    question->asker = waiter_;

    const std::stop_callback woken(ended_, [waiter = waiter_] { waiter->wake(); });
    const Deadline deadline(waiter_, clock_, limitNanoseconds_);
    try
    {
        startThread("tessera-ask", [question] { question->run(); }).detach();
    }
    catch (const std::system_error&)
    {
        return End::notStarted;
    }
    waiter_->wait(
        [&] { return ended_.stop_requested() || question->isAnswered() || deadline.passed(); });

    if (!ended_.stop_requested() && question->isAnswered())
    {
        answer = std::move(question->answer);
        return End::answered;
    }
    const bool overdue = !ended_.stop_requested();
    abandon(*question, overdue);
    return overdue ? End::timeUp : End::contextEnded;
}

void AuthenticatorTurn::abandon(Question& question, bool overdue)
{
    bool running = false;
    {
        const std::lock_guard lock(shared().mutex);
        running = !question.answered;
        question.abandoned = true;
        if (running)
        {
            // From here on the turn belongs to the thread that asks.
            shared().desk = Desk::closing;
            taken_ = false;
        }
    }
    if (running && overdue)
        shared().markStuck();
    const InsideAuthenticator inside;
    question.ended.request_stop();
}

}  // namespace platform
