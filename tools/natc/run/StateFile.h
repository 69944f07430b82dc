// The state file of `natc run --state FILE`: every "WindowsEvents" collection's bookmarks, so
// that a restarted natc resumes each channel after its last delivered event. One JSON object:
//   {"natcState":1,"collections":[{"task":"event logs","collection":"collections[0]",
//     "bookmarks":[{"path":"System","recordId":1234}]}]}
// Collections are matched by their task's name and their place in the task's "collections".
// Parsing and formatting are pure; LoadStateFile and SaveStateFile do the file work (the save
// writes a temporary file beside it and moves it durably over the old one: AtomicFile.h).
#pragma once

#include "Collector/Interfaces/WinEventsInit.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace natc::run
{
// A state file that cannot be used: damaged, foreign, or unreadable.
class CStateError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

struct SCollectionState
{
  std::wstring task;
  // "collections[N]": the collection's place in its task.
  std::string collection;
  std::vector<collector::ni::win_events::SBookmark> bookmarks;
};

// The name a collection is kept under within its task.
std::string CollectionStateName(std::size_t index);

std::string FormatState(const std::vector<SCollectionState>& collections);
// Throws CStateError naming fileName.
std::vector<SCollectionState> ParseState(std::string_view text, const std::string& fileName);

// The file's collections; nullopt when there is no file. Throws CStateError.
std::optional<std::vector<SCollectionState>> LoadStateFile(const std::string& path);
// Replaces the file atomically. Throws CStateError.
void SaveStateFile(const std::string& path, const std::vector<SCollectionState>& collections);
} // namespace natc::run
