// Never linked: shows what a compiler says of it.

#include "Valet/SecureEnclaveValet.hpp"
#include "Valet/SinglePromptSecureEnclaveValet.hpp"
#include "Valet/Valet.hpp"

using Store = valet::STORE;

void use(const std::shared_ptr<Store>& made)
{
    made->removeAllObjects();
#ifdef ARGUMENTS
    (void)new Store(ARGUMENTS);
#endif
}
