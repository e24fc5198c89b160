#include "Platform/Basics/Fatal.hpp"

#include <cstdio>
#include <cstdlib>

namespace platform
{

void fatal(std::string_view message, std::source_location place)
{
    std::fprintf(stderr, "%.*s (%s:%u)\n", static_cast<int>(message.size()), message.data(),
                 place.file_name(), static_cast<unsigned>(place.line()));
    std::abort();
}

}  // namespace platform
