#include "Tessera/Model/AccountReleaseChannel.hpp"

#include "Tessera/Tokens/LocalizedText.hpp"

#include <array>

namespace tessera
{
namespace
{

struct ChannelTexts
{
    std::string_view userAgent;
    std::string_view titleKey;
};

ChannelTexts textsOf(AccountReleaseChannel channel)
{
    constexpr std::array<ChannelTexts, 4> texts{{{"-alpha", "Private_Release_Channel"},
                                                 {"-alpha", "Alpha_Release_Channel"},
                                                 {"-beta", "Beta_Release_Channel"},
                                                 {"", "Public_Release_Channel"}}};
    return texts.at(static_cast<std::size_t>(channel));
}

}  // namespace

std::string_view userAgentString(AccountReleaseChannel channel)
{
    return textsOf(channel).userAgent;
}

std::string localizedTitle(AccountReleaseChannel channel)
{
    return localizedText(textsOf(channel).titleKey);
}

}  // namespace tessera
