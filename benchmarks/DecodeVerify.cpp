#include "benchmarks/BareVerification.hpp"
#include "benchmarks/FixedToken.hpp"
#include "benchmarks/PairedBlocks.hpp"

#include "Tessera/Model/AccountInfo.hpp"
#include "Tessera/Tokens/JWTDecoder.hpp"

#include <span>
#include <stdexcept>
#include <string>

#include <jwt.h>

namespace
{

void require(bool good)
{
    if (!good)
        throw std::runtime_error("The fixed token does not verify");
}

/// A token decoded and verified by libjwt, which reads the key anew for each.
void decodeWithLibjwt(const std::string& token, const std::string& key)
{
    jwt_t* decoded = nullptr;
    const auto* bytes = reinterpret_cast<const unsigned char*>(key.data());
    require(jwt_decode(&decoded, token.c_str(), bytes, static_cast<int>(key.size())) == 0);
    benchmark::DoNotOptimize(jwt_get_grant(decoded, "user"));
    jwt_free(decoded);
}

void decodeVerify(benchmark::State& state)
{
    tessera::JWTDecoder decoder;
    decoder.setSignatureVerificationStrategy(tessera::JWTPublicKey{
        tessera::JWTPublicKeyAlgorithm::RS256, std::string(fixedtoken::publicKey)});
    const auto token = std::as_bytes(std::span(fixedtoken::text));
    BareVerification bare(fixedtoken::text, fixedtoken::subjectPublicKeyInfo);
    const std::string text(fixedtoken::text);
    const std::string key(fixedtoken::subjectPublicKeyInfo);

    const auto decode = [&](std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            auto jwt = decoder.decode<tessera::AccountInfo>(token);
            benchmark::DoNotOptimize(jwt);
        }
    };
    const auto verifyAlone = [&](std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            require(bare.verify());
    };
    const auto withLibjwt = [&](std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            decodeWithLibjwt(text, key);
    };
    compareInBlocks(state, {.goal = 1.10,
                            .measured = {"JWTDecoder", 100, decode},
                            .limit = {"bare verification", 100, verifyAlone},
                            .beside = {{"libjwt", 5, withLibjwt}}});
}

BENCHMARK(decodeVerify)
    ->Name("decode-verify")
    ->Iterations(600)
    ->UseManualTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
