#pragma once

#include "tests/tools/Process.hpp"
#include "tools/scripted-server/ScriptedServer.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace fetch
{

using commandline::Arguments;

inline commandline::Surroundings program(std::vector<std::string> variables = {})
{
    // Whatever the proxy of the machine, and whoever runs the tests.
    variables.insert(variables.end(), {"https_proxy=", "all_proxy="});
    return {.variables = std::move(variables), .program = FETCH_PROGRAM};
}

inline commandline::Ended run(const Arguments& arguments)
{
    return commandline::run(arguments, "", program());
}

/// By way of a shell, for what a shell does to descriptors and limits; "$@" is the command.
inline commandline::Ended runInShell(const std::string& script, Arguments arguments)
{
    arguments.insert(arguments.begin(), {"-c", script, "sh", FETCH_PROGRAM});
    auto shell = program();
    shell.program = "/bin/sh";
    return commandline::run(arguments, "", shell);
}

inline std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream input(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(input), {}};
}

/// The names in a folder, sorted, with a blank between.
inline std::string namesIn(const std::filesystem::path& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::ranges::sort(names);
    std::string text;
    for (const auto& name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

/// An answer with its length.
inline std::string answer(const std::string& statusLine, const std::string& body)
{
    return "HTTP/1.1 " + statusLine + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

/// Gives each request the next of these answers.
inline ScriptedServer::Script answeringInTurn(std::vector<std::string> answers)
{
    const auto rest = std::make_shared<std::vector<std::string>>(std::move(answers));
    return [rest](ScriptedServer::Connection& connection)
    {
        while (!rest->empty() && !connection.readRequest().empty())
        {
            connection.send(rest->front());
            rest->erase(rest->begin());
        }
    };
}

}  // namespace fetch
