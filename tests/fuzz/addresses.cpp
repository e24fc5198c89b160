// An address that was understood is understood again, as the same one.

#include "Platform/Networking/URL.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto cut = text.find('\n');
    const auto url = cut == text.npos
                         ? platform::URL::parse(text)
                         : platform::URL::resolve(text.substr(0, cut), text.substr(cut + 1));
    if (url && platform::URL::parse(url->string()) != url)
        std::abort();
    return 0;
}
