#include "benchmarks/AwaitedClient.hpp"
#include "benchmarks/BareConnection.hpp"
#include "benchmarks/PairedBlocks.hpp"
#include "benchmarks/Server.hpp"

namespace
{

/// The library's way to a new connection is a request to a server that closes after each answer.
///
/// The limit does the same by hand: whole handshake, request, answer, end. libcurl resumes TLS
/// sessions where the server gives tickets; that is shown beside it, by both ways.
void newConnection(benchmark::State& state)
{
    if (server().origin.empty() || server().originWithoutTickets.empty())
        return state.SkipWithError("no server");
    constexpr std::size_t count = 40;
    AwaitedClient awaited(server().originWithoutTickets + Server::closingPath, 1);
    AwaitedClient awaitedResumed(server().origin + Server::closingPath, 1);
    BareConnector bare(server().originWithoutTickets, false);
    BareConnector bareResumed(server().origin, true);

    const auto connect = [&bare](std::size_t times)
    {
        for (std::size_t i = 0; i < times; ++i)
            bare.connect();
    };
    const auto connectAndRequest = [](BareConnector& connector)
    {
        return [&connector](std::size_t times)
        {
            for (std::size_t i = 0; i < times; ++i)
                connector.connectAndRequest();
        };
    };
    compareInBlocks(
        state,
        {.goal = 1.5,
         .measured = {"awaited", count, [&](std::size_t n) { awaited.run(n); }},
         .limit = {"bare", count, connectAndRequest(bare)},
         .beside = {{"bare, nothing sent", count, connect},
                    {"awaited, resumed", count, [&](std::size_t n) { awaitedResumed.run(n); }},
                    {"bare, resumed", count, connectAndRequest(bareResumed)}}});
}

BENCHMARK(newConnection)
    ->Name("connect")
    ->Iterations(60)
    ->UseManualTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
