// Small helpers for the MI bodies: nullable MI strings, and the one no-op answer of unsupported calls.
#pragma once

#include "Platform/Mi.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::mi
{
inline std::wstring_view View(const MI_Char* text)
{
  return text ? std::wstring_view(text) : std::wstring_view();
}

inline std::optional<std::wstring> Optional(const MI_Char* text)
{
  if (!text)
    return std::nullopt;
  return std::wstring(text);
}
} // namespace platform::mi
