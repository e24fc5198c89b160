#include "NetTasks/ResponseCheck.hpp"
#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Concurrency/RunLoop.hpp"
#include "Tessera/API/AccountService.hpp"
#include "tests/support/ScriptedURLSession.hpp"
#include "tests/support/SecretText.hpp"
#include "tests/support/ServicesForTest.hpp"

#include <gtest/gtest.h>

#include <functional>

using namespace tessera;
using platform::Awaitable;
using platform::SecretString;
using platform::Task;
using platform::URLRequest;

namespace
{

AccountEnvironment environment()
{
    auto made = AccountEnvironment::directPreview();
    made.endpointURL = *platform::URL::parse("https://api.example.net/base/path/");
    return made;
}

AccountClient client()
{
    AccountClient made;
    made.identifier = "editor";
    made.version = "7.2";
    made.releaseChannel = AccountReleaseChannel::beta;
    made.device = {"Mac14,2", "14.5.0"};
    return made;
}

AccountRequestBuilder builder(std::optional<SecretString> token)
{
    return AccountRequestBuilder(environment(), client(), "v2", std::move(token));
}

std::string header(const URLRequest& request, std::string_view name)
{
    const auto* found = request.header(name);
    return found ? std::string(found->value.view()) : "(none)";
}

using Build = std::function<URLRequest(const AccountRequestBuilder&)>;

struct Operation
{
    Build build;
    std::string method;
    std::string path;
    std::string body;
    bool acceptsJWT;
    bool authorized;
};

std::vector<Operation> operations()
{
    const auto email = [] { return SecretString("a\"b@c.d"); };
    return {
        {[=](auto& b) { return b.oneTimeCodeRequest(email()); }, "POST", "/v2/auth/one-time-code",
         R"({"email":"a\"b@c.d"})", false, false},
        {[=](auto& b) { return b.signInRequest(email(), SecretString("123456"), false); }, "POST",
         "/v2/auth", R"({"email":"a\"b@c.d","oneTimeCode":"123456"})", true, false},
        {[=](auto& b) { return b.signInRequest(email(), SecretString("123456"), true); }, "POST",
         "/v2/auth", R"({"email":"a\"b@c.d","oneTimeCode":"123456"})", true, true},
        {[](auto& b) { return b.accountInfoRequest(); }, "GET", "/v2/account", "(none)", true,
         true},
        {[](auto& b) { return b.signOutRequest(); }, "DELETE", "/v2/auth", "(none)", false, true},
        {[](auto& b) { return b.deleteAccountRequest(); }, "DELETE", "/v2/account", "(none)", false,
         true},
        {[](auto& b) { return b.newsletterRequest(); }, "POST", "/v2/account/newsletter", "(none)",
         false, true},
        {[](auto& b) { return b.consentRequest("r2", "en"); }, "POST", "/v2/legal/terms/consent",
         R"({"revision":"r2","language":"en"})", false, true},
    };
}

struct Service : testing::Test
{
    ServicesForTest services;
    std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
    std::shared_ptr<ScriptedURLSession> session = std::make_shared<ScriptedURLSession>();
    AccountService service{environment(), client(), session, platform::executorOf(loop)};

    template <class T>
    Task<T> started(Awaitable<T> work)
    {
        auto task = Task<T>::start(platform::executorOf(loop), std::move(work));
        loop->runReady();
        return task;
    }

    template <class T>
    T ended(const Task<T>& task)
    {
        return platform::runToEnd(loop, task.value());
    }

    std::string sentCredentials() const
    {
        return header(session->started.back()->request, "Authorization");
    }
};

}  // namespace

