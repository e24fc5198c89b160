#pragma once

#include "Platform/Basics/LocalizedError.hpp"

#include <cstddef>
#include <string>

namespace tessera
{

/// What an error shows of one of its cases.
struct ErrorText
{
    /// For logs: type and case, such as "JWTError.malformedToken".
    const char* name;
    /// The key of the sentence in the framework's string table.
    const char* key;
};

/// The base of an error that is one of a few cases. `Case` is an enumeration with a function
/// `ErrorText errorText(Case)` beside it. Two errors are equal when their cases are.
template <class Case>
class CaseError : public platform::LocalizedError
{
public:
    explicit CaseError(Case ofCase) noexcept : case_(ofCase) {}

    Case errorCase() const noexcept { return case_; }

    const char* what() const noexcept override { return errorText(case_).name; }
    std::string errorDescription() const override;

    friend bool operator==(const CaseError& left, const CaseError& right) noexcept
    {
        return left.case_ == right.case_;
    }
    friend std::size_t hash_value(const CaseError& error) noexcept
    {
        return static_cast<std::size_t>(error.case_);
    }

private:
    Case case_;
};

/// The sentence for a key of the string table, for `CaseError` and for hosts that show one.
std::string errorSentence(const char* key);

template <class Case>
std::string CaseError<Case>::errorDescription() const
{
    return errorSentence(errorText(case_).key);
}

}  // namespace tessera
