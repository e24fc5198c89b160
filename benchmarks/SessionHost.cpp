#include "benchmarks/SessionHost.hpp"

#include "benchmarks/Server.hpp"

#include "Platform/KeyValueStore/FileKeyValueStore.hpp"
#include "tools/account-server/Mailer.hpp"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include <stdlib.h>

namespace
{

double seconds(clockid_t clock)
{
    timespec spent{};
    clock_gettime(clock, &spent);
    return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) * 1e-9;
}

/// Below the working folder, since a memory file system would show no disk.
std::filesystem::path newFolder()
{
    auto pattern = (std::filesystem::current_path() / "bench-session-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("no folder");
    return pattern;
}

std::shared_ptr<platform::EmbeddedItemStore> itemsIn(const std::filesystem::path& folder)
{
    platform::EmbeddedItemStore::Configuration configuration;
    configuration.dataFolder = folder / "data";
    configuration.keyFolder = folder / "key";
    configuration.firstKeyMayBePlain = true;
    return std::make_shared<platform::EmbeddedItemStore>(std::move(configuration));
}

}  // namespace

void TimedMainActor::enqueue(std::function<void()> work)
{
    loop_->enqueue([this, work = std::move(work)] { run(work); });
}

void TimedMainActor::run(const std::function<void()>& work)
{
    const double wall = seconds(CLOCK_MONOTONIC), cpu = seconds(CLOCK_THREAD_CPUTIME_ID);
    work();
    const double wallSpent = seconds(CLOCK_MONOTONIC) - wall;
    longest_.wall = std::max(longest_.wall, wallSpent);
    longest_.cpu = std::max(longest_.cpu, seconds(CLOCK_THREAD_CPUTIME_ID) - cpu);
    wallInAll_ += wallSpent;
}

void TimedMainActor::forget()
{
    longest_ = {};
    wallInAll_ = 0;
}

SessionUser::SessionUser()
    : file(tools::readEnvironmentFile(std::filesystem::path(server().state) / "environment.json")),
      folder(newFolder())
{}

SessionUser::~SessionUser()
{
    std::filesystem::remove_all(folder);
}

void SessionUser::runUntil(const std::function<bool()>& holds) const
{
    const auto over = std::make_shared<bool>(false);
    const auto timer = platform::start<void>(
        platform::executorOf(loop), platform::systemServices().clock->sleep(30'000'000'000),
        [over](const platform::Outcome<void>& end) { *over = end.succeeded(); });
    loop->runUntil([&] { return *over || holds(); });
    timer.cancel();
    if (!holds())
        throw std::runtime_error("The session did not get there in half a minute");
}

void SessionUser::runFor(std::chrono::milliseconds span) const
{
    auto pause = platform::systemServices().clock->sleep(
        static_cast<std::uint64_t>(std::chrono::nanoseconds(span).count()));
    platform::runToEnd<void>(loop, std::move(pause));
}

std::string SessionUser::code(const std::string& email) const
{
    const auto found = accountserver::newestCode(server().state, email);
    if (!found)
        throw std::runtime_error("no code was mailed");
    std::filesystem::remove_all(std::filesystem::path(server().state) / "mailbox");
    std::filesystem::create_directory(std::filesystem::path(server().state) / "mailbox");
    return *found;
}

SessionHost::SessionHost(const SessionUser& ofUser, std::string name)
    : user(ofUser),
      main(std::make_shared<TimedMainActor>(user.loop)),
      services(platform::systemServices()),
      session_(std::make_shared<platform::CurlURLSession>(user.file.sessionConfiguration())),
      items_(itemsIn(user.folder / "keychain"))
{
    client.identifier = std::move(name);
    client.localizedKeychainIdentifier = client.localizedName = client.identifier;
    client.version = "7.2";
    client.device = {.model = "PC", .systemVersion = "12.0.0"};
    services.mainActor = main;
    services.urlSession = session_;
    services.keychain = std::make_shared<platform::StoreKeychain>(
        items_,
        []
        {
            return platform::KeychainSurroundings{.program = {.identifier = "benchmark"},
                                                  .protection = {}};
        });
    services.keyValueStore = std::make_shared<platform::FileKeyValueStore>(
        services.background, platform::FileKeyValueStore::Configuration{
                                 .folder = user.folder / "shared", .diagnostics = {}});
    services.stateFolder = user.folder / "state";
    makeAccount();
}

SessionHost::~SessionHost()
{
    account.reset();
    drain();
    session_->shutdown();
    drain();
}

void SessionHost::makeAccount()
{
    account.reset();
    account.emplace(user.file.environment, client, services);
}

void SessionHost::closeKeychain()
{
    items_->close();
}

void SessionHost::launchToEnd()
{
    account->applicationWillFinishLaunching();
    user.runUntil([this] { return !account->state().get<tessera::AccountState::Loading>(); });
}

void SessionHost::signIn(const std::string& email)
{
    toEnd<void>(account->requestOneTimeCode(platform::SecretString(email)));
    toEnd<tessera::AccountState>(
        account->signIn(platform::SecretString(email), platform::SecretString(user.code(email))));
    if (!isSignedIn())
        throw std::runtime_error("The sign-in did not end signed in");
}

void SessionHost::drain() const
{
    for (int round = 0; round < 3; ++round)
        for (const auto& executor : {services.background, services.storage})
        {
            const auto back = std::make_shared<bool>(false);
            boost::asio::post(
                executor, [back, loop = user.loop] { loop->enqueue([back] { *back = true; }); });
            user.loop->runUntil([&] { return *back; });
        }
}

double percentile(std::vector<double> values, double percent)
{
    std::ranges::sort(values);
    return values[static_cast<std::size_t>(percent / 100 * static_cast<double>(values.size() - 1))];
}
