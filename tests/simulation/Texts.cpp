#include "tests/simulation/Texts.hpp"

#include "tests/support/TokenFactory.hpp"

namespace simulation
{
namespace
{

std::string userClaims(int user)
{
    const auto number = std::to_string(user);
    return R"("user":"user-)" + number + R"(","uuid":"00000000-0000-4000-8000-00000000000)" +
           number + '"';
}

std::string sessionClaims(int user, int session)
{
    return "{" + userClaims(user) + R"(,"session":"session-)" + std::to_string(session) + "\"}";
}

std::string infoClaims(const std::string& audience, int user, int revision, bool hasEmail)
{
    const auto email = hasEmail ? R"("email":")" + emailOf(user) + "\"," : std::string();
    return R"({"iat":1700000000,"aud":")" + audience + "\"," + userClaims(user) + "," + email +
           R"("terms":{"accepted_revision":")" + std::to_string(revision) +
           R"(","current_revision":"1"}})";
}

}  // namespace

std::string clientIdentifier(int client)
{
    return client == 0 ? "editor" : "viewer";
}

std::string clientAudience(int client)
{
    return clientIdentifier(client) + ".mac";
}

std::string emailOf(int user)
{
    return "user-" + std::to_string(user) + "@example.org";
}

const Texts& Texts::shared()
{
    static const auto& texts = *new Texts;
    return texts;
}

Texts::Texts()
{
    const TokenFactory server;
    const TokenFactory stranger;
    key_ = server.publicKey();
    for (int user = 0; user < userCount; ++user)
        for (int session = 0; session < sessionCount; ++session)
            sessions_.push_back({.kind = TextKind::session,
                                 .user = user,
                                 .session = session,
                                 .name = "T" + std::to_string(user) + "." + std::to_string(session),
                                 .text = server.token(sessionClaims(user, session))});
    for (int user = 0; user < userCount; ++user)
        for (int client = 0; client < clientCount; ++client)
            for (int revision = 0; revision < 2; ++revision)
                for (int email = 0; email < 2; ++email)
                    infos_.push_back({.kind = TextKind::info,
                                      .user = user,
                                      .client = client,
                                      .revision = revision,
                                      .hasEmail = email == 1,
                                      .name = "I" + std::to_string(user) + "." +
                                              clientIdentifier(client).substr(0, 1) +
                                              std::to_string(revision) + (email == 1 ? "@" : ""),
                                      .text = server.token(infoClaims(clientAudience(client), user,
                                                                      revision, email == 1))});
    for (int user = 0; user < userCount; ++user)
        infosForOthers_.push_back({.kind = TextKind::info,
                                   .user = user,
                                   .hasEmail = true,
                                   .name = "I" + std::to_string(user) + ".others",
                                   .text = server.token(infoClaims("printer.mac", user, 0, true))});
    foreignSession_ = {.kind = TextKind::foreign,
                       .user = 1,
                       .name = "T.foreign",
                       .text = stranger.token(sessionClaims(1, 0))};
    foreignInfo_ = {.kind = TextKind::foreign,
                    .user = 1,
                    .name = "I.foreign",
                    .text = stranger.token(infoClaims(clientAudience(0), 1, 0, true))};
    damaged_ = {.name = "damaged", .text = "not.a.token"};

    for (const auto* list : {&sessions_, &infos_, &infosForOthers_})
        for (const auto& text : *list)
            note(text);
    for (const auto* text : {&foreignSession_, &foreignInfo_, &damaged_})
        note(*text);
}

const Text& Texts::session(int user, int session) const
{
    return sessions_.at(index(user * sessionCount + session));
}

const Text& Texts::info(int user, int client, int revision, bool hasEmail) const
{
    return infos_.at(
        index(((user * clientCount + client) * 2 + revision) * 2 + (hasEmail ? 1 : 0)));
}

const Text* Texts::find(std::string_view text) const
{
    const auto found = byText_.find(text);
    return found == byText_.end() ? nullptr : found->second;
}

}  // namespace simulation
