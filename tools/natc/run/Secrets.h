// The passwords of a `natc run` configuration: read from where the configuration says (an
// environment variable or a file) and checked for exposure. Messages name the file, the line
// and the key, never the password.
//   auto problems = natc::run::ResolvePasswords(config, "natc-run.json");   // empty: all found
//   for (const auto& warning : natc::run::ExposedPasswordWarnings(config, "natc-run.json")) ...
#pragma once

#include "RunConfig.h"

#include <string>
#include <vector>

namespace natc::run
{
// Fills each user's password from its environment variable or file (a relative path is taken
// from the configuration file's directory; one trailing line break is dropped).
std::vector<SConfigProblem> ResolvePasswords(SRunConfig& config, const std::string& fileName);

// One warning per literal, non-empty password when the configuration file can be read by its
// group or by others.
std::vector<SConfigProblem> ExposedPasswordWarnings(const SRunConfig& config, const std::string& fileName);
} // namespace natc::run
