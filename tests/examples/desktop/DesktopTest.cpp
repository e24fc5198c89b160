#include "examples/desktop/AccountObject.hpp"
#include "examples/desktop/AccountWindow.hpp"
#include "examples/desktop/Environment.hpp"

#include "Adapters/Qt/QtMainActor.hpp"
#include "Platform/Services/Services.hpp"

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtGui/QScreen>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPushButton>

#include <memory>

namespace
{

constexpr int patience = 20'000;
const QString email = "anna@example.org";

/// The account server as a program of its own.
class Server
{
public:
    explicit Server(QString state) : state_(std::move(state)) { start(); }
    ~Server() { stop(); }

    /// At the same address as before.
    void start()
    {
        process_.start(ACCOUNT_SERVER_PROGRAM, {"--state", state_, "--port", port_, "--quiet"});
        while (!process_.canReadLine() && process_.waitForReadyRead(patience))
        {
        }
        const QString line = process_.readLine();
        if (!line.startsWith("listening on "))
            qFatal("the account server did not start");
        port_ = QString::number(QUrl(line.trimmed().section(' ', -1)).port());
    }

    void stop()
    {
        process_.terminate();
        process_.waitForFinished(patience);
    }

    QString environmentFile() const { return state_ + "/environment.json"; }

    QString newestCode() const
    {
        QProcess mailbox;
        mailbox.start(ACCOUNT_SERVER_PROGRAM, {"mailbox", "--state", state_, "--email", email});
        mailbox.waitForFinished(patience);
        return QString(mailbox.readAllStandardOutput()).trimmed();
    }

private:
    QString state_;
    QString port_ = "0";
    QProcess process_;
};

/// A program with the example's window, at the server.
struct Program
{
    explicit Program(const Server& server)
        : environment(desktop::readEnvironment(server.environmentFile())),
          session(std::make_shared<platform::CurlURLSession>(environment.configuration())),
          account(environment.account, client(), services(session)),
          window(account)
    {
        window.show();
        // There is no window manager that would do it.
        window.activateWindow();
        account.launch();
    }

    static tessera::AccountClient client()
    {
        tessera::AccountClient client;
        client.identifier = "example";
        client.localizedName = client.localizedShortName = "Example";
        client.localizedKeychainIdentifier = "Example Account";
        client.version = "1.0";
        client.device = tessera::AccountDevice::current();
        return client;
    }

    static platform::Services services(const std::shared_ptr<platform::URLSession>& session)
    {
        auto services = platform::systemServices();
        services.mainActor = qt::mainActor();
        services.program.identifier = "com.example.desktop";
        platform::replaceServices(services);
        services.urlSession = session;
        return services;
    }

    template <class Widget>
    Widget* find(const char* name) const
    {
        auto* const found = window.findChild<Widget*>(name);
        if (!found)
            qFatal("there is no %s", name);
        return found;
    }

    bool shows(const char* name) const { return find<QWidget>(name)->isVisible(); }
    QString text(const char* name) const { return find<QLabel>(name)->text(); }
    bool says(const char* name, const char* part) const
    {
        return shows(name) && text(name).contains(part);
    }

    void type(const char* name, const QString& text) const
    {
        auto* const field = find<QLineEdit>(name);
        field->selectAll();
        QTest::keyClicks(field, text);
        QTest::keyClick(field, Qt::Key_Return);
    }
    void press(const char* name) const
    {
        QTest::mouseClick(find<QPushButton>(name), Qt::LeftButton);
    }

    /// What is on the screen where the window is.
    void photograph(const QString& name)
    {
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        // What Qt has drawn is there when the X server has answered.
        QTest::qWait(0);
        const auto picture = window.screen()->grabWindow(window.winId());
        QCOMPARE(picture.size(), window.size() * window.devicePixelRatio());
        QVERIFY(picture.save(QString(SCREENSHOTS) + "/desktop-" + name + ".png"));
    }

    desktop::Environment environment;
    std::shared_ptr<platform::CurlURLSession> session;
    desktop::AccountObject account;
    desktop::AccountWindow window;
};

class DesktopTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        server_ = std::make_unique<Server>(QDir(QDir::homePath()).filePath("server"));
        program_ = std::make_unique<Program>(*server_);
        QTRY_VERIFY_WITH_TIMEOUT(program_->shows("email"), patience);
        QVERIFY(QTest::qWaitForWindowActive(&program_->window, patience));
    }
    void cleanup()
    {
        program_.reset();
        server_.reset();
    }

    void signsInConsentsSubscribesAndSignsOut();
    void tellsErrorsUnderTheField();
    void followsAnotherProgram();
    void deletesTheAccountAfterAQuestion();
    void closesWithWorkInFlight();
    void loadsTheAccountWhenTheServerIsBack();

private:
    void signIn();
    void asAnotherProgram(QStringList words) const;

    std::unique_ptr<Server> server_;
    std::unique_ptr<Program> program_;
};

void DesktopTest::signIn()
{
    auto& program = *program_;
    program.type("email", email);
    QTRY_VERIFY_WITH_TIMEOUT(program.says("codeSent", "anna@example.org"), patience);
    program.type("code", server_->newestCode());
    QTRY_VERIFY_WITH_TIMEOUT(program.shows("name"), patience);
}

void DesktopTest::asAnotherProgram(QStringList words) const
{
    QProcess program;
    program.start(TESSERA_PROGRAM, words << "--environment" << server_->environmentFile());
    QVERIFY(program.waitForFinished(patience));
    QCOMPARE(program.exitCode(), 0);
}

