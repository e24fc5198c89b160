// What the decoder accepts, the encoder writes so that it is read back equal.

#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Coding/JSONEncoder.hpp"
#include "Tessera/Tokens/JWTHeader.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const platform::JSONDecoder decoder;
    try
    {
        const auto header = decoder.decode<tessera::JWTHeader>(
            std::span(reinterpret_cast<const std::byte*>(data), size));
        if (decoder.decode<tessera::JWTHeader>(platform::JSONEncoder().encode(header)) != header)
            std::abort();
    }
    catch (const platform::DecodingError&)
    {}
    return 0;
}
