#include "tests/simulation/World.hpp"

#include "tests/simulation/Announcements.hpp"
#include "tests/simulation/Host.hpp"
#include "tests/support/ManualClock.hpp"

#include "Platform/Networking/URLError.hpp"
#include "tests/simulation/Items.hpp"

#include <algorithm>

namespace simulation
{
namespace
{

using platform::KeychainStatus;
using platform::URLError;
using Delivery = Announcements::Delivery;

/// Far more than a world needs that comes to rest.
constexpr std::size_t restLimit = 20'000;
constexpr double day = 86'400;

const auto& anyOf(const auto& all, soak::Random& random)
{
    return all[random.below(all.size())];
}

class World
{
public:
    World(std::uint64_t seed, bool isTraced) : random_(seed), trace_{isTraced}
    {
        const auto chance = [&](std::uint64_t up) { return random_.below(up + 1); };
        temper_ = {.work = 4 + chance(16),
                   .calls = 1 + chance(4),
                   .faults = chance(2),
                   .news = 1 + chance(3),
                   .cancels = chance(2),
                   .releases = chance(1),
                   .isServerGood = random_.oneIn(3)};
        addPrograms();
        fillStore();
        for (std::size_t program = 0; program < programs_.size(); ++program)
            addHost(program);
    }

    SeedResult run()
    {
        const int steps = 40 + static_cast<int>(random_.below(120));
        for (; result_.steps < steps && !judge_.complaint(); ++result_.steps)
        {
            step();
            replaceReleased();
            judgeStep();
        }
        if (!judge_.complaint())
            healAndJudge();
        result_.complaint = judge_.complaint();
        return result_;
    }

private:
    struct Choice
    {
        std::uint64_t weight;
        std::function<void()> make;
    };
    /// How likely things are in this seed.
    struct Temper
    {
        std::uint64_t work, calls, faults, news, cancels, releases;
        bool isServerGood;
    };

    void addPrograms()
    {
        const bool areOneProcess = random_.oneIn(4);
        for (int client = 0; client < clientCount; ++client)
        {
            auto& program = programs_.at(static_cast<std::size_t>(client));
            const auto name = clientIdentifier(client);
            program = client > 0 && areOneProcess
                          ? programs_.front()
                          : Program{client, executor_.addQueue(name + " main"),
                                    executor_.addQueue(name + " background"),
                                    executor_.addQueue(name + " storage")};
            program.client = client;
        }
    }

    /// Nothing, a session of an earlier run, or what is left of one.
    void fillStore()
    {
        if (random_.oneIn(3))
            return;
        const auto* token = server_.beginSession(static_cast<int>(random_.below(userCount)));
        if (random_.oneIn(8))
            token =
                random_.oneIn(2) ? &Texts::shared().damaged() : &Texts::shared().foreignSession();
        store(*items_, tokenIdentity(), *token);
        judge_.tokenStored(token);
        for (int client = 0; client < clientCount; ++client)
            if (!random_.oneIn(3))
            {
                const auto user = random_.oneIn(6) ? 2 : std::max(token->user, 0);
                const auto& texts = Texts::shared();
                const auto& info =
                    random_.oneIn(8) ? texts.foreignInfo() : texts.info(user, client, 0, user > 0);
                store(*items_, infoIdentity(client), info);
                judge_.infoStored(client, &info);
            }
    }

    platform::Services servicesOf(int host, const std::shared_ptr<WatchedItems>& items)
    {
        platform::Services services;
        services.clock = {std::shared_ptr<void>(), &clock_};
        services.device = platform::services().device;
        services.urlSession = network_.sessionOf(host);
        services.keyValueStore = announcements_.storeOf(host);
        services.keychain = std::make_shared<platform::StoreKeychain>(
            items,
            []
            {
                return platform::KeychainSurroundings{{.identifier = "org.example.simulation"}, {}};
            });
        return services;
    }

