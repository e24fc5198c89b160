#pragma once

namespace valet
{

/// The number of a case, as it is kept in settings and sent between programs.
template <class Case>
constexpr int rawValue(Case value) noexcept
{
    return static_cast<int>(value);
}

/// The case of a number: `fromRawValue<Accessibility>(4)`. A number outside the table stops the
/// process, so check one that comes from outside the program first. Defined for `Accessibility`,
/// `CloudAccessibility` and `SecureEnclaveAccessControl`.
template <class Case>
Case fromRawValue(int rawValue);

}  // namespace valet
