#pragma once

#include "tools/shared/Failure.hpp"

#include <exception>

namespace commandline
{

/// Any error of this program, of the framework or of the language as one sentence and the next
/// step. No token, code or e-mail address becomes part of it.
Report reportOf(const std::exception_ptr& error);

}  // namespace commandline