    void addHost(std::size_t program)
    {
        // The parity of the number tells the server which client asks.
        const auto before =
            std::ranges::count_if(hosts_, [&](const auto& host)
                                  { return host->program().client == static_cast<int>(program); });
        const auto number = static_cast<int>(before) * clientCount + static_cast<int>(program);
        auto items = std::make_shared<WatchedItems>(items_, number,
                                                    [this, program](ItemCall call)
                                                    {
                                                        call.isOnMain =
                                                            programs_.at(program).main->isCurrent();
                                                        judge_.itemCalled(call);
                                                    });
        trace_("host ", number, " begins");
        auto services = servicesOf(number, items);
        hosts_.push_back(std::make_unique<Host>(number, programs_.at(program), std::move(services),
                                                std::move(items), judge_, server_));
        current_.at(program) = hosts_.back().get();
        if (random_.oneIn(8))
        {
            mayDiffer_ = true;
            hosts_.back()->items().failNext(ItemCall::Kind::read, KeychainStatus::notAvailable);
        }
        if (!random_.oneIn(8))
            hosts_.back()->call(CallKind::launch, random_);
        else
            mayDiffer_ = true;
    }

    void step()
    {
        std::vector<Choice> choices;
        addWork(choices);
        addWorldsDoing(choices);
        for (std::size_t program = 0; program < current_.size(); ++program)
            addHostsDoing(choices, program);
        std::uint64_t total = 0;
        for (const auto& choice : choices)
            total += choice.weight;
        auto place = random_.below(total);
        for (const auto& choice : choices)
        {
            if (place < choice.weight)
                return choice.make();
            place -= choice.weight;
        }
    }

    void addWork(std::vector<Choice>& choices)
    {
        for (const auto& queue : executor_.queues())
            if (queue->size() > 0)
                choices.push_back({temper_.work, [this, &queue]
                                   {
                                       trace_("run ", queue->name());
                                       queue->runHead();
                                   }});
        if (!executor_.isIdle())
            choices.push_back({temper_.work / 2, [this]
                               {
                                   trace_("run everything");
                                   judge_.complainIf(executor_.drain(restLimit) == restLimit,
                                                     "the work never ends");
                               }});
        for (const auto& transfer : network_.open())
            choices.push_back({6, [this, transfer]
                               { answer(*transfer, temper_.isServerGood || !random_.oneIn(3)); }});
        if (clock_.timers() > 0)
            choices.push_back({5, [this]
                               {
                                   trace_("time goes on");
                                   clock_.fireNext();
                               }});
    }

    void addWorldsDoing(std::vector<Choice>& choices)
    {
        for (const int host : announcements_.awaited())
        {
            choices.push_back({3 * temper_.news, [this, host] { tell(host, Delivery::once); }});
            choices.push_back({temper_.news, [this, host]
                               {
                                   constexpr std::array others{Delivery::again, Delivery::lost,
                                                               Delivery::withoutKeys,
                                                               Delivery::ofAnotherKey};
                                   tell(host, anyOf(others, random_));
                               }});
            choices.push_back({temper_.faults, [this, host] { flood(host); }});
        }
        choices.push_back({1, [this]
                           {
                               const double seconds = random_.oneIn(2) ? day : -day;
                               trace_("the clock is set by ", seconds);
                               clock_.setNow(clock_.now() + seconds);
                           }});
        choices.push_back({1, [this]
                           {
                               trace_("an hour goes by");
                               clock_.advance(3'600'000'000'000);
                           }});
        choices.push_back({temper_.faults, [this] { damageStore(); }});
    }

    void addHostsDoing(std::vector<Choice>& choices, std::size_t program)
    {
        auto& host = *current_.at(program);
        choices.push_back({2 * temper_.calls, [this, &host] { call(host); }});
        choices.push_back({temper_.faults, [this, &host] { failKeychain(host); }});
        choices.push_back({temper_.releases, [this, program] { renew(program); }});
        const auto running = host.running();
        if (!running.empty())
            choices.push_back({temper_.cancels, [this, &host, running]
                               {
                                   const int number = anyOf(running, random_);
                                   trace_("call ", number, " is cancelled");
                                   host.cancel(number);
                               }});
    }

    void answer(Transfer& transfer, bool isGood)
    {
        // Held: answering ends it.
        const auto held = transfer.self.lock();
        if (transfer.isCancelled() && !random_.oneIn(4))
        {
            trace_("cancelled: ", transfer.request().description());
            if (random_.oneIn(2))
                server_.carryOut(transfer.request());
            return transfer.fail(std::make_exception_ptr(platform::CancellationError()));
        }
        if (!isGood)
            return misbehave(transfer);
        handOver(server_.carryOut(transfer.request()), transfer);
    }

