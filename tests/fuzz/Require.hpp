#pragma once

#include <cstdlib>

/// What a fuzzing program takes for granted. Stops it otherwise, in every build.
inline void require(bool holds)
{
    if (!holds)
        std::abort();
}