TEST(AccountRequestBuilder, EveryOperationHasItsMethodPathBodyAndHeaders)
{
    const ServicesForTest services;
    services.device->languages = {"de-CH", "en-US"};
    for (const auto& operation : operations())
    {
        const auto request = operation.build(builder(SecretString("t.o.k")));

        SCOPED_TRACE(operation.method + " " + operation.path);
        EXPECT_EQ(request.url.string(), "https://api.example.net" + operation.path);
        EXPECT_EQ(request.method, operation.method);
        EXPECT_EQ(request.body ? text(*request.body) : "(none)", operation.body);
        EXPECT_EQ(request.timeout, std::chrono::seconds(60));
        EXPECT_EQ(header(request, "content-type"), "application/json");
        EXPECT_EQ(header(request, "User-Agent"),
                  "Editor/7.2-beta Account/2026-10-17-rhubarb (Mac14,2; 14.5.0; Direct)");
        EXPECT_EQ(header(request, "Accept-Language"), "de-CH;q=1.0, en-US;q=0.8");
        EXPECT_EQ(header(request, "Accept"), operation.acceptsJWT ? "application/jwt" : "(none)");
        EXPECT_EQ(header(request, "Authorization"),
                  operation.authorized ? "Bearer t.o.k" : "(none)");
    }
}

TEST(AccountRequestBuilder, TellsWhatCannotBeBuilt)
{
    using Error = AccountRequestBuilderError;
    const ServicesForTest services;
    const auto failure =
        [](const Build& build,
           const AccountRequestBuilder& by) -> std::optional<AccountRequestBuilderErrorCase>
    {
        try
        {
            build(by);
            return std::nullopt;
        }
        catch (const Error& error)
        {
            return error.errorCase();
        }
    };
    const AccountRequestBuilder broken(environment(), client(), std::string("v2\0", 3), {});

    for (const auto& operation : operations())
        EXPECT_EQ(failure(operation.build, builder(std::nullopt)),
                  operation.authorized ? std::optional(Error::missingCredentials) : std::nullopt)
            << operation.path;
    EXPECT_EQ(failure(operations().front().build, broken), Error::malformedURL);
}

TEST(AccountRequestBuilder, LanguagesWeighLessTheLaterTheyStand)
{
    EXPECT_EQ(acceptLanguage({}), "");
    EXPECT_EQ(acceptLanguage({"a", "b", "c", "d", "e", "f", "g"}),
              "a;q=1.0, b;q=0.8, c;q=0.6, d;q=0.4, e;q=0.2, f;q=0.1, g;q=0.1");
}

TEST(AccountRemoteError, CodesAreReadLenientlyAndMessagesAreRequired)
{
    using Error = AccountRemoteError;
    using enum Error::KnownCode;
    const auto decoded = [](std::string_view json)
    { return platform::JSONDecoder().decode<Error>(json); };

    EXPECT_EQ(decoded(R"({"code":"no_consent","message":"m"})"), Error(noConsent, "m"));
    EXPECT_TRUE(decoded(R"({"code":"unauthorized","message":"m"})").is(unauthorized));
    EXPECT_TRUE(decoded(R"({"code":"reauthentication_required","message":"m"})")
                    .is(reauthenticationRequired));
    EXPECT_EQ(decoded(R"({"code":"NO_CONSENT","message":"m"})"),
              Error(Error::OtherCode{"NO_CONSENT"}, "m"));
    EXPECT_NE(Error(noConsent, "m"), Error(Error::OtherCode{"no_consent"}, "m"));
    for (const char* json :
         {R"({"message":"m"})", R"({"code":null,"message":"m"})", R"({"code":7,"message":"m"})",
          R"({"code":["unauthorized"],"message":"m","x":1})"})
        EXPECT_EQ(decoded(json), Error(std::nullopt, "m")) << json;
    for (const char* json : {R"({"code":"unauthorized"})", R"({"message":7})", R"("m")", ""})
        EXPECT_THROW(decoded(json), platform::DecodingError) << json;
}

TEST(AccountRemoteError, AnEmptyMessageIsDescribedInGeneralTermsAndNoTextIsLogged)
{
    const ServicesForTest services;
    const AccountRemoteError empty(AccountRemoteError::KnownCode::noConsent, "");
    const AccountRemoteError spoken(AccountRemoteError::OtherCode{"new_code"}, "secret words");

    EXPECT_FALSE(empty.errorDescription().empty());
    EXPECT_EQ(spoken.errorDescription(), "secret words");
    EXPECT_STREQ(spoken.what(), "AccountRemoteError.other");
}

