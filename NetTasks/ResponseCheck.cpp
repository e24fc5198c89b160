#include "NetTasks/ResponseCheck.hpp"

#include "Platform/Coding/Text.hpp"

namespace nettasks
{

std::string AsyncURLSessionDataTaskDecodingError::errorDescription() const
{
    constexpr std::size_t longest = 500;
    return platform::abbreviated(body_, longest);
}

const std::set<int>& acceptedStatusCodes()
{
    static const auto& codes = *new std::set<int>{200, 201, 202, 203, 204};
    return codes;
}

const platform::JSONDecoder& sharedResponseDecoder()
{
    static const auto& decoder = *new platform::JSONDecoder{
        .dateDecodingStrategy = platform::DateDecodingStrategy::formatted(
            platform::DateFormat("yyyy-MM-dd'T'HH:mm:ss.SSSZ"))};
    return decoder;
}

void detail::throwErrorTypeMismatch(const platform::SecretBytes& body)
{
    const auto bytes = body.view();
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    throw AsyncURLSessionDataTaskDecodingError::errorTypeMismatch(platform::repairedUTF8(text));
}

}  // namespace nettasks
