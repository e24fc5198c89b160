#pragma once

#include "Platform/Observation/Subscription.hpp"

#include <type_traits>

namespace platform
{

/// Values that change, for those who want to follow them: `subscribe` calls the handler with the
/// current value at once, and with every later one, each once and in order.
///
///     subscription = account.statePublisher().subscribe([](const AccountState& state) { ... });
///
/// It is a value that may be copied and kept; it does not keep the publishing object alive, and
/// falls silent with it. It belongs to the thread of that object, and so do the handlers' calls. A
/// handler may change what it observes, subscribe and unsubscribe; it must not throw, which stops
/// the process. While one runs an event loop of its own, for a modal dialog, no subscriber of the
/// same value hears anything newer: a handler posts the dialog, and returns.
template <class T>
class Publisher
{
public:
    using Handler = std::function<void(const T&)>;

    /// For those who publish: `attach` subscribes a handler.
    explicit Publisher(std::function<Subscription(Handler)> attach) : attach_(std::move(attach)) {}

    Subscription subscribe(Handler handler) const { return attach_(std::move(handler)); }

    /// The same changes, each value turned into another by `change`.
    template <class Change>
    auto map(Change change) const
    {
        using Result = std::remove_cvref_t<std::invoke_result_t<Change&, const T&>>;
        return Publisher<Result>(
            [attach = attach_, change](typename Publisher<Result>::Handler handler)
            { return attach([change, handler](const T& value) { handler(change(value)); }); });
    }

private:
    std::function<Subscription(Handler)> attach_;
};

}  // namespace platform
