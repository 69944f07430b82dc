// Where the sample .evtx logs and their reference values (expected/NAME.jsonl) are: under the
// shared directory the environment names (NATC_SHARED_DIR, set for every test by CMake), else
// under the one the build was configured with.
//   for (auto& entry : std::filesystem::directory_iterator(EvtxSamplesDirectory())) ...
#pragma once

#include <cstdlib>
#include <filesystem>

inline std::filesystem::path EvtxSamplesDirectory()
{
  const char* shared = std::getenv("NATC_SHARED_DIR");
  return std::filesystem::path(shared != nullptr && *shared != '\0' ? shared : NATC_SHARED_DIR) / "samples" / "evtx";
}
