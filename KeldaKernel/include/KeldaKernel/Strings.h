// Wide strings as the library uses them (tstring is UTF-16 on Windows, UTF-32 elsewhere) and
// conversions to and from UTF-8 for logs, files and the command line.
#pragma once

#include <string>
#include <string_view>

using tstring = std::wstring;

namespace kelda
{
std::string ToUtf8(std::wstring_view text);
// Appends the UTF-8 form of text to out (no allocation when out has room): for writers that
// reuse one buffer.
void AppendUtf8(std::string& out, std::wstring_view text);
std::wstring FromUtf8(std::string_view text);
} // namespace kelda
