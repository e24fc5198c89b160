#pragma once

#include <string_view>

// A deployment with an address that does not parse.
namespace tessera::deployment
{

struct ServerSettings
{
    std::string_view endpointURL;
    std::string_view accountURL;
    std::string_view marketingURL;
    std::string_view publicKey;
};

inline constexpr ServerSettings production{"https://api.example/", "no address",
                                           "https://www.example/", "key"};
inline constexpr ServerSettings preview{"https://api.preview.example/", "https://preview.example/",
                                        "https://www.preview.example/", "key"};

}  // namespace tessera::deployment
