#include "Tessera/Tokens/CaseError.hpp"

#include "Tessera/Tokens/LocalizedText.hpp"

namespace tessera
{

std::string errorSentence(const char* key)
{
    return localizedText(key);
}

}  // namespace tessera
