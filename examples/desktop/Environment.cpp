#include "Environment.hpp"

#include <Platform/Coding/JSONKeys.hpp>

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <stdexcept>

namespace desktop
{
namespace
{

[[noreturn]] void refuse(const QString& name)
{
    throw std::runtime_error("The environment file has no proper \"" + name.toStdString() +
                             "\". Use the one that the account server writes.");
}

std::string text(const QJsonObject& object, const QString& name)
{
    if (!object[name].isString())
        refuse(name);
    return object[name].toString().toStdString();
}

platform::URL address(const QJsonObject& object, const QString& name)
{
    auto url = platform::URL::parse(text(object, name));
    if (!url)
        refuse(name);
    return *std::move(url);
}

template <class Enum>
Enum oneOf(const QJsonObject& object, const QString& name)
{
    const auto value = platform::fromRawValue<Enum>(text(object, name));
    if (!value)
        refuse(name);
    return *value;
}

}  // namespace

Environment readEnvironment(const QString& file)
{
    QFile content(file);
    if (!content.open(QIODevice::ReadOnly))
        throw std::runtime_error("The environment file " + file.toStdString() +
                                 " cannot be read. Check the path, and that the account server "
                                 "has started.");
    const auto json = QJsonDocument::fromJson(content.readAll()).object();
    const auto key = json["jwtPublicKey"].toObject();

    using tessera::AccountEnvironment;
    AccountEnvironment account{
        .distribution = oneOf<AccountEnvironment::Distribution>(json, "distribution"),
        .server = oneOf<AccountEnvironment::Server>(json, "server"),
        .localizedName = text(json, "localizedName"),
        .localizedKeychainIdentifier = text(json, "localizedKeychainIdentifier"),
        .jwtPublicKey = {oneOf<tessera::JWTPublicKeyAlgorithm>(key, "algorithm"),
                         text(key, "value")},
        .endpointURL = address(json, "endpointURL"),
        .accountURL = address(json, "accountURL"),
        .marketingURL = address(json, "marketingURL")};
    std::optional<std::string> authority;
    if (!json["authority"].isNull())
        authority = text(json, "authority");
    return {std::move(account), std::move(authority)};
}

}  // namespace desktop
