#pragma once

#include <string>
#include <vector>

#include "Platform/Basics/LocalizedError.hpp"

namespace platform
{

/// Why a JSON text did not become the record that was asked for.
///
/// It tells where and why, never what: no decoded value is part of it. The keys of the path are
/// the names that the reading code asked for, or those of an object that it read with all its keys;
/// for the latter's sake `what()` leaves the path out.
class DecodingError final : public LocalizedError
{
public:
    /// What was wrong with the text.
    enum class Kind
    {
        /// An object lacks a required member, named by `key()`; the path leads to the object.
        keyNotFound,
        /// The value is of another JSON type than the one asked for.
        typeMismatch,
        /// The value is null, and the record must have one.
        valueNotFound,
        /// The type fits and the value does not, or the data is no JSON at all (empty path).
        dataCorrupted,
    };

    DecodingError(Kind kind, std::vector<std::string> codingPath, std::string key = {});

    Kind kind() const noexcept { return kind_; }

    /// The keys from the outermost value inwards; the elements of an array are "Index 0" and so on.
    const std::vector<std::string>& codingPath() const noexcept { return codingPath_; }

    /// The missing key of `keyNotFound`, empty for the other kinds.
    const std::string& key() const noexcept { return key_; }

    const char* what() const noexcept override;
    std::string errorDescription() const override;

    friend bool operator==(const DecodingError& left, const DecodingError& right)
    {
        return left.kind_ == right.kind_ && left.codingPath_ == right.codingPath_ &&
               left.key_ == right.key_;
    }

private:
    Kind kind_;
    std::vector<std::string> codingPath_;
    std::string key_;
};

}  // namespace platform
