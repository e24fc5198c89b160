#include "tests/soak/Kills.hpp"
#include "tests/soak/Processes.hpp"
#include "tests/soak/Runs.hpp"

#include "tests/support/SecretServiceForTest.hpp"

#include <csignal>
#include <memory>

namespace soak
{
namespace
{

Place placeOf(const PrivateSecretService& service)
{
    return {.folder = service.lockFolder(),
            .busAddress = service.busAddress(),
            .passphrase = std::nullopt};
}

/// The rounds over one Secret Service after the other.
class ServiceKills
{
public:
    ServiceKills(Kills& kills, Random& random) : kills_(kills), random_(random) {}

    void round(Report& report)
    {
        if (!service_ || random_.oneIn(15))
            startAnew();
        const auto victim = random_.below(3);
        kills_.allowFailedSteps(victim != 0);
        const bool right = kills_.round([&](Child& writer) { kill(victim, writer); });
        if (right && stayingStoreIsRight(report))
            return;
        staying_.reset();
        service_.reset();
    }

    std::string detail() const
    {
        return "; the daemon was killed " + std::to_string(daemons_) + " times";
    }

private:
    void startAnew()
    {
        staying_.reset();
        service_ = std::make_unique<PrivateSecretService>();
        kills_.startAnew(placeOf(*service_));
        staying_ = openStore(placeOf(*service_));
    }

    /// 0: the writer, 1: the daemon, and the writer learns of it, 2: both.
    void kill(std::uint64_t victim, Child& writer)
    {
        if (victim != 1)
            writer.signal(SIGKILL);
        if (victim == 0)
            return;
        ++daemons_;
        service_->restart();
        // One that was between two steps goes on with the new daemon, as it should.
        writer.signal(SIGKILL);
    }

    /// A store that was there before the daemon was killed finds the new one with its next call.
    bool stayingStoreIsRight(Report& report)
    {
        Items items(staying_->items());
        const auto wrong = kills_.expectation().checkAnswers(items);
        const auto status = items.all().status;
        if (wrong.empty() && status == platform::KeychainStatus::success)
            return true;
        report.failed("a store that outlived the daemon: " + wrong + " " + shown(status) + " " +
                      staying_->diagnostics());
        return false;
    }

    Kills& kills_;
    Random& random_;
    std::unique_ptr<PrivateSecretService> service_;
    std::unique_ptr<Store> staying_;
    std::uint64_t daemons_ = 0;
};

}  // namespace

int runServiceKills(const Settings& settings)
{
    const auto rounds = settings.count ? settings.count : 2000;
    Report report("service-kills", rounds, settings.seed);
    Random random(settings.seed);
    Kills kills(report, random);
    ServiceKills service(kills, random);
    for (std::uint64_t round = 0; round < rounds; ++round)
        service.round(report);
    return report.close(kills.detail() + service.detail());
}

int runServiceProcesses(const Settings& settings)
{
    const auto count = settings.count ? settings.count : 1000;
    Report report("service-processes", 0, settings.seed);
    const PrivateSecretService service;
    return report.close(contend(placeOf(service), settings, count, report));
}

}  // namespace soak
