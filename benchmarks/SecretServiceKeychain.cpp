#include "benchmarks/BareSecretService.hpp"
#include "benchmarks/PairedBlocks.hpp"

#include "Platform/Security/Keychain/StoreKeychain.hpp"
#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"
#include "Valet/Valet.hpp"
#include "tests/support/SecretServiceForTest.hpp"

#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace
{

constexpr std::size_t itemCount = 20;
constexpr const char* serviceName =
    "VAL_VALValet_initWithIdentifier:accessibility:_Tokens_AccessibleAfterFirstUnlock";
const std::string value(1024, 'v');

void require(bool good, const char* what)
{
    if (!good)
        throw std::runtime_error(what);
}

/// A keyring of the benchmark's own, with the items that both sides have for themselves. Each side
/// takes its next one with every operation.
class Keyring
{
public:
    /// libsecret goes to the bus that the environment names.
    Keyring()
    {
        setenv("DBUS_SESSION_BUS_ADDRESS", running_.busAddress().c_str(), 1);
        bare = std::make_unique<BareSecretService>(serviceName);
        platform::SecretServiceItemStore::Configuration configuration;
        configuration.lockFolder = running_.lockFolder();
        configuration.busAddress = running_.busAddress();
        const auto surroundings = []
        { return platform::KeychainSurroundings{{.identifier = "benchmark"}, {}}; };
        store = valet::Valet::valet(
            "Tokens", valet::Accessibility::afterFirstUnlock,
            std::make_shared<platform::StoreKeychain>(
                std::make_shared<platform::SecretServiceItemStore>(std::move(configuration)),
                surroundings));
        for (std::size_t index = 0; index < itemCount; ++index)
        {
            store->setString(value, ours());
            bare->set(bares(), value);
            bare->set(plains(), value);
        }
        require(bare->get("ours 0") != value && bare->get("bare 0") == value,
                "the two sides do not use the same attributes");
    }

    std::string ours() { return "ours " + std::to_string(ours_++ % itemCount); }
    std::string bares() { return "bare " + std::to_string(bares_++ % itemCount); }
    std::string plains() { return "once " + std::to_string(plains_++ % itemCount); }

private:
    const PrivateSecretService running_;
    std::size_t ours_ = 0;
    std::size_t bares_ = 0;
    std::size_t plains_ = 0;

public:
    std::unique_ptr<BareSecretService> bare;
    std::shared_ptr<valet::Valet> store;
};

/// What is done to the item of a name.
using Operation = std::function<void(Keyring&, const std::string&)>;

struct Row
{
    Operation ours;
    Operation bare;
    /// libsecret's one function for it.
    Operation plain;
    std::size_t rounds;
    /// What comes before each of them, unmeasured.
    Operation prepare = {};
};

const Operation setOurs = [](Keyring& keyring, const std::string& key)
{ keyring.store->setString(value, key); };
const Operation setBare = [](Keyring& keyring, const std::string& key)
{ keyring.bare->set(key, value); };
const Operation storePlainly = [](Keyring& keyring, const std::string& key)
{ keyring.bare->plainStore(key, value); };
const Operation removeOurs = [](Keyring& keyring, const std::string& key)
{ keyring.store->removeObject(key); };
const Operation removeBare = [](Keyring& keyring, const std::string& key)
{ keyring.bare->remove(key); };
const Operation clearPlainly = [](Keyring& keyring, const std::string& key)
{ keyring.bare->plainClear(key); };

// The daemon writes its whole file with each change, which takes it some ten milliseconds.
constexpr std::size_t rounds = 1500;
constexpr std::size_t roundsOfWrites = 400;

const Row adding{setOurs, setBare, storePlainly, roundsOfWrites, clearPlainly};
const Row replacing{setOurs, setBare, storePlainly, roundsOfWrites};
const Row removing{removeOurs, removeBare, clearPlainly, roundsOfWrites, storePlainly};
const Row getting{
    [](Keyring& keyring, const std::string& key)
    { require(keyring.store->string(key).view() == value, "another value"); },
    [](Keyring& keyring, const std::string& key)
    { require(keyring.bare->get(key) == value, "another value"); },
    [](Keyring& keyring, const std::string& key)
    { require(keyring.bare->plainLookup(key) == value, "another value"); },
    rounds,
};
const Row existing{
    [](Keyring& keyring, const std::string& key)
    { require(keyring.store->containsObject(key), "no such item"); },
    [](Keyring& keyring, const std::string& key)
    { require(keyring.bare->exists(key), "no such item"); },
    [](Keyring& keyring, const std::string& key)
    { require(keyring.bare->plainSearch(key), "no such item"); },
    rounds,
};
const Row lacking{
    [](Keyring& keyring, const std::string&)
    { require(!keyring.store->containsObject("none"), "an item"); },
    [](Keyring& keyring, const std::string&) { require(!keyring.bare->exists("none"), "an item"); },
    [](Keyring& keyring, const std::string&)
    { require(!keyring.bare->plainSearch("none"), "an item"); },
    rounds,
};

void compare(benchmark::State& state, const Row& row)
{
    if (!PrivateSecretService::isInstalled())
        return state.SkipWithError("It needs dbus-daemon and gnome-keyring-daemon.");
    Keyring keyring;
    std::string key;
    const auto way = [&](const char* name, auto next, const Operation& operation)
    {
        return Way{name, 1, [&](std::size_t) { operation(keyring, key); },
                   [&, next](std::size_t)
                   {
                       key = (keyring.*next)();
                       if (row.prepare)
                           row.prepare(keyring, key);
                   }};
    };
    compareInBlocks(state, {.goal = 1.1,
                            .measured = way("store", &Keyring::ours, row.ours),
                            .limit = way("same calls", &Keyring::bares, row.bare),
                            .beside = {way("one function", &Keyring::plains, row.plain)},
                            .waits = true});
}

void measure(const char* name, const Row& row)
{
    benchmark::RegisterBenchmark(name, [&row](benchmark::State& state) { compare(state, row); })
        ->Iterations(static_cast<benchmark::IterationCount>(row.rounds))
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
}

[[maybe_unused]] const bool registered = []
{
    measure("service-add", adding);
    measure("service-replace", replacing);
    measure("service-get", getting);
    measure("service-remove", removing);
    measure("service-exists", existing);
    measure("service-absent", lacking);
    return true;
}();

}  // namespace
