#pragma once

#include <exception>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace platform
{

/// How work ended: with a value, or with the error that it threw.
template <class T>
class Outcome
{
public:
    using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

    Outcome() = default;
    Outcome(Value value) : value_(std::move(value)) {}
    Outcome(std::exception_ptr error) : error_(std::move(error)) {}

    bool succeeded() const noexcept { return value_.has_value(); }
    const std::exception_ptr& error() const noexcept { return error_; }

    /// The value; rethrows the error.
    T get() &&
    {
        if (error_)
            std::rethrow_exception(error_);
        if constexpr (!std::is_void_v<T>)
            return std::move(*value_);
    }
    T get() const& { return std::move(Outcome(*this)).get(); }

private:
    std::optional<Value> value_;
    std::exception_ptr error_;
};

}  // namespace platform
