// A desktop program that gives its user an account, in a window of Qt Widgets.
//
//     desktop-host
//         at the production server that the library was built for
//     desktop-host --environment FILE
//         at a development server, see its documentation

#include "AccountObject.hpp"
#include "AccountWindow.hpp"
#include "Environment.hpp"

#include <Adapters/Qt/QtMainActor.hpp>
#include <Platform/Basics/LocalizedError.hpp>
#include <Platform/Services/Services.hpp>

#include <QtCore/QCommandLineParser>
#include <QtWidgets/QApplication>

#include <iostream>

namespace
{

/// The server that the user names, or the one of the deployment.
desktop::Environment environmentFrom(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QCoreApplication::tr("A window with an online account."));
    parser.addHelpOption();
    const QCommandLineOption file(
        "environment", QCoreApplication::tr("The environment file of a development server."),
        "FILE");
    parser.addOption(file);
    parser.process(arguments);
    if (parser.isSet(file))
        return desktop::readEnvironment(parser.value(file));
    return {tessera::AccountEnvironment::directProduction(), std::nullopt};
}

tessera::AccountClient client()
{
    tessera::AccountClient client;
    client.identifier = "example";
    client.localizedName = client.localizedShortName = "Example";
    client.localizedKeychainIdentifier = "Example Account";
    client.version = "1.0";
    client.device = tessera::AccountDevice::current();
    return client;
}

int run(const QApplication& application)
{
    auto environment = environmentFrom(QApplication::arguments());
    const auto session = std::make_shared<platform::CurlURLSession>(environment.configuration());
    {
        auto services = platform::systemServices();
        services.mainActor = qt::mainActor();
        services.program.identifier = "com.example.desktop";
        platform::replaceServices(services);
        services.urlSession = session;

        desktop::AccountObject account(std::move(environment.account), client(), services);
        desktop::AccountWindow window(account);
        window.show();
        account.launch();
        application.exec();
    }
    // Its thread must not outlive `main`.
    session->shutdown();
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const QApplication application(argc, argv);
    QApplication::setApplicationName("example-desktop");
    QApplication::setApplicationDisplayName("Example");
    try
    {
        return run(application);
    }
    catch (const std::exception& error)
    {
        std::cerr << "desktop-host: " << platform::describe(error) << "\n";
        return 1;
    }
}