TEST_F(Service, TheStoredTokenAuthorisesAndTheGivenOneSignsOut)
{
    ended(started(service.authenticate(SecretString("stored"))));
    auto info = started(service.info());
    EXPECT_EQ(sentCredentials(), "Bearer stored");
    session->started.back()->answer(200, "i.n.fo\n");
    EXPECT_EQ(ended(info), SecretString("i.n.fo\n")) << "the answer is handed on to the byte";

    ended(started(service.deauthenticate()));
    auto signOut = started(service.signOut(SecretString("old")));
    EXPECT_EQ(sentCredentials(), "Bearer old");
    session->started.back()->answer(204, "");
    EXPECT_NO_THROW(ended(signOut));

    auto deletion = started(service.deleteAccount(SecretString("gone")));
    EXPECT_EQ(sentCredentials(), "Bearer gone");
    session->started.back()->answer(204, "");
    EXPECT_NO_THROW(ended(deletion));
}

TEST_F(Service, ACallReadsTheTokenOnceWhenItIsBuilt)
{
    ended(started(service.authenticate(SecretString("first"))));
    auto info = started(service.info());
    ended(started(service.authenticate(SecretString("second"))));
    auto later = started(service.requestNewsletter());

    EXPECT_EQ(header(session->started[0]->request, "Authorization"), "Bearer first");
    EXPECT_EQ(header(session->started[1]->request, "Authorization"), "Bearer second");
    session->started[1]->answer(200, "");
    session->started[0]->answer(200, "i");
    EXPECT_NO_THROW(ended(later));
    EXPECT_EQ(ended(info), SecretString("i"));
}

TEST_F(Service, CancelledCallersSendNothingAndLearnFirstWhatCannotBeBuilt)
{
    auto calls = [](AccountService& ofService, bool authorized)
    {
        return authorized ? ofService.info()
                          : ofService.signIn(SecretString("a"), SecretString("1"), false);
    };
    auto cancelledBefore = [](std::shared_ptr<ManualClock> clock,
                              Awaitable<SecretString> call) -> Awaitable<SecretString>
    {
        auto wait = clock->sleep(1);
        auto ended = co_await platform::detail::outcomeOf<void>(std::move(wait));
        EXPECT_FALSE(ended.succeeded());
        co_return co_await std::move(call);
    };
    for (const bool authorized : {false, true})
    {
        auto task =
            Task<SecretString>::start(platform::executorOf(loop),
                                      cancelledBefore(services.clock, calls(service, authorized)));
        task.cancel();
        if (authorized)
            EXPECT_THROW(ended(task), AccountRequestBuilderError);
        else
            EXPECT_THROW(ended(task), platform::CancellationError);
    }
    EXPECT_TRUE(session->started.empty());
}

TEST_F(Service, RefusalsAreTypedAndACancelledTransferEndsAsCancelled)
{
    auto refused = started(service.requestOneTimeCode(SecretString("a@b.c")));
    session->started.back()->answer(401, R"({"code":"unauthorized","message":""})");
    EXPECT_THROW(ended(refused), AccountRemoteError);

    auto unknown = started(service.requestOneTimeCode(SecretString("a@b.c")));
    session->started.back()->answer(301, "elsewhere");
    EXPECT_THROW(ended(unknown), nettasks::AsyncURLSessionDataTaskDecodingError);

    auto cancelled = started(service.requestOneTimeCode(SecretString("a@b.c")));
    cancelled.cancel();
    loop->runReady();
    EXPECT_TRUE(session->started.back()->ended());
    EXPECT_THROW(ended(cancelled), platform::CancellationError);
}

TEST_F(Service, CallsOutliveTheServiceAndEndOnce)
{
    auto shortLived = std::make_unique<AccountService>(environment(), client(), session,
                                                       platform::executorOf(loop));
    auto call = started(shortLived->requestOneTimeCode(SecretString("a@b.c")));
    shortLived.reset();
    session->started.back()->answer(204, "");

    EXPECT_NO_THROW(ended(call));
}
