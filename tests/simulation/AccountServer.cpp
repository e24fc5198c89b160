#include "tests/simulation/AccountServer.hpp"

namespace simulation
{

std::string refusal(std::string_view code)
{
    return R"({"code":")" + std::string(code) + R"(","message":"The server refuses."})";
}

Answer AccountServer::carryOut(const Request& request)
{
    switch (request.operation)
    {
        case Operation::oneTimeCode:
            return {.status = 204};
        case Operation::signIn:
            return signIn(request);
        case Operation::unknown:
            return {.status = 404, .body = refusal("not_found")};
        default:
            break;
    }
    if (!request.bearer || !isAlive(*request.bearer))
        return {.status = 401, .body = refusal("unauthorized")};

    auto& user = userOf(*request.bearer);
    const auto session = static_cast<std::size_t>(request.bearer->session);
    if (request.operation == Operation::info)
    {
        // The hosts of the first program are of the first client, and so on.
        const auto& info = infoFor(*request.bearer, request.host % clientCount);
        return {.body = info.text, .text = &info};
    }
    if (request.operation == Operation::signOut)
        user.alive.at(session) = false;
    if (request.operation == Operation::deleteAccount)
        user.alive = {};
    if (request.operation == Operation::consent)
        user.revision = 1;
    return {.status = 204};
}

Answer AccountServer::signIn(const Request& request)
{
    int number = request.user;
    if (request.bearer)
    {
        if (!isAlive(*request.bearer))
            return {.status = 401, .body = refusal("unauthorized")};
        number = request.bearer->user;
        userOf(*request.bearer).hasEmail = true;
    }
    const auto* token = number < 0 ? nullptr : beginSession(number);
    if (!token)
        return {.status = 500, .body = refusal("busy")};
    return {.body = token->text, .text = token};
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
