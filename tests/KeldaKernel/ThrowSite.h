// A throw site whose function, file and line the tests know, to check the location that a
// KELDA_THROW exception carries into get_throw_* and into log lines.
#pragma once

#include "KeldaKernel/Exceptions.h"

namespace throwsite
{
// The line of the KELDA_THROW below, set just before it runs.
inline int g_line = 0;

[[noreturn]] inline void ThrowInvalidArgument()
{
  // Taken right here so that the tests do not depend on this file's layout.
  g_line = __LINE__ + 1;
  KELDA_THROW(CHResultException(E_INVALIDARG, L"Host name can not be empty"));
}
} // namespace throwsite
