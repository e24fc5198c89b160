#include "Platform/Coding/JSONReader.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>

namespace platform
{
namespace
{

using detail::JSONNode;
using Type = detail::JSONNodeType;

/// Calls `visit(key, value)` for each member until it returns true.
template <class Visit>
void visitMembers(const JSONNode* object, Visit visit)
{
    const JSONNode* const end = object->next();
    for (const JSONNode* key = object + 1; key != end; key = (key + 1)->next())
    {
        if (visit(key->view(), key + 1))
            return;
    }
}

/// The value directly inside `container` that is `target` or holds it; its key is appended.
const JSONNode* step(const JSONNode* container, const JSONNode* target,
                     std::vector<std::string>& path)
{
    const JSONNode* found = nullptr;
    if (container->type == Type::object)
    {
        visitMembers(container,
                     [&](std::string_view key, const JSONNode* value)
                     {
                         if (value->next() <= target)
                             return false;
                         path.emplace_back(key);
                         found = value;
                         return true;
                     });
        return found;
    }
    std::size_t index = 0;
    for (found = container + 1; found->next() <= target; found = found->next())
        ++index;
    path.push_back("Index " + std::to_string(index));
    return found;
}

}  // namespace

JSONKind JSONReader::kind() const noexcept
{
    switch (node_->type)
    {
        case Type::null:
            return JSONKind::null;
        case Type::boolean:
            return JSONKind::boolean;
        case Type::integer:
        case Type::real:
            return JSONKind::number;
        case Type::text:
        case Type::key:
            return JSONKind::text;
        case Type::array:
            return JSONKind::array;
        case Type::object:
            break;
    }
    return JSONKind::object;
}

std::optional<bool> JSONReader::tryBoolean() const noexcept
{
    if (node_->type != Type::boolean)
        return std::nullopt;
    return node_->boolean;
}

std::optional<std::int64_t> JSONReader::tryInteger() const noexcept
{
    if (node_->type == Type::integer)
        return node_->integer;
    // Neither limit belongs to the range: a number just beyond the lower one has been rounded to
    // it.
    constexpr double limit = 9223372036854775808.0;
    if (node_->type != Type::real || std::trunc(node_->real) != node_->real ||
        std::abs(node_->real) >= limit)
        return std::nullopt;
    return static_cast<std::int64_t>(node_->real);
}

std::optional<double> JSONReader::tryNumber() const noexcept
{
    if (node_->type == Type::integer)
        return static_cast<double>(node_->integer);
    if (node_->type == Type::real)
        return node_->real;
    return std::nullopt;
}

std::optional<std::string_view> JSONReader::tryText() const noexcept
{
    if (node_->type != Type::text)
        return std::nullopt;
    return node_->view();
}

bool JSONReader::boolean() const
{
    require(Type::boolean);
    return node_->boolean;
}

std::int64_t JSONReader::integer() const
{
    if (const auto value = tryInteger())
        return *value;
    throw node_->type == Type::real ? dataCorrupted() : mismatch();
}

double JSONReader::number() const
{
    if (const auto value = tryNumber())
        return *value;
    throw mismatch();
}

std::string_view JSONReader::text() const
{
    require(Type::text);
    return node_->view();
}

Date JSONReader::date() const
{
    const std::optional<DateFormat>& format = document_->dates().format();
    if (!format)
        return Date{number()};
    if (const auto date = format->parse(text()))
        return *date;
    throw dataCorrupted();
}

std::optional<JSONReader> JSONReader::find(std::string_view key) const
{
    require(Type::object);
    std::optional<JSONReader> found;
    visitMembers(node_,
                 [&](std::string_view name, const JSONNode* value)
                 {
                     if (name != key)
                         return false;
                     found = JSONReader(*document_, value);
                     return true;
                 });
    return found;
}

JSONReader JSONReader::member(std::string_view key) const
{
    if (const auto found = find(key))
        return *found;
    throw DecodingError(DecodingError::Kind::keyNotFound, codingPath(), std::string(key));
}

std::vector<JSONMember> JSONReader::members() const
{
    require(Type::object);
    std::vector<JSONMember> all;
    visitMembers(node_,
                 [&](std::string_view key, const JSONNode* value)
                 {
                     all.push_back({key, JSONReader(*document_, value)});
                     return false;
                 });

    // Sorted rather than hashed or searched: no choice of names makes this slow.
    std::vector<std::size_t> order(all.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right)
              { return std::tie(all[left].key, left) < std::tie(all[right].key, right); });
    const auto distinct =
        std::unique(order.begin(), order.end(), [&](std::size_t left, std::size_t right)
                    { return all[left].key == all[right].key; });
    order.erase(distinct, order.end());
    if (order.size() == all.size())
        return all;
    std::sort(order.begin(), order.end());
    std::vector<JSONMember> once;
    once.reserve(order.size());
    for (const std::size_t index : order)
        once.push_back(all[index]);
    return once;
}

JSONElements JSONReader::elements() const
{
    require(Type::array);
    return JSONElements(*this);
}

std::vector<std::string> JSONReader::codingPath() const
{
    std::vector<std::string> path;
    for (const JSONNode* at = document_->root(); at != node_;)
        at = step(at, node_, path);
    return path;
}

DecodingError JSONReader::dataCorrupted() const
{
    return {DecodingError::Kind::dataCorrupted, codingPath()};
}

DecodingError JSONReader::mismatch() const
{
    return {isNull() ? DecodingError::Kind::valueNotFound : DecodingError::Kind::typeMismatch,
            codingPath()};
}

void JSONReader::require(Type type) const
{
    if (node_->type != type)
        throw mismatch();
}

}  // namespace platform
