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
#include <optional>
#include <stdexcept>

namespace
{

constexpr auto help = R"(Usage: desktop-host [--environment FILE]

A window with an online account.

  --environment FILE  The environment file of a development server
                      (default: the server of the deployment)
  -h, --help          Show this and end

The options of every Qt program, like -platform and -style, are taken, too.
)";

/// What the command line asks for.
struct Options
{
    /// Nothing else is to be done then.
    bool help = false;
    /// Of a development server; else the server is the one of the deployment.
    std::optional<QString> environmentFile;
};

/// Works before there is an application: that needs a display, and help does not. Throws
/// `std::invalid_argument`.
Options readOptions(int argc, char** argv)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption askForHelp(QStringList{"h", "help"});
    const QCommandLineOption file("environment", {}, "FILE");
    parser.addOptions({askForHelp, file, QCommandLineOption("reverse")});
    // The application takes these for itself, and the one above.
    for (const auto* name : {"platform", "platformtheme", "style", "stylesheet", "session",
                             "display", "qwindowgeometry", "qwindowtitle", "qwindowicon"})
        parser.addOption(QCommandLineOption(name, {}, "VALUE"));

    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    if (!parser.parse(arguments))
        throw std::invalid_argument(parser.errorText().toStdString());
    if (!parser.positionalArguments().isEmpty())
        throw std::invalid_argument("There is an argument that is not expected here.");
    Options options;
    options.help = parser.isSet(askForHelp);
    if (parser.isSet(file))
        options.environmentFile = parser.value(file);
    return options;
}

desktop::Environment environmentFor(const Options& options)
{
    if (options.environmentFile)
        return desktop::readEnvironment(*options.environmentFile);
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

int run(int argc, char** argv)
{
    const auto options = readOptions(argc, argv);
    if (options.help)
    {
        std::cout << help;
        return 0;
    }
    const QApplication application(argc, argv);
    QApplication::setApplicationName("example-desktop");
    QApplication::setApplicationDisplayName("Example");
    auto environment = environmentFor(options);
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
    try
    {
        return run(argc, argv);
    }
    catch (const std::invalid_argument& error)
    {
        std::cerr << "desktop-host: " << error.what() << " See \"desktop-host --help\".\n";
        return 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "desktop-host: " << platform::describe(error) << "\n";
        return 1;
    }
}
