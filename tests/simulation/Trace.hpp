#pragma once

#include <iostream>
#include <string>

namespace simulation
{

/// Tells what happens in a seed, when somebody wants to read it.
struct Trace
{
    bool isOn = false;

    template <class... Parts>
    void operator()(const Parts&... parts) const
    {
        if (isOn)
            (std::cout << ... << parts) << std::endl;
    }
};

}  // namespace simulation
