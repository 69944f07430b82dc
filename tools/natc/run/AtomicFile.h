// Replaces a file's contents so that a crash or power loss leaves either the old file or the new
// one: the contents go to "<path>.tmp", reach the disk, and the temporary takes the name. One
// body per platform (linux/, windows/).
//   natc::run::WriteFileAtomically("state.json", text);  // throws CStateError
#pragma once

#include <string>
#include <string_view>

namespace natc::run
{
void WriteFileAtomically(const std::string& path, std::string_view contents);
} // namespace natc::run
