#include "Adapters/GLib/GLibMainActor.hpp"

#include <glib.h>

#include <deque>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>

namespace glib
{
namespace
{

/// The work that waits, shared by the actor and its source: an iteration may be running when the
/// actor goes.
struct Queue
{
    std::mutex mutex;
    std::deque<std::function<void()>> waiting;
};

struct Source
{
    GSource base;
    std::shared_ptr<Queue>* queue;
};

Queue& queueOf(GSource* source)
{
    return **reinterpret_cast<Source*>(source)->queue;
}

/// A source that is ready while anything waits. Under the queue's lock, or the wake-up of one
/// thread and the rest of another might cross.
void setReady(GSource* source, bool ready)
{
    g_source_set_ready_time(source, ready ? 0 : -1);
}

gboolean runFirst(GSource* source, GSourceFunc, gpointer) noexcept
{
    std::function<void()> work;
    {
        auto& queue = queueOf(source);
        const std::lock_guard lock(queue.mutex);
        if (queue.waiting.empty())
            return G_SOURCE_CONTINUE;
        work = std::move(queue.waiting.front());
        queue.waiting.pop_front();
        if (queue.waiting.empty())
            setReady(source, false);
    }
    work();
    return G_SOURCE_CONTINUE;
}

void finalize(GSource* source)
{
    delete reinterpret_cast<Source*>(source)->queue;
}

GSource* attachedSource(const std::shared_ptr<Queue>& queue, GMainContext* context)
{
    static GSourceFuncs functions = {nullptr, nullptr, runFirst, finalize, nullptr, nullptr};
    GSource* const source = g_source_new(&functions, sizeof(Source));
    reinterpret_cast<Source*>(source)->queue = new std::shared_ptr(queue);
    g_source_set_name(source, "Tessera");
    // Without it a main loop inside a piece of work would not run the others.
    g_source_set_can_recurse(source, TRUE);
    g_source_attach(source, context);
    return source;
}

class GLibMainActor final : public platform::MainActor
{
public:
    explicit GLibMainActor(GMainContext* context)
        : context_(g_main_context_ref(context)), source_(attachedSource(queue_, context))
    {}

    ~GLibMainActor() override
    {
        g_source_destroy(source_);
        g_source_unref(source_);
        g_main_context_unref(context_);
        // Destroyed after the lock is gone: what work holds may do anything when it ends.
        std::deque<std::function<void()>> dropped;
        const std::lock_guard lock(queue_->mutex);
        dropped.swap(queue_->waiting);
    }

    void enqueue(std::function<void()> work) override
    {
        const std::lock_guard lock(queue_->mutex);
        queue_->waiting.push_back(std::move(work));
        setReady(source_, true);
    }

    void enqueueAll(std::vector<std::function<void()>> work) override
    {
        if (work.empty())
            return;
        const std::lock_guard lock(queue_->mutex);
        std::move(work.begin(), work.end(), std::back_inserter(queue_->waiting));
        setReady(source_, true);
    }

    bool isCurrent() const override { return std::this_thread::get_id() == thread_; }

private:
    const std::thread::id thread_ = std::this_thread::get_id();
    const std::shared_ptr<Queue> queue_ = std::make_shared<Queue>();
    GMainContext* const context_;
    GSource* const source_;
};

}  // namespace

std::shared_ptr<platform::MainActor> mainActor(GMainContext* context)
{
    return std::make_shared<GLibMainActor>(context ? context : g_main_context_default());
}

}  // namespace glib
