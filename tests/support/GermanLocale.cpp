#include "tests/support/GermanLocale.hpp"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <locale>
#include <stdexcept>

GermanLocale::GermanLocale()
{
    const auto command = "localedef -i de_DE -f UTF-8 " + (folder_.path() / "de_DE.UTF-8").string();
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("localedef failed; scripts/setup installs the package locales");
    setenv("LOCPATH", folder_.path().c_str(), 1);
    std::locale::global(std::locale("de_DE.UTF-8"));
    char text[16];
    std::snprintf(text, sizeof text, "%.1f", 1.5);
    if (std::string(text) != "1,5")
        throw std::runtime_error("the locale did not take hold");
}

GermanLocale::~GermanLocale()
{
    std::locale::global(std::locale::classic());
    unsetenv("LOCPATH");
}
