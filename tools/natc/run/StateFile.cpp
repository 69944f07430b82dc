#include "StateFile.h"

#include "AtomicFile.h"

#include "KeldaKernel/Strings.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace natc::run
{
namespace
{
using nlohmann::json;

constexpr int stateVersion = 1;

[[noreturn]] void Refuse(const std::string& fileName, const std::string& why)
{
  throw CStateError(fileName + ": not a natc state file (" + why + "); left as it is");
}
} // namespace

std::string CollectionStateName(std::size_t index)
{
  return "collections[" + std::to_string(index) + "]";
}

std::string FormatState(const std::vector<SCollectionState>& collections)
{
  json list = json::array();
  for (const auto& collection : collections)
  {
    json bookmarks = json::array();
    for (const auto& bookmark : collection.bookmarks)
    {
      json entry{{"path", kelda::ToUtf8(bookmark.Path)}, {"recordId", bookmark.RecordId}};
      // Only channels read by position have one; files without the key read as before.
      if (!bookmark.BookmarkXml.empty())
        entry["bookmarkXml"] = kelda::ToUtf8(bookmark.BookmarkXml);
      bookmarks.push_back(std::move(entry));
    }
    list.push_back(
      {{"task", kelda::ToUtf8(collection.task)}, {"collection", collection.collection}, {"bookmarks", bookmarks}});
  }
  return json{{"natcState", stateVersion}, {"collections", list}}.dump(1) + "\n";
}

std::vector<SCollectionState> ParseState(std::string_view text, const std::string& fileName)
{
  const json root = json::parse(text, nullptr, false);
  if (root.is_discarded())
    Refuse(fileName, "damaged JSON");
  if (!root.is_object() || !root.contains("natcState"))
    Refuse(fileName, "no \"natcState\" key");
  if (root["natcState"] != stateVersion)
    Refuse(fileName, "\"natcState\" is not 1");
  const auto collections = root.find("collections");
  if (collections == root.end() || !collections->is_array())
    Refuse(fileName, "\"collections\" is not a list");
  std::vector<SCollectionState> parsed;
  for (const json& entry : *collections)
  {
    if (!entry.is_object() || !entry.contains("task") || !entry["task"].is_string() ||
        !entry.contains("collection") || !entry["collection"].is_string() || !entry.contains("bookmarks") ||
        !entry["bookmarks"].is_array())
      Refuse(fileName, "a collection without \"task\", \"collection\" and \"bookmarks\"");
    SCollectionState state{kelda::FromUtf8(entry["task"].get<std::string>()), entry["collection"].get<std::string>(),
                           {}};
    for (const json& bookmark : entry["bookmarks"])
    {
      if (!bookmark.is_object() || !bookmark.contains("path") || !bookmark["path"].is_string() ||
          bookmark["path"].get<std::string>().empty() || !bookmark.contains("recordId") ||
          !bookmark["recordId"].is_number_integer() || bookmark["recordId"].get<std::int64_t>() < 0)
        Refuse(fileName, "a bookmark without a \"path\" and a \"recordId\" of 0 or more");
      const auto xml = bookmark.find("bookmarkXml");
      if (xml != bookmark.end() && !xml->is_string())
        Refuse(fileName, "a \"bookmarkXml\" that is not a string");
      state.bookmarks.emplace_back(kelda::FromUtf8(bookmark["path"].get<std::string>()),
                                   bookmark["recordId"].get<std::int64_t>(),
                                   xml != bookmark.end() ? kelda::FromUtf8(xml->get<std::string>()) : tstring());
    }
    parsed.push_back(std::move(state));
  }
  return parsed;
}

std::optional<std::vector<SCollectionState>> LoadStateFile(const std::string& path)
{
  std::error_code error;
  if (!std::filesystem::exists(path, error) && !error)
    return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  if (!file)
    throw CStateError(path + ": cannot be read; left as it is");
  std::ostringstream text;
  text << file.rdbuf();
  return ParseState(text.str(), path);
}

void SaveStateFile(const std::string& path, const std::vector<SCollectionState>& collections)
{
  WriteFileAtomically(path, FormatState(collections));
}
} // namespace natc::run
