// Text to integer as the C runtime's _wtoi and _wtoi64 read it, for the numbers of a rendered
// event (level, event identifier, qualifiers, record number). Portable and locale-free:
//   int level = WToI(L" 4");           // 4
//   __int64 id = WToI64(L"-12abc");    // -12
// Rules: leading white space (space, \t \n \v \f \r) is skipped, then an optional sign, then
// decimal digits up to the first other character (or the end of the view). No digit gives 0.
// A value beyond the type's range saturates at its maximum or minimum, as the runtime does.
#pragma once

#include "Platform/Windows.h"

#include <string_view>

namespace collector::ni::impl
{
int WToI(std::wstring_view text) noexcept;
__int64 WToI64(std::wstring_view text) noexcept;
// What WToI gives for a text whose WToI64 is `value`: the value held to the int range.
int SaturateToInt(__int64 value) noexcept;
} // namespace collector::ni::impl