void DesktopTest::signsInConsentsSubscribesAndSignsOut()
{
    auto& program = *program_;
    program.photograph("sign-in");
    program.type("email", email);
    QTRY_VERIFY_WITH_TIMEOUT(program.says("codeSent", "anna@example.org"), patience);
    QVERIFY(program.find<QLineEdit>("code")->hasFocus());
    program.photograph("code");

    program.type("code", server_->newestCode());
    QTRY_VERIFY_WITH_TIMEOUT(program.says("name", "anna@example.org"), patience);
    QVERIFY(program.says("user", "user-"));
    QVERIFY(program.says("termsText", "accept the terms of 2026-10-01"));
    program.photograph("signed-in");

    program.press("subscribe");
    QTRY_COMPARE_WITH_TIMEOUT(program.text("newsletterError"), "Accept the current terms first.",
                              patience);
    program.press("acceptTerms");
    QTRY_VERIFY_WITH_TIMEOUT(!program.shows("terms"), patience);
    QVERIFY(program.says("acceptedTerms", "2026-10-01"));
    program.press("subscribe");
    QTRY_VERIFY_WITH_TIMEOUT(program.says("newsletterText", "You are subscribed"), patience);
    QVERIFY(!program.shows("subscribe"));
    QVERIFY(program.text("newsletterError").isEmpty());
    program.photograph("all-done");

    program.press("signOut");
    QVERIFY(program.shows("signOutQuestion"));
    program.press("goOn");
    QTRY_VERIFY_WITH_TIMEOUT(program.shows("email"), patience);
    QTRY_VERIFY(!program.window.findChild<QWidget*>("signOutQuestion"));
}

void DesktopTest::tellsErrorsUnderTheField()
{
    auto& program = *program_;
    program.type("email", "");
    QCOMPARE(program.text("emailError"), "Please type your e-mail address.");
    program.type("email", "anna");
    QTRY_COMPARE_WITH_TIMEOUT(program.text("emailError"), "This is not an e-mail address.",
                              patience);
    QVERIFY(program.find<QLineEdit>("email")->hasFocus());

    program.type("email", email);
    QTRY_VERIFY_WITH_TIMEOUT(program.shows("code"), patience);
    program.type("code", "none");
    QTRY_COMPARE_WITH_TIMEOUT(program.text("codeError"),
                              "The code is not right. Check it or ask for a new one.", patience);
    program.photograph("error");
    const auto light = QApplication::palette();
    QApplication::setPalette(QPalette(QColor(48, 48, 52)));
    program.photograph("error-dark");
    QApplication::setPalette(light);
    const auto first = server_->newestCode();
    program.press("sendAgain");
    QTRY_VERIFY_WITH_TIMEOUT(program.says("codeSent", "a new code"), patience);
    QVERIFY(program.text("codeError").isEmpty());

    server_->stop();
    program.type("code", first);
    QTRY_VERIFY_WITH_TIMEOUT(program.says("codeError", "No connection to the server"), patience);
    program.press("back");
    QVERIFY(program.shows("email"));
    QVERIFY(program.find<QLineEdit>("code")->text().isEmpty());
}

void DesktopTest::followsAnotherProgram()
{
    asAnotherProgram({"request-code", "--email", email});
    asAnotherProgram({"sign-in", "--email", email, "--code", server_->newestCode()});
    QTRY_VERIFY_WITH_TIMEOUT(program_->says("name", "anna@example.org"), patience);

    program_->press("signOut");
    asAnotherProgram({"sign-out"});
    QTRY_VERIFY_WITH_TIMEOUT(program_->shows("email"), patience);
    QTRY_VERIFY(!program_->window.findChild<QWidget*>("signOutQuestion"));
}

void DesktopTest::deletesTheAccountAfterAQuestion()
{
    signIn();
    auto& program = *program_;
    const auto user = program.text("user");

    program.press("deleteAccount");
    QTest::keyClick(program.find<QWidget>("deleteQuestion"), Qt::Key_Escape);
    QTRY_VERIFY(!program.window.findChild<QWidget*>("deleteQuestion"));
    QVERIFY(program.shows("name"));

    program.press("deleteAccount");
    program.press("goOn");
    QTRY_VERIFY_WITH_TIMEOUT(program.shows("email"), patience);
    signIn();
    QVERIFY(program.text("user") != user);
    program.account.signOut();
}

void DesktopTest::closesWithWorkInFlight()
{
    program_->type("email", email);
    QVERIFY(!program_->find<QLineEdit>("email")->isEnabled());
    program_->window.close();
    program_.reset();
    QCoreApplication::processEvents();
}

void DesktopTest::loadsTheAccountWhenTheServerIsBack()
{
    program_.reset();
    asAnotherProgram({"request-code", "--email", email});
    asAnotherProgram({"sign-in", "--email", email, "--code", server_->newestCode()});
    server_->stop();

    program_ = std::make_unique<Program>(*server_);
    auto& program = *program_;
    QTRY_VERIFY_WITH_TIMEOUT(program.says("messageText", "could not be loaded"), patience);
    program.photograph("not-loaded");
    server_->start();
    program.press("tryAgain");
    QTRY_VERIFY_WITH_TIMEOUT(program.says("name", "anna@example.org"), patience);
    program.account.signOut();
}

/// A user of the test's own, whose keychain is new.
void settle(const QTemporaryDir& home)
{
    for (const auto* name : {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME",
                             "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"})
        qputenv(name, home.path().toUtf8());
    // Of the words under test, some are the framework's own.
    qputenv("LANGUAGE", "en");
    QDir().mkpath(SCREENSHOTS);
}

}  // namespace

int main(int argc, char** argv)
{
    // Removed at the process's end, after what the services still write there.
    static const QTemporaryDir home;
    settle(home);
    QApplication application(argc, argv);
    DesktopTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "DesktopTest.moc"
