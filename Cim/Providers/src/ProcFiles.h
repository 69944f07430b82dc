// Reading the machine's files: whole small files into a reused buffer, symbolic links,
// directories of /proc. The only place (with the collectors) that touches the file system.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace cim::machine
{
// Replaces buffer with the file's contents; false when it cannot be opened or read.
bool ReadText(const char* path, std::string& buffer);
// The file's first line without blanks at its ends, or nothing.
std::optional<std::string> ReadLine(const char* path);
std::optional<std::string> ReadLink(const char* path);
// Calls fn(pid) for every numeric entry of /proc, in directory order (increasing ids).
void ForEachProcessId(const std::function<void(std::uint32_t)>& fn);
std::uint32_t CountProcesses();
// Fails the query: throws cim::Error with MI_RESULT_FAILED and a message naming the file.
[[noreturn]] void FailToRead(const char* path);
} // namespace cim::machine
