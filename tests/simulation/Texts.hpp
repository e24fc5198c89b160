#pragma once

#include "Tessera/Tokens/JWTPublicKey.hpp"

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace simulation
{

/// User 0 has no e-mail address until one is attached.
inline constexpr int userCount = 3;
inline constexpr int clientCount = 2;
/// So many sessions each user can begin in the time of one seed.
inline constexpr int sessionCount = 24;

enum class TextKind
{
    session,
    info,
    /// Session token or information that the server's key did not sign.
    foreign,
    /// Not a token at all.
    damaged
};

/// A token or an information text, and what it says.
struct Text
{
    TextKind kind = TextKind::damaged;
    int user = -1;
    /// Of a session token.
    int session = -1;
    /// Of an information text: whose audience, which revision was accepted, whether it has an
    /// address.
    int client = -1;
    int revision = 0;
    bool hasEmail = false;
    /// What the trace calls it.
    std::string name;
    std::string text;

    bool isSession() const { return kind == TextKind::session; }
    bool isInfo() const { return kind == TextKind::info; }
};

/// Every token that a simulated server may issue, signed once before the first seed: signing takes
/// a thousand times as long as a step.
class Texts
{
public:
    static const Texts& shared();

    const tessera::JWTPublicKey& publicKey() const { return key_; }

    const Text& session(int user, int session) const;
    const Text& info(int user, int client, int revision, bool hasEmail) const;
    /// For no client of the simulation.
    const Text& infoForOthers(int user) const;
    const Text& foreignSession() const { return *foreignSession_; }
    const Text& foreignInfo() const { return *foreignInfo_; }
    const Text& damaged() const { return *damaged_; }

    /// Null for a text that is none of them.
    const Text* find(std::string_view text) const;

private:
    Texts();
    const Text* add(Text text);

    tessera::JWTPublicKey key_;
    std::deque<Text> all_;
    std::vector<const Text*> sessions_;
    std::vector<const Text*> infos_;
    std::vector<const Text*> infosForOthers_;
    const Text* foreignSession_;
    const Text* foreignInfo_;
    const Text* damaged_;
    std::unordered_map<std::string_view, const Text*> byText_;
};

std::string clientIdentifier(int client);
std::string emailOf(int user);

}  // namespace simulation
