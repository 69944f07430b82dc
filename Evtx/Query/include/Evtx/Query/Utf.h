// Wide strings to and from UTF-8 (wchar_t is UTF-32 on Linux, UTF-16 on Windows), for the XML
// parser, which reads UTF-8. The kernel's conversions serve: invalid sequences become U+FFFD.
#pragma once

#include "KeldaKernel/Strings.h"

namespace evtx::query
{
using kelda::FromUtf8;
using kelda::ToUtf8;
} // namespace evtx::query
