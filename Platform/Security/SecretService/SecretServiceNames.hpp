#pragma once

/// The names of the freedesktop Secret Service interface, version 0.2, and of the bus.
namespace platform::secretServiceNames
{

inline constexpr const char* serviceName = "org.freedesktop.secrets";
inline constexpr const char* servicePath = "/org/freedesktop/secrets";
inline constexpr const char* aliasFolder = "/org/freedesktop/secrets/aliases/";
inline constexpr const char* serviceInterface = "org.freedesktop.Secret.Service";
inline constexpr const char* collectionInterface = "org.freedesktop.Secret.Collection";
inline constexpr const char* itemInterface = "org.freedesktop.Secret.Item";
inline constexpr const char* promptInterface = "org.freedesktop.Secret.Prompt";
inline constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
inline constexpr const char* busName = "org.freedesktop.DBus";
inline constexpr const char* busPath = "/org/freedesktop/DBus";

}  // namespace platform::secretServiceNames
