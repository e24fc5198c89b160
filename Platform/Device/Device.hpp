#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform
{

/// Facts about the machine and its user. May be called from any thread; throws nothing of its own.
class Device
{
public:
    virtual ~Device() = default;

    /// The hardware model as the maker wrote it ("20XW0026GE"), "Linux" where the machine names
    /// none.
    virtual std::string model() const = 0;

    /// The operating system's version as major.minor.patch, numbers alone ("12.0.0").
    virtual std::string systemVersion() const = 0;

    /// The languages that the user prefers, best first, as BCP 47 tags ("de-AT"). Empty when the
    /// user has chosen none, as in the "C" locale.
    virtual std::vector<std::string> preferredLanguages() const = 0;
};

/// Reads one variable of the environment; nothing when it is not set.
using EnvironmentReader = std::function<std::optional<std::string>(const char* name)>;

/// The machine that this program runs on. `root` and `environment` are there for tests.
std::shared_ptr<Device> systemDevice(std::filesystem::path root = "/",
                                     EnvironmentReader environment = nullptr);

}  // namespace platform
