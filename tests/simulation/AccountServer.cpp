#include "tests/simulation/AccountServer.hpp"

namespace simulation
{

Answer answerOf(const Text& text)
{
    return {.body = text.text, .text = &text};
}

Answer refusal(int status, const std::string& code)
{
    return {.status = status,
            .body = R"({"code":")" + code + R"(","message":"The server refuses."})"};
}

Answer AccountServer::carryOut(const Request& request)
{
    if (request.operation == Operation::oneTimeCode)
        return {.status = 204};
    if (request.operation == Operation::unknown)
        return refusal(404, "not_found");
    const auto* bearer = request.bearer;
    const bool isRefused = !bearer || !isAlive(*bearer);
    if (request.operation == Operation::signIn && (!bearer || !isRefused))
        return signIn(request);
    if (isRefused)
        return refusal(401, "unauthorized");

    auto& user = users_.at(static_cast<std::size_t>(bearer->user));
    // The hosts of the first program are of the first client, and so on.
    if (request.operation == Operation::info)
        return answerOf(infoFor(*bearer, request.host % clientCount));
    if (request.operation == Operation::signOut)
        user.alive.at(static_cast<std::size_t>(bearer->session)) = false;
    if (request.operation == Operation::deleteAccount)
        user.alive = {};
    if (request.operation == Operation::consent)
        user.revision = 1;
    return {.status = 204};
}

/// With a bearer, an address is attached to its user.
Answer AccountServer::signIn(const Request& request)
{
    const int user = request.bearer ? request.bearer->user : request.user;
    if (request.bearer)
        users_.at(static_cast<std::size_t>(user)).hasEmail = true;
    const auto* token = user < 0 ? nullptr : beginSession(user);
    return token ? answerOf(*token) : refusal(500, "busy");
}

const Text* AccountServer::beginSession(int user)
{
    auto& owner = users_.at(static_cast<std::size_t>(user));
    if (owner.begun == sessionCount)
        return nullptr;
    owner.alive.at(static_cast<std::size_t>(owner.begun)) = true;
    return &Texts::shared().session(user, owner.begun++);
}

bool AccountServer::isAlive(const Text& token) const
{
    return token.isSession() && userOf(token).alive.at(static_cast<std::size_t>(token.session));
}

const Text& AccountServer::infoFor(const Text& token, int client) const
{
    const auto& user = userOf(token);
    return Texts::shared().info(token.user, client, user.revision, user.hasEmail);
}

}  // namespace simulation
