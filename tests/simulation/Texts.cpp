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

std::string infoClaims(const std::string& client, int user, int revision, bool hasEmail)
{
    const auto email = hasEmail ? R"("email":")" + emailOf(user) + "\"," : std::string();
    return R"({"iat":1700000000,"aud":")" + client + ".mac\"," + userClaims(user) + "," + email +
           R"("terms":{"accepted_revision":")" + std::to_string(revision) +
           R"(","current_revision":"1"}})";
}

}  // namespace

std::string clientIdentifier(int client)
{
    return client == 0 ? "editor" : "viewer";
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
    const auto addSession = [&](int user, int session)
    {
        return add({.kind = TextKind::session,
                    .user = user,
                    .session = session,
                    .name = "T" + std::to_string(user) + "." + std::to_string(session),
                    .text = server.token(sessionClaims(user, session))});
    };
    const auto addInfo = [&](int user, int client, int revision, bool hasEmail)
    {
        return add(
            {.kind = TextKind::info,
             .user = user,
             .client = client,
             .revision = revision,
             .hasEmail = hasEmail,
             .name = "I" + std::to_string(user) + "." + clientIdentifier(client).front() +
                     std::to_string(revision) + (hasEmail ? "@" : ""),
             .text = server.token(infoClaims(clientIdentifier(client), user, revision, hasEmail))});
    };
    for (int user = 0; user < userCount; ++user)
    {
        for (int session = 0; session < sessionCount; ++session)
            sessions_.push_back(addSession(user, session));
        for (int client = 0; client < clientCount; ++client)
            for (const int revision : {0, 1})
                for (const bool hasEmail : {false, true})
                    infos_.push_back(addInfo(user, client, revision, hasEmail));
        infosForOthers_.push_back(
            add({.kind = TextKind::info,
                 .user = user,
                 .hasEmail = true,
                 .name = "I" + std::to_string(user) + ".others",
                 .text = server.token(infoClaims("printer", user, 0, true))}));
    }
    foreignSession_ = add({.kind = TextKind::foreign,
                           .user = 1,
                           .name = "T.foreign",
                           .text = stranger.token(sessionClaims(1, 0))});
    foreignInfo_ = add({.kind = TextKind::foreign,
                        .user = 1,
                        .name = "I.foreign",
                        .text = stranger.token(infoClaims(clientIdentifier(0), 1, 0, true))});
    damaged_ = add({.name = "damaged", .text = "not.a.token"});
}

const Text* Texts::add(Text text)
{
    const auto& added = all_.emplace_back(std::move(text));
    byText_.emplace(added.text, &added);
    return &added;
}

const Text& Texts::session(int user, int session) const
{
    return *sessions_.at(static_cast<std::size_t>(user * sessionCount + session));
}

const Text& Texts::info(int user, int client, int revision, bool hasEmail) const
{
    const int place = ((user * clientCount + client) * 2 + revision) * 2 + (hasEmail ? 1 : 0);
    return *infos_.at(static_cast<std::size_t>(place));
}

const Text& Texts::infoForOthers(int user) const
{
    return *infosForOthers_.at(static_cast<std::size_t>(user));
}

const Text* Texts::find(std::string_view text) const
{
    const auto found = byText_.find(text);
    return found == byText_.end() ? nullptr : found->second;
}

}  // namespace simulation
