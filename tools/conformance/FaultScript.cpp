#include "tools/conformance/FaultScript.hpp"

#include "tools/conformance/Judge.hpp"

#include <stdexcept>

namespace conformance
{
namespace
{

using boost::json::object;
using Connection = ScriptedServer::Connection;
using std::chrono::milliseconds;

milliseconds pauseOf(const object& step, std::string_view key)
{
    const auto* pause = step.if_contains(key);
    return milliseconds(pause ? pause->to_number<int>() : 0);
}

ScriptedServer::Script sending(const object& step)
{
    const auto op = textOf(step, "op");
    const auto bytes = bytesFromBase64(textOf(step, "base64"));
    const auto pause = pauseOf(step, "everyMs");
    if (op == "send")
        return [=](Connection& connection) { connection.send(bytes); };
    if (op == "drip")
        return [=](Connection& connection) { connection.drip(bytes, pause); };
    if (op == "repeatForever")
        return [=](Connection& connection) { connection.sendForever(bytes, pause); };
    if (op == "dripForever")
        return [=](Connection& connection)
        {
            while (connection.isOpen())
                connection.drip(bytes, pause);
        };
    throw std::invalid_argument("there is no code for the step " + std::string(op));
}

ScriptedServer::Script scriptOf(const object& step)
{
    const auto op = textOf(step, "op");
    if (op == "readRequest" || op == "readHead")
        return [](Connection& connection) { connection.readHead(); };
    if (op == "keep")
        return [](Connection&) {};
    if (op == "hold")
        return [](Connection& connection) { connection.hold(); };
    if (op == "close")
        return [](Connection& connection) { connection.close(); };
    if (op == "rst")
        return [](Connection& connection) { connection.reset(); };
    if (op == "sleep")
        return [pause = pauseOf(step, "ms")](Connection& connection) { connection.sleep(pause); };
    return sending(step);
}

}  // namespace

ScriptedServer::Script scriptOf(const boost::json::array& steps)
{
    std::vector<ScriptedServer::Script> scripts;
    for (const auto& step : steps)
        scripts.push_back(scriptOf(step.as_object()));
    return [scripts = std::move(scripts)](Connection& connection)
    {
        for (const auto& script : scripts)
            script(connection);
        connection.hold();
    };
}

}  // namespace conformance
