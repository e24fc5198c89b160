#include "Adapters/GLib/GLibMainActor.hpp"

#include "tests/Adapters/MainActorSuite.hpp"

#include <glib.h>

namespace
{

/// The default context, as a GTK program has it.
struct DefaultContext
{
    static GMainContext* make() { return g_main_context_ref(g_main_context_default()); }
};

struct OwnContext
{
    static GMainContext* make() { return g_main_context_new(); }
};

template <class Kind>
struct GLibHost
{
    /// One context for the host and its loops, which are made apart from it.
    static inline GMainContext* context = nullptr;

    struct Loop
    {
        ~Loop() { g_main_loop_unref(loop); }
        void run() { g_main_loop_run(loop); }
        void quit() { g_main_loop_quit(loop); }

        GMainLoop* loop = g_main_loop_new(context, FALSE);
    };

    GLibHost() : actor((context = Kind::make(), glib::mainActor(context))) {}
    ~GLibHost()
    {
        actor.reset();
        g_main_context_unref(context);
    }

    void post(std::function<void()> work)
    {
        GSource* const source = g_idle_source_new();
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        const auto run = [](gpointer data) -> gboolean
        {
            (*static_cast<std::function<void()>*>(data))();
            return G_SOURCE_REMOVE;
        };
        const auto free = [](gpointer data) { delete static_cast<std::function<void()>*>(data); };
        g_source_set_callback(source, run, new std::function(std::move(work)), free);
        g_source_attach(source, context);
        g_source_unref(source);
    }
    void end() { actor.reset(); }

    std::shared_ptr<platform::MainActor> actor;
};

using Hosts = testing::Types<GLibHost<DefaultContext>, GLibHost<OwnContext>>;
INSTANTIATE_TYPED_TEST_SUITE_P(GLib, MainActorSuite, Hosts);

TEST(GLibMainActor, WithoutAContextItIsOnTheDefaultOne)
{
    const auto actor = glib::mainActor();
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    actor->enqueue([loop] { g_main_loop_quit(loop); });
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
}

TEST(GLibMainActor, ItsOwnPieceMayBeTheLastToHoldIt)
{
    GMainContext* const context = g_main_context_new();
    const std::weak_ptr gone = [context]
    {
        auto actor = glib::mainActor(context);
        const std::weak_ptr watched = actor;
        const auto kept = std::make_shared<std::shared_ptr<platform::MainActor>>(actor);
        actor->enqueue([kept] { kept->reset(); });
        actor->enqueue([] { FAIL(); });
        return watched;
    }();
    // The actor keeps the context until then.
    GMainLoop* const loop = g_main_loop_new(context, FALSE);
    g_main_context_unref(context);
    ASSERT_FALSE(gone.expired());

    while (g_main_context_iteration(g_main_loop_get_context(loop), FALSE))
        ;

    EXPECT_TRUE(gone.expired());
    g_main_loop_unref(loop);
}

TEST(GLibMainActor, IdleContextsSleepAndOneWakeUpBringsAllPieces)
{
    static std::atomic<int> waits;
    waits = 0;
    GMainContext* const context = g_main_context_new();
    g_main_context_set_poll_func(context,
                                 [](GPollFD* files, guint count, gint timeout)
                                 {
                                     waits += timeout != 0 ? 1 : 0;
                                     return g_poll(files, count, timeout);
                                 });
    const auto actor = glib::mainActor(context);
    int ran = 0;
    std::vector<std::function<void()>> pieces(100, [&ran] { ++ran; });
    const auto send = [&]
    {
        while (waits == 0)
            std::this_thread::yield();
        actor->enqueueAll(std::move(pieces));
    };
    std::jthread sender(send);
    while (ran < 100)
        g_main_context_iteration(context, TRUE);

    EXPECT_EQ(waits, 1);
    EXPECT_FALSE(g_main_context_iteration(context, FALSE));
    g_main_context_unref(context);
}

}  // namespace
