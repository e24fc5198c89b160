#pragma once

#include "tests/support/TemporaryFolder.hpp"

#include <string>

/// Sets the locale of the whole process to one that writes "1,5" for one and a half, for the length
/// of a test; both the C library's and C++'s. It is compiled for the test, so that the machine need
/// not have it.
class GermanLocale
{
public:
    GermanLocale();
    ~GermanLocale();
    GermanLocale(const GermanLocale&) = delete;
    GermanLocale& operator=(const GermanLocale&) = delete;

private:
    TemporaryFolder folder_;
};