    void handOver(const Answer& answer, Transfer& transfer)
    {
        trace_("answer ", answer.status, " ", answer.text ? answer.text->name : "", " to ",
               transfer.request().description());
        judge_.answered(transfer.request(), answer);
        transfer.answer(answer.status, answer.body);
    }

    void misbehave(Transfer& transfer)
    {
        const auto& request = transfer.request();
        const auto& texts = Texts::shared();
        const auto user = static_cast<int>(random_.below(userCount));
        const bool isSignIn = request.operation == Operation::signIn;
        const std::array<Answer, 8> answers{
            refusal(401, "unauthorized"),
            refusal(403, "no_consent"),
            refusal(500, "internal"),
            {.status = 502, .body = "<html>Bad gateway</html>"},
            answerOf(texts.damaged()),
            answerOf(texts.info(user, request.host % clientCount, 0, true)),
            answerOf(texts.infoForOthers(user)),
            answerOf(isSignIn ? texts.foreignSession() : texts.foreignInfo())};
        const auto choice = random_.below(answers.size() + 2);
        if (choice >= answers.size())
        {
            if (choice > answers.size())
                server_.carryOut(request);
            trace_("no answer to ", request.description());
            return transfer.fail(std::make_exception_ptr(URLError(URLError::Code::connectionLost)));
        }
        handOver(answers.at(choice), transfer);
    }

    void tell(int host, Delivery delivery)
    {
        trace_("news for host ", host, ", kind ", static_cast<int>(delivery));
        mayDiffer_ |= delivery != Delivery::once && delivery != Delivery::again;
        judge_.hostIsTold(host);
        announcements_.deliver(host, delivery);
    }

    void flood(int host)
    {
        trace_("a flood of news for host ", host);
        judge_.hostIsTold(host);
        for (int count = 0; count < 40; ++count)
        {
            announcements_.deliver(host, Delivery::again);
            executor_.drain(restLimit);
        }
    }

    void failKeychain(Host& host)
    {
        mayDiffer_ = true;
        if (random_.oneIn(6))
        {
            trace_("the next announcement of host ", host.number(), " fails");
            return announcements_.failNext(host.number());
        }
        if (random_.oneIn(6))
        {
            const int calls = 2 + static_cast<int>(random_.below(6));
            trace_("the keychain of host ", host.number(), " is locked for ", calls, " calls");
            return host.items().lock(calls);
        }
        constexpr std::array kinds{ItemCall::Kind::read, ItemCall::Kind::write,
                                   ItemCall::Kind::removal};
        constexpr std::array statuses{KeychainStatus::notAvailable, KeychainStatus::inputOutput,
                                      KeychainStatus::damaged,
                                      KeychainStatus::interactionNotAllowed};
        const auto kind = anyOf(kinds, random_);
        trace_("the next item call of kind ", static_cast<int>(kind), " of host ", host.number(),
               " fails");
        host.items().failNext(kind, anyOf(statuses, random_));
    }

    void call(Host& host)
    {
        constexpr std::array kinds{CallKind::activate,       CallKind::activate,
                                   CallKind::activate,       CallKind::signIn,
                                   CallKind::signIn,         CallKind::signIn,
                                   CallKind::signOut,        CallKind::signOut,
                                   CallKind::refresh,        CallKind::forcedRefresh,
                                   CallKind::forcedRefresh,  CallKind::deleteAccount,
                                   CallKind::consent,        CallKind::newsletter,
                                   CallKind::authenticate,   CallKind::authenticate,
                                   CallKind::deauthenticate, CallKind::oneTimeCode,
                                   CallKind::launch,         CallKind::serverSignOutEnded};
        const auto kind = anyOf(kinds, random_);
        if (random_.oneIn(10))
        {
            trace_("host ", host.number(), " will call ", nameOf(kind), " from a handler");
            return host.callFromHandler(kind, random_.any());
        }
        if (random_.oneIn(10))
            host.subscribeFromHandler();
        trace_("host ", host.number(), " calls ", nameOf(kind));
        host.call(kind, random_);
    }

