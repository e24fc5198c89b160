#pragma once

#include <string_view>

/// What differs from one deployment of the framework to the next: the addresses and public keys of
/// the environment presets. The values here are examples that no server answers to. A deployment
/// writes a header of its own with the same names and builds with `-DTESSERA_DEPLOYMENT=its.hpp`.
///
/// Addresses end in "/". Keys are RSA public keys in PKCS #1 PEM form for RS256.
namespace tessera::deployment
{

struct ServerSettings
{
    std::string_view endpointURL;
    std::string_view accountURL;
    std::string_view marketingURL;
    std::string_view publicKey;
};

inline constexpr ServerSettings production{
    "https://api.account.example/", "https://account.example/", "https://www.account.example/",
    "-----BEGIN RSA PUBLIC KEY-----\n"
    "MIIBCgKCAQEArXXcH2qvUr/vzn62BIZQEvrWaHOkNAT0jwUoSQARbJL9/SEJ5BQb\n"
    "Y1Xul3dClN1SuMrt+BPXusX5xmZWFpPiLgZzoX+dE69B8qaDK4/rI74WEEPFcl4N\n"
    "Jp8zpZM8kNF6RAE4fuhVgml9c9lKUUDCANtgk02WcnKDYBxjc8uxPuY7+Z7wHchZ\n"
    "KbFjntr7Pro/Y3IRihIFyrji/idFll8PHEPZY679Ix0h591seiuter8LM9QxFeGs\n"
    "1pP7iBtpyV/0lmry1F5HMppC1Wt02bAvxNle13onEtef4BATETJSpwu5GptmVU7w\n"
    "2CxXHjU2f4Iy/8ZW4yOeYsyRxEnEoGCAgwIDAQAB\n"
    "-----END RSA PUBLIC KEY-----"};

inline constexpr ServerSettings preview{
    "https://api.preview.account.example/", "https://preview.account.example/",
    "https://www.preview.account.example/",
    "-----BEGIN RSA PUBLIC KEY-----\n"
    "MIIBCgKCAQEAr1p6DZnw9E8oIHM96C8qT7XTT93wfdiLJn006cstRTeKcQ9PWwYR\n"
    "5xiaiouguwrh3eqvZZV9s6vjqfJo6fc30Fi7RPAhRLKcv/rQpoBiVegscKuCOwAO\n"
    "tBQtCWIroFsE0LrZ/H4V1m/JIIEqsu8EVrMVf29Vq5a9bd34nZtxSoox8SGOwloZ\n"
    "gSgtteEECK70/8e3ZLdRfc9ZL8PlPVfi9ftPFOQQ2i5p/YArSk7kOHz6t/3Trj/C\n"
    "ZKgjJ2rtcDGnKOklGwW+zYbUHL3g7AfS47a2hAno9E+vhwjeoA0jkcQ4mH4t0iNw\n"
    "ARZs7XO55BzdrktC83PfR/NJ8lnuGqnH0wIDAQAB\n"
    "-----END RSA PUBLIC KEY-----"};

}  // namespace tessera::deployment
