// Built with a deployment of its own in place of the library's: shows that the presets follow it,
// and that an address that does not parse stops the process.

#include "Tessera/Model/AccountEnvironment.hpp"

#include <cstdio>

int main()
{
    const auto& preview = tessera::AccountEnvironment::directPreview();
    std::puts(preview.endpointURL.string().c_str());
    std::fflush(stdout);
    (void)tessera::AccountEnvironment::directProduction();
    std::puts("the production preset was built");
    return 0;
}
