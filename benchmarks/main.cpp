#include "benchmarks/Server.hpp"

#include <benchmark/benchmark.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string_view>

#include <curl/curl.h>

namespace
{

std::string contentOf(const std::string& file)
{
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Takes --server=ORIGIN, --server-without-tickets=ORIGIN, --authority=FILE and --state=FOLDER, and
/// leaves the rest to Google Benchmark. Returns how many arguments are left.
int takeServer(int count, char** arguments)
{
    int kept = 1;
    for (int index = 1; index < count; ++index)
    {
        const std::string_view argument = arguments[index];
        const auto equals = argument.find('=');
        const auto name = argument.substr(0, equals);
        const std::string value(equals == argument.npos ? "" : argument.substr(equals + 1));
        if (name == "--server")
            server().origin = value;
        else if (name == "--server-without-tickets")
            server().originWithoutTickets = value;
        else if (name == "--authority")
            server().authority = contentOf(value);
        else if (name == "--state")
            server().state = value;
        else
            arguments[kept++] = arguments[index];
    }
    return kept;
}

}  // namespace

int main(int count, char** arguments)
{
    // What OpenSSL writes to a connection that the server has closed.
    std::signal(SIGPIPE, SIG_IGN);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    count = takeServer(count, arguments);
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
}
