#include "Platform/Networking/URLError.hpp"
#include "tests/Tessera/Session/SessionHost.hpp"

#include <gmock/gmock.h>

#include <functional>

using namespace tessera;
using platform::URLError;

namespace
{

/// What a server does instead of answering as it should, and the name of the error that comes of
/// it.
struct Fault
{
    std::string error;
    std::function<void(ScriptedURLSession::Transfer&)> happens;
};

Fault answer(std::string error, int status, std::string body)
{
    return {std::move(error),
            [status, body = std::move(body)](auto& transfer) { transfer.answer(status, body); }};
}

Fault breaks(URLError::Code code)
{
    return {URLError(code).what(),
            [code](auto& transfer) { transfer.fail(std::make_exception_ptr(URLError(code))); }};
}

/// Faults that every call can meet.
const std::vector<Fault>& faults()
{
    static const std::vector<Fault> all{
        answer("AsyncURLSessionDataTaskDecodingError.errorTypeMismatch", 500, "oh"),
        answer("AsyncURLSessionDataTaskDecodingError.errorTypeMismatch", 502, ""),
        answer("AsyncURLSessionDataTaskDecodingError.errorTypeMismatch", 302, "moved"),
        answer("AccountRemoteError.unauthorized", 401, R"({"code":"unauthorized","message":"No"})"),
        breaks(URLError::Code::connectionLost),
        breaks(URLError::Code::truncated),
        breaks(URLError::Code::timeout),
        breaks(URLError::Code::protocol),
    };
    return all;
}

/// Those, and the answers in which something other than the expected token stands.
std::vector<Fault> faultsOfTokens(const std::string& forAnother)
{
    auto all = faults();
    all.push_back(answer("JWTError.malformedToken", 200, ""));
    all.push_back(answer("JWTError.verificationFailed", 200, TokenFactory().token("{}")));
    all.push_back(answer("DecodingError.keyNotFound", 200, SessionHost::server().token("{}")));
    if (!forAnother.empty())
        all.push_back(answer("AccountError.audienceMismatch", 200, forAnother));
    return all;
}

struct ServerFaults : testing::Test
{
    std::optional<Machine> machine;
    std::optional<SessionHost> host;

    void fresh(bool signedIn)
    {
        host.reset();
        machine.emplace();
        host.emplace(*machine);
        if (signedIn)
            host->signInAs("anna");
    }

    /// The fault meets every request until the call has ended, with the waits in between.
    void meet(const Fault& fault)
    {
        for (int round = 0; round < 8; ++round)
        {
            machine->settle();
            for (const auto& transfer : std::vector(host->network->started))
                if (!transfer->ended())
                    fault.happens(*transfer);
            machine->advance(10);
        }
    }

    template <class T>
    std::string error(const Call<T>& call, const Fault& fault)
    {
        meet(fault);
        EXPECT_EQ(call.ends(), 1);
        return call.error();
    }
};

}  // namespace

TEST_F(ServerFaults, ACallThatFailsLeavesTheSessionAsItIs)
{
    using Ask = std::function<platform::Awaitable<void>(Account&)>;
    const std::vector<Ask> asks{
        [](auto& account)
        { return account.requestOneTimeCode(platform::SecretString("anna@example.org")); },
        [](auto& account) { return account.consentToTerms("2", "en"); },
        [](auto& account) { return account.requestNewsletter(); },
        [](auto& account) { return account.deleteAccount(); },
    };
    for (std::size_t index = 0; index < asks.size(); ++index)
        for (const auto& fault : faults())
        {
            SCOPED_TRACE(std::to_string(index) + ": " + fault.error);
            fresh(true);
            const auto call =
                host->start<void>(host->onMain([&] { return asks[index](*host->account); }));
            EXPECT_EQ(error(*call, fault), fault.error);
            EXPECT_EQ(host->state(), "signedIn:anna/remote");
            EXPECT_TRUE(host->stored("Token"));
            EXPECT_EQ(host->takeRequests().size(), 1u) << "no call but a refresh is made again";
        }
}

TEST_F(ServerFaults, ASignInThatGetsNoTokenChangesNothing)
{
    for (const auto& fault : faultsOfTokens(""))
    {
        SCOPED_TRACE(fault.error);
        fresh(false);
        host->launch();
        EXPECT_EQ(error(*host->signIn(), fault), fault.error);
        EXPECT_EQ(host->state(), "signedOut");
        EXPECT_FALSE(host->stored("Token"));
    }
}

TEST_F(ServerFaults, ASessionWhoseInformationDoesNotComeIsPending)
{
    for (const auto& fault : faultsOfTokens(SessionHost::info("anna", "", "other.editor.mac")))
    {
        SCOPED_TRACE(fault.error);
        fresh(false);
        const auto call = host->signIn();
        host->answer("/auth", 200, SessionHost::token("anna"));
        meet(fault);
        EXPECT_TRUE(call->succeeded());
        EXPECT_EQ(host->state(), "pending:anna!");
        EXPECT_TRUE(host->stored("Token"));
        EXPECT_FALSE(host->stored("Info"));
    }
}

TEST_F(ServerFaults, ARefreshThatFailsKeepsTheLastGoodProfile)
{
    for (const auto& fault : faultsOfTokens(SessionHost::info("anna", "", "other.editor.mac")))
    {
        SCOPED_TRACE(fault.error);
        fresh(true);
        const auto call = host->refresh();
        meet(fault);
        EXPECT_EQ(call->ends(), 1);
        EXPECT_EQ(host->state(), "signedIn:anna/remote");
        EXPECT_TRUE(host->stored("Info"));
        ASSERT_TRUE(host->account->diagnostic());
        EXPECT_FALSE(host->account->diagnostic()->message.empty());
    }
}

TEST_F(ServerFaults, ASignOutEndsHereWhateverTheServerDoes)
{
    for (const auto& fault : faults())
    {
        SCOPED_TRACE(fault.error);
        fresh(true);
        host->signOut();
        meet(fault);
        EXPECT_EQ(host->state(), "signedOut");
        EXPECT_FALSE(host->stored("Token"));
        const auto ended =
            host->start<bool>(host->onMain([&] { return host->account->serverSignOutEnded(); }));
        machine->settle();
        EXPECT_EQ(ended->value(), fault.error == "AccountRemoteError.unauthorized")
            << "a session that the server does not know any more has ended too";
    }
}
