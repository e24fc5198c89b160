#include "Platform/Security/RSASignature.hpp"
#include "tools/conformance/Judge.hpp"

#include <array>
#include <stdexcept>

namespace conformance
{
namespace
{

using boost::json::object;
using platform::HashFunction;

struct Hash
{
    std::string_view name;
    HashFunction function;
};
constexpr std::array hashes{Hash{"SHA-256", HashFunction::sha256},
                            Hash{"SHA-384", HashFunction::sha384},
                            Hash{"SHA-512", HashFunction::sha512}};

const Hash& hashNamed(std::string_view name)
{
    for (const Hash& hash : hashes)
        if (hash.name == name)
            return hash;
    throw std::invalid_argument("the data file names a hash that is not known");
}

/// A key that cannot be imported refuses too.
bool isAccepted(const object& record, const Hash& hash)
{
    const std::string key = bytesFromHex(textOf(record, "keyDerHexPkcs1"));
    const std::string message = bytesFromHex(textOf(record, "msgHex"));
    const std::string signature = bytesFromHex(textOf(record, "sigHex"));
    auto verifier = platform::RSASignatureVerifier::fromPKCS1(asBytes(key), hash.function);
    return verifier && verifier->verify(message, asBytes(signature));
}

Verdict refusedUnder(const object& record, const Hash& hash)
{
    const std::string expected = "refused under " + std::string(hash.name);
    return Verdict::passedIf(!isAccepted(record, hash), expected, "accepted");
}

/// A right signature must be wrong under every other hash.
Verdict refusedUnderOthers(const object& record, const Hash& own)
{
    for (const Hash& hash : hashes)
    {
        if (&hash == &own)
            continue;
        if (auto verdict = refusedUnder(record, hash); verdict.outcome != Verdict::Outcome::passed)
            return verdict;
    }
    return Verdict::passed();
}

Verdict judgeSignature(const object& record, const object&)
{
    const Hash& hash = hashNamed(textOf(record, "hash"));
    const bool valid = record.at("valid").as_bool();
    if (isAccepted(record, hash) != valid)
        return Verdict::failed(valid ? "accepted" : "refused", valid ? "refused" : "accepted");
    return valid && !record.contains("label") ? refusedUnderOthers(record, hash)
                                              : Verdict::passed();
}

Verdict judgeWrongHash(const object& record, const object&)
{
    for (const Hash& hash : hashes)
    {
        if (auto verdict = refusedUnder(record, hash); verdict.outcome != Verdict::Outcome::passed)
            return verdict;
    }
    return Verdict::passed();
}

/// "acceptable": the source leaves the answer open.
std::string label(const object& record)
{
    return record.contains("label") ? std::string(textOf(record, "label")) : std::string();
}

constexpr Judge judges[] = {
    {"wycheproof_rsa_pkcs1.json", nameFromID, judgeSignature, label},
    {"wycheproof_rsa_wrong_hash.json", nameFromID, judgeWrongHash},
};

}  // namespace

std::span<const Judge> signatureJudges()
{
    return judges;
}

}  // namespace conformance
