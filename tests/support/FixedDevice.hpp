#pragma once

#include "Platform/Device/Device.hpp"

/// A machine that a test describes.
struct FixedDevice final : platform::Device
{
    std::string deviceModel = "Bench 1";
    std::string version = "1.2.3";
    std::vector<std::string> languages;

    std::string model() const override { return deviceModel; }
    std::string systemVersion() const override { return version; }
    std::vector<std::string> preferredLanguages() const override { return languages; }
};
