// The main thread of a Qt program.

#include <Adapters/Qt/QtMainActor.hpp>
#include <Platform/Concurrency/Task.hpp>
#include <Platform/Services/Services.hpp>

#include <QtCore/QCoreApplication>

#include <iostream>

namespace
{

/// A coroutine of the host's own on its main thread, which is free while this waits.
platform::Awaitable<void> greet(platform::Services services)
{
    co_await services.clock->sleep(1'000'000);
    if (services.mainActor->isCurrent())
        std::cout << "Back on the main thread." << std::endl;
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);

    auto services = platform::systemServices();
    services.mainActor = qt::mainActor();
    platform::replaceServices(services);

    platform::start<void>(platform::executorOf(services.mainActor), greet(services),
                          [](platform::Outcome<void>) { QCoreApplication::quit(); });
    return application.exec();
}