    void damageStore()
    {
        if (random_.oneIn(4))
            return;
        mayDiffer_ = true;
        const auto& texts = Texts::shared();
        trace_("an item is damaged");
        if (random_.oneIn(2))
        {
            const auto client = static_cast<int>(random_.below(clientCount));
            const auto& info = random_.oneIn(2) ? texts.damaged() : texts.foreignInfo();
            store(*items_, infoIdentity(client), info);
            return judge_.infoDamaged(client, info);
        }
        store(*items_, tokenIdentity(), texts.damaged());
        judge_.tokenDamaged(texts.damaged());
    }

    void renew(std::size_t program)
    {
        auto& host = *current_.at(program);
        if (random_.oneIn(3))
        {
            trace_("host ", host.number(), " will be released by a handler");
            return host.releaseFromHandler();
        }
        trace_("host ", host.number(), " is released");
        host.release();
        addHost(program);
    }

    /// A program whose handler has let go of its account makes another.
    void replaceReleased()
    {
        for (std::size_t program = 0; program < current_.size(); ++program)
            if (current_.at(program)->isReleased())
                addHost(program);
    }

    void judgeStep()
    {
        judge_.setTime(clock_.elapsed());
        if (!executor_.isIdle())
            return;
        judge_.settled(network_.open());
        for (const auto& host : hosts_)
        {
            host->judgeSubscribers();
            host->judgeNewsletter();
        }
        if (network_.open().empty() && clock_.timers() == 0)
            judge_.atRest();
    }

    /// Everything that can happen without a host's doing, with a good server.
    void comeToRest()
    {
        trace_("comes to rest");
        for (std::size_t count = 0; count < restLimit && !judge_.complaint(); ++count)
        {
            executor_.drain(restLimit);
            judgeStep();
            const auto awaited = announcements_.awaited();
            if (!network_.open().empty())
                answer(*network_.open().front(), true);
            else if (!awaited.empty())
                tell(awaited.front(), Delivery::once);
            else if (clock_.timers() > 0)
                clock_.fireNext();
            else
                return;
        }
        judge_.complainIf(!judge_.complaint(), "the world does not come to rest");
    }

    /// Where nothing was lost, all agree by themselves. Otherwise, whatever has gone wrong is
    /// mended now, and the hosts come to the front twice: then all agree.
    void healAndJudge()
    {
        for (auto* host : current_)
        {
            host->items().failNothing();
            host->doNothingFromHandler();
        }
        comeToRest();
        for (auto* host : current_)
            if (!mayDiffer_ && !judge_.complaint())
                host->judgeSession(*items_);
        for (const bool isRefreshed : {false, true})
            for (auto* host : current_)
            {
                if (judge_.complaint())
                    return;
                host->call(CallKind::activate, random_);
                executor_.drain(restLimit);
                if (isRefreshed)
                    host->call(CallKind::forcedRefresh, random_);
                comeToRest();
            }
        if (judge_.complaint())
            return;
        for (auto* host : current_)
            host->judgeEnd(*items_, server_);
        judge_.ended(server_);
        if (judge_.complaint())
            return;
        trace_("all are released");
        for (auto* host : current_)
            host->release();
        comeToRest();
    }

    soak::Random random_;
    Trace trace_;
    SeedResult result_;
    Temper temper_;
    /// An announcement was lost, a keychain has failed, or a host has not been launched.
    bool mayDiffer_ = false;
    ManualClock clock_;
    Judge judge_{trace_};
    AccountServer server_;
    // Before the hosts: what they leave in the queues still uses these.
    Network network_{[this](Request& request) { judge_.requested(request); }};
    Announcements announcements_{[this](int host) { judge_.announced(host); }};
    std::shared_ptr<MemoryItemStore> items_ = std::make_shared<MemoryItemStore>();
    StepExecutor executor_;
    std::array<Program, clientCount> programs_;
    std::vector<std::unique_ptr<Host>> hosts_;
    /// The host that each program has now.
    std::array<Host*, clientCount> current_{};
};

}  // namespace

SeedResult runWorld(std::uint64_t seed, bool isTraced)
{
    return World(seed, isTraced).run();
}

}  // namespace simulation
