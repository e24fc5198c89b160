// Tokens of any content end in a token or in a typed error.

#include "Platform/Basics/LocalizedError.hpp"
#include "Tessera/Model/AccountInfo.hpp"
#include "Tessera/Tokens/JWTDecoder.hpp"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static tessera::JWTDecoder decoder;
    try
    {
        decoder.decode<tessera::AccountInfo>({reinterpret_cast<const std::byte*>(data), size});
    }
    catch (const platform::LocalizedError&)
    {}
    return 0;
}
