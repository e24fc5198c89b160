#pragma once

#include "Platform/Basics/LocalizedError.hpp"
#include "Platform/Networking/CurlURLSession.hpp"
#include "Tessera/Model/AccountEnvironment.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tools
{

/// What a development server tells its tools: the environment, and whom to trust. The authority
/// belongs into the configuration of the URL session; a host's environment knows nothing of it.
///
/// The file is a JSON object with the members "distribution" ("Direct" or "Apple"), "server"
/// ("local", "preview" or "production"), "localizedName", "localizedKeychainIdentifier",
/// "jwtPublicKey" (an object: "algorithm" and "value", a PKCS #1 PEM), "endpointURL", "accountURL",
/// "marketingURL", and "authority": certificates in PEM, or null for those of the system. All must
/// be there; other members are ignored.
struct EnvironmentFile
{
    tessera::AccountEnvironment environment;
    std::optional<std::string> authority;

    /// A configuration that trusts the authority, with the defaults for everything else.
    platform::CurlURLSession::Configuration sessionConfiguration() const;
};

/// Why a file is no environment: one sentence that names the field, and what to do. No value of the
/// file is part of it.
class EnvironmentFileError final : public platform::LocalizedError
{
public:
    EnvironmentFileError(std::string field, std::string sentence, std::string nextStep)
        : field_(std::move(field)),
          sentence_(std::move(sentence)),
          nextStep_(std::move(nextStep)),
          whole_(sentence_ + " " + nextStep_)
    {}

    /// The path of the field, "jwtPublicKey.value"; empty when the file as a whole is refused.
    const std::string& field() const noexcept { return field_; }
    const std::string& sentence() const noexcept { return sentence_; }
    const std::string& nextStep() const noexcept { return nextStep_; }

    const char* what() const noexcept override { return whole_.c_str(); }
    std::string errorDescription() const override { return whole_; }

private:
    std::string field_;
    std::string sentence_;
    std::string nextStep_;
    std::string whole_;
};

/// Both throw `EnvironmentFileError`; of several faults, the first in the order above.
EnvironmentFile readEnvironmentFile(const std::filesystem::path& file);
EnvironmentFile parseEnvironment(std::string_view json);

}  // namespace tools
