#include "tests/soak/CyclesProgram.hpp"

#include "Platform/Services/Services.hpp"

#include <boost/describe/enum_to_string.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace soak
{
namespace
{

std::shared_ptr<platform::Keychain> keychainIn(const std::filesystem::path& folder,
                                               const std::string& program)
{
    platform::EmbeddedItemStore::Configuration configuration;
    configuration.dataFolder = folder / "data";
    configuration.keyFolder = folder / "key";
    configuration.firstKeyMayBePlain = true;
    return std::make_shared<platform::StoreKeychain>(
        std::make_shared<platform::EmbeddedItemStore>(std::move(configuration)),
        [program]
        {
            return platform::KeychainSurroundings{.program = {.identifier = program},
                                                  .protection = {}};
        });
}

std::optional<platform::SecretString> item(const valet::Valet& store, const char* key)
{
    try
    {
        return platform::SecretString(store.object(key));
    }
    catch (const valet::KeychainError& error)
    {
        if (error.errorCase() == valet::KeychainError::itemNotFound)
            return std::nullopt;
        throw;
    }
}

tessera::AccountClient clientNamed(const std::string& identifier)
{
    return {.identifier = identifier,
            .localizedName = identifier,
            .localizedKeychainIdentifier = "Cycles " + identifier,
            .localizedShortName = identifier,
            .imageName = {},
            .version = "7.2",
            .releaseChannel = tessera::AccountReleaseChannel::public_,
            .device = {.model = "PC", .systemVersion = "12.0.0"}};
}

}  // namespace

CyclesProgram::CyclesProgram(CyclesStage& stage, tools::EnvironmentFile file,
                             const std::string& identifier, const std::filesystem::path& folder)
    : stage_(stage),
      file_(std::move(file)),
      client_(clientNamed(identifier)),
      services_(servicesOverFolders(folder)),
      environmentStore_(valet::Valet::iCloudSharedGroupValetWithExplicitlySet(
          valet::SharedGroupIdentifier::make("group", "net.ostra.account").value(),
          valet::Identifier::make(file_.environment.localizedKeychainIdentifier).value(),
          valet::CloudAccessibility::afterFirstUnlock, services_.keychain)),
      clientStore_(valet::Valet::valetWithExplicitlySet(
          valet::Identifier::make(client_.localizedKeychainIdentifier).value(),
          valet::Accessibility::afterFirstUnlock, services_.keychain))
{
    resume();
}

CyclesProgram::~CyclesProgram()
{
    rest();
    // Before the threads that they work on.
    environmentStore_.reset();
    clientStore_.reset();
    services_ = {};
    background_.stop();
    storage_.finish();
}

platform::Services CyclesProgram::servicesOverFolders(const std::filesystem::path& folder)
{
    auto services = platform::systemServices();
    services.background = background_.executor();
    services.storage = storage_.executor();
    services.clock = platform::systemClock(services.background);
    services.mainActor = stage_.loop();
    services.keychain = keychainIn(folder / "keychain", "net.ostra.cycles." + name());
    services.keyValueStore = std::make_shared<platform::FileKeyValueStore>(
        services.background,
        platform::FileKeyValueStore::Configuration{.folder = folder / "shared", .diagnostics = {}});
    services.stateFolder = folder / "state";
    return services;
}

void CyclesProgram::restartAccount()
{
    account_.reset();
    account_.emplace(file_.environment, client_, services_);
    account_->applicationWillFinishLaunching();
}

void CyclesProgram::rest()
{
    account_.reset();
    if (session_)
        session_->shutdown();
    session_.reset();
    services_.urlSession.reset();
    drain();
}

void CyclesProgram::drain()
{
    // Ends go from one thread to the other a few times.
    for (int round = 0; round < 3; ++round)
    {
        stage_.drain(services_.background);
        stage_.drain(services_.storage);
    }
}

void CyclesProgram::resume()
{
    session_ = std::make_shared<platform::CurlURLSession>(file_.sessionConfiguration());
    services_.urlSession = session_;
    restartAccount();
}

std::string CyclesProgram::inconsistency() const
{
    const auto stored = item(*environmentStore_, "Token");
    const auto held = account_->state().token();
    const bool hasInfo = item(*clientStore_, "Info").has_value();
    if (stored && !held)
        return "a token is stored, and the state of " + name() + " has none";
    if (!stored && !isSignedOut())
        return "no token is stored, and " + name() + " is not signed out";
    if (stored && *stored != *held)
        return "the token of " + name() + " is not the stored one";
    if (isSignedIn() && !hasInfo)
        return name() + " is signed in, and its account information is not stored";
    if (isSignedOut() && hasInfo)
        return name() + " is signed out, and its account information is still stored";
    return {};
}

std::string CyclesProgram::shown() const
{
    constexpr std::ptrdiff_t shownTransitions = 6;
    const auto named = [](auto value)
    { return std::string(boost::describe::enum_to_string(value, "?")); };
    const auto state = account_->state().value().index();
    auto text = name() + " " + named(static_cast<tessera::AccountStateKind>(state));
    if (const auto& noticed = account_->diagnostic())
        text += ", diagnostic " + named(noticed->code);
    const auto now = services_.clock->now().secondsSince1970;
    const auto transitions = platform::runToEnd<std::vector<tessera::AccountTransition>>(
        stage_.loop(), account_->history());
    const auto skipped = std::max<std::ptrdiff_t>(std::ssize(transitions) - shownTransitions, 0);
    for (auto each = transitions.begin() + skipped; each != transitions.end(); ++each)
        text += ", " + named(each->cause) + " " +
                std::to_string(std::lround((now - each->time.secondsSince1970) * 1e3)) + " ms ago";
    return text;
}

}  // namespace soak
