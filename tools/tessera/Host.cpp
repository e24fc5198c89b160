#include "tools/tessera/Host.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "Tessera/Model/AccountError.hpp"
#include "tools/environment/EnvironmentFile.hpp"
#include "tools/shared/Terminal.hpp"
#include "tools/tessera/Input.hpp"
#include "tools/tessera/keychain/EmbeddedFiles.hpp"

#include <boost/asio/post.hpp>

#include <system_error>

namespace commandline
{
namespace
{

using platform::SecretString;
using tessera::AccountEnvironment;
using tessera::AccountError;

/// The name under which this program's items are kept. It never changes: they are found by it.
constexpr auto programIdentifier = "net.ostra.tessera";

AccountEnvironment preset(const std::string& name)
{
    if (name == "appleProduction")
        return AccountEnvironment::appleProduction();
    if (name == "directPreview")
        return AccountEnvironment::directPreview();
    if (name == "applePreview")
        return AccountEnvironment::applePreview();
    return AccountEnvironment::directProduction();
}

tools::EnvironmentFile environmentOf(const Command& command)
{
    if (command.environmentFile.empty())
        return {preset(command.preset), std::nullopt};
    return tools::readEnvironmentFile(command.environmentFile);
}

/// Account information is for one client of one environment, so each pair keeps its own.
tessera::AccountClient client(const std::string& identifier, const AccountEnvironment& environment)
{
    return {
        .identifier = identifier,
        .localizedName = "Tessera",
        .localizedKeychainIdentifier = environment.localizedKeychainIdentifier + "." + identifier,
        .localizedShortName = "Tessera",
        .imageName = "",
        .version = TESSERA_VERSION,
        .releaseChannel = tessera::AccountReleaseChannel::public_,
        .device = tessera::AccountDevice::current()};
}

SecretString passphraseFrom(int descriptor, const Interrupts& interrupts)
{
    try
    {
        auto line = readLineFrom(descriptor, interrupts);
        if (line && !line->empty())
            return *std::move(line);
    }
    catch (const std::system_error&)
    {
        throw Failure(
            {ExitCode::usage, "unreadableDescriptor",
             "The passphrase cannot be read from descriptor " + std::to_string(descriptor) + ".",
             "Open it in the shell, like \"3< file\"."});
    }
    throw Failure({ExitCode::declined, "noAnswer", "No passphrase was given.",
                   "Run the command again and give one."});
}

}  // namespace

Host::Host(const Command& command, Interrupts& interrupts) : interrupts_(interrupts)
{
    auto environment = environmentOf(command);
    serverName_ = environment.environment.endpointURL.host();
    auto configuration = environment.sessionConfiguration();
    configuration.timeLimit = command.timeLimit;
    if (command.passphraseDescriptor)
        passphrase_ = passphraseFrom(*command.passphraseDescriptor, interrupts);
    session_ = std::make_shared<platform::CurlURLSession>(std::move(configuration));
    auto ours = services(command);
    before_ = platform::replaceServices(ours);
    auto tessera = client(command.clientIdentifier, environment.environment);
    account_ = std::make_unique<tessera::Account>(std::move(environment.environment),
                                                  std::move(tessera), std::move(ours));
}

Host::~Host()
{
    account_.reset();
    finishWriting();
    // Whoever still holds the session, its thread must not outlive `main`.
    session_->shutdown();
    platform::replaceServices(std::move(before_));
}

platform::Services Host::services(const Command& command)
{
    auto ours = platform::services();
    ours.mainActor = loop_;
    ours.urlSession = session_;
    ours.program = {.identifier = programIdentifier};
    ours.diagnostics = [log = log_](const auto& diagnostic) { log->add(diagnostic); };
    ours.passphrase = [this] { return passphrase(); };
    // Nothing of the session is looked at, so that nothing happens to it.
    if (command.verb == Verb::requestCode)
        ours.keyValueStore = nullptr;
    return ours;
}

/// Called on the thread of the store that is opened.
std::optional<SecretString> Host::passphrase()
{
    const std::lock_guard lock(passphraseMutex_);
    try
    {
        // A first key is wrapped only if a passphrase was given: nobody is asked for one unawares.
        const bool needed = !passphrase_ && keyIsWrapped(embeddedPlaces());
        if (needed && canAsk())
            passphrase_ = askSecretly("Passphrase of the keychain: ", interrupts_);
        else if (needed)
            unasked_ = true;
    }
    catch (const std::exception&)
    {
        // Not answered; the store then says that it is locked.
    }
    return passphrase_;
}

std::optional<Report> Host::unasked() const
{
    if (!unasked_)
        return std::nullopt;
    return Report{ExitCode::keychain, "AccountError.keychainAccess",
                  "The keychain is locked: its passphrase was not given.",
                  "Give it with --passphrase-fd N, or run this at a terminal."};
}

std::optional<Report> Host::restore()
{
    const auto isLoading = [this]
    { return account_->state().get<tessera::AccountState::Loading>() != nullptr; };
    account_->applicationWillFinishLaunching();
    runUntil([&] { return !isLoading() || account_->diagnostic(); });
    if (interrupts_.signal() != 0)
        throw platform::CancellationError();
    if (!isLoading())
        return std::nullopt;

    const auto& problem = *account_->diagnostic();
    if (problem.code == tessera::AccountDiagnosticCode::keychainUnreadable)
        throw AccountError(AccountError::keychainAccess);
    return Report{ExitCode::verification, "storedSession",
                  "The stored session is not this server's, or is damaged.",
                  "Sign in anew with \"tessera sign-in\"."};
}

void Host::runUntil(const std::function<bool()>& ended)
{
    interrupts_.onSignal([loop = loop_] { loop->enqueue([] {}); });
    loop_->runUntil([&] { return interrupts_.signal() != 0 || ended(); });
    interrupts_.onSignal(nullptr);
}

std::optional<bool> Host::waitForServerSignOut()
{
    constexpr std::uint64_t longest = 5'000'000'000;
    const Waiting waiting(loop_, "Waiting for " + serverName_);
    const auto executor = platform::executorOf(loop_);
    const auto timer =
        platform::Task<void>::start(executor, platform::services().clock->sleep(longest));
    std::optional<platform::Outcome<bool>> answer;
    const auto call =
        platform::start<bool>(executor, account_->serverSignOutEnded(),
                              [&](platform::Outcome<bool> end) { answer = std::move(end); });
    loop_->runUntil([&] { return answer || timer.finished(); });
    const auto confirmed = answer ? std::optional(std::move(*answer).get()) : std::nullopt;
    call.cancel();
    timer.cancel();
    loop_->runUntil([&] { return call.finished() && timer.finished(); });
    return confirmed;
}

/// What still waits for the disk, the history's last line for one, may ask for the passphrase, and
/// tells what went wrong: both end with this object.
void Host::finishWriting()
{
    const auto written = std::make_shared<bool>(false);
    boost::asio::post(platform::services().storage,
                      [loop = loop_, written] { loop->enqueue([written] { *written = true; }); });
    loop_->runUntil([written] { return *written; });
}

}  // namespace commandline
