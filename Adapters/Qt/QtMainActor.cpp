#include "Adapters/Qt/QtMainActor.hpp"

#include "Platform/Basics/Fatal.hpp"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QObject>
#include <QtCore/QThread>

#include <deque>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>

namespace qt
{
namespace
{

class QtMainActor final : public platform::MainActor
{
public:
    void enqueue(std::function<void()> work) override;
    void enqueueAll(std::vector<std::function<void()>> work) override;
    bool isCurrent() const override { return std::this_thread::get_id() == thread_; }

    /// Drops what waits, and from now on what comes.
    void close();

private:
    /// Lives on the main thread and gets one event for each turn.
    class Turns final : public QObject
    {
    public:
        explicit Turns(QtMainActor& actor) : actor_(actor) {}

    private:
        void customEvent(QEvent*) override { actor_.runFirst(); }

        QtMainActor& actor_;
    };

    template <class Append>
    void keep(Append append);
    void postTurn() { QCoreApplication::postEvent(turns_.get(), new QEvent(QEvent::User)); }
    void runFirst() noexcept;

    const std::thread::id thread_ = std::this_thread::get_id();

    /// Held while an event is posted, so that the application does not end in the middle of that.
    std::mutex mutex_;
    /// While anything waits here, one event is posted.
    std::deque<std::function<void()>> waiting_;
    std::unique_ptr<Turns> turns_ = std::make_unique<Turns>(*this);
};

/// Appends to what waits, unless the application has ended.
template <class Append>
void QtMainActor::keep(Append append)
{
    const std::lock_guard lock(mutex_);
    if (!turns_)
        return;
    const bool idle = waiting_.empty();
    append();
    if (idle && !waiting_.empty())
        postTurn();
}

void QtMainActor::enqueue(std::function<void()> work)
{
    keep([&] { waiting_.push_back(std::move(work)); });
}

void QtMainActor::enqueueAll(std::vector<std::function<void()>> work)
{
    keep([&] { std::move(work.begin(), work.end(), std::back_inserter(waiting_)); });
}

void QtMainActor::runFirst() noexcept
{
    std::function<void()> work;
    {
        const std::lock_guard lock(mutex_);
        work = std::move(waiting_.front());
        waiting_.pop_front();
        // Before the work runs, because an event loop inside it has to go on with the others.
        if (!waiting_.empty())
            postTurn();
    }
    work();
}

void QtMainActor::close()
{
    // Destroyed after the lock is gone: what work holds may come back here when it ends.
    std::deque<std::function<void()>> dropped;
    std::unique_ptr<Turns> ended;
    const std::lock_guard lock(mutex_);
    dropped.swap(waiting_);
    ended.swap(turns_);
}

/// The actor of the application that exists now; only its thread comes here. Never torn down,
/// because an application may be a static object.
std::shared_ptr<QtMainActor>& current()
{
    static auto& actor = *new std::shared_ptr<QtMainActor>;
    return actor;
}

/// The first thing that the destructor of an application does, while its event loop still stands.
void applicationEnds()
{
    std::exchange(current(), nullptr)->close();
}

}  // namespace

std::shared_ptr<platform::MainActor> mainActor()
{
    const auto* const application = QCoreApplication::instance();
    if (!application || application->thread() != QThread::currentThread())
        platform::fatal("qt::mainActor() needs a QCoreApplication, and is called on its thread.");
    if (!current())
    {
        current() = std::make_shared<QtMainActor>();
        qAddPostRoutine(applicationEnds);
    }
    return current();
}

}  // namespace qt
