#include "benchmarks/AllocationCount.hpp"
#include "benchmarks/FixedToken.hpp"

#include "Tessera/Model/AccountInfo.hpp"
#include "Tessera/Tokens/JWTDecoder.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <span>
#include <string>

namespace
{

struct Counts
{
    std::size_t heap = 0;
    std::size_t secrets = 0;
    std::size_t openSSL = 0;
};

Counts countsOf(tessera::JWTDecoder& decoder)
{
    const Counts before{allocationcount::ofHeap(), allocationcount::ofSecrets(),
                        allocationcount::ofOpenSSL()};
    const auto token = std::as_bytes(std::span(fixedtoken::text));
    const auto jwt = decoder.decode<tessera::AccountInfo>(token);
    return {allocationcount::ofHeap() - before.heap, allocationcount::ofSecrets() - before.secrets,
            allocationcount::ofOpenSSL() - before.openSSL};
}

/// How often decoding and verifying the fixed token asks for memory: from the heap, and from the
/// pool for secrets, which together must keep the goal.
void decodeVerifyAllocations(benchmark::State& state)
{
    tessera::JWTDecoder decoder;
    decoder.setSignatureVerificationStrategy(tessera::JWTPublicKey{
        tessera::JWTPublicKeyAlgorithm::RS256, std::string(fixedtoken::publicKey)});
    // The first token imports the key, and the pool grows until it has enough.
    for (int i = 0; i < 100; ++i)
        countsOf(decoder);

    Counts most;
    for ([[maybe_unused]] const auto iteration : state)
    {
        const Counts counts = countsOf(decoder);
        most = {std::max(most.heap, counts.heap), std::max(most.secrets, counts.secrets),
                std::max(most.openSSL, counts.openSSL)};
    }
    if (most.secrets == 0 || most.openSSL == 0)
        return state.SkipWithError("not all memory was counted");
    state.counters["count"] = static_cast<double>(most.heap + most.secrets);
    state.counters["goal"] = 8;
    state.counters["of the heap"] = static_cast<double>(most.heap);
    state.counters["of the pool for secrets"] = static_cast<double>(most.secrets);
    state.counters["beside OpenSSL"] = static_cast<double>(most.openSSL);
}

BENCHMARK(decodeVerifyAllocations)
    ->Name("decode-verify-allocations")
    ->Iterations(1000)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int count, char** arguments)
{
    if (!allocationcount::tellOpenSSLApart())
        return 1;
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
}
