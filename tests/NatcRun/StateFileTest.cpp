// The state file's text: bookmarks come back as they were written; damaged or foreign text is
// refused naming the file; a missing file is a fresh start; a save replaces the file whole.
#include "run/StateFile.h"
#include "TestSupport/TempDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace
{
using natc::run::CStateError;
using natc::run::SCollectionState;

TEST(StateFile, BookmarksComeBackAsWritten)
{
  const std::vector<SCollectionState> written{
    {L"event logs", "collections[1]", {{L"System", 1234}, {L"file:///tmp/x.evtx", 0}}}, {L"other", "collections[0]", {}}};
  const auto read = natc::run::ParseState(natc::run::FormatState(written), "state.json");
  ASSERT_EQ(read.size(), 2u);
  EXPECT_EQ(read[0].task, L"event logs");
  EXPECT_EQ(read[0].collection, "collections[1]");
  ASSERT_EQ(read[0].bookmarks.size(), 2u);
  EXPECT_EQ(read[0].bookmarks[0].Path, L"System");
  EXPECT_EQ(read[0].bookmarks[0].RecordId, 1234);
  EXPECT_EQ(read[0].bookmarks[1].Path, L"file:///tmp/x.evtx");
  EXPECT_TRUE(read[1].bookmarks.empty());
}

TEST(StateFile, AChannelReadByPositionKeepsItsBookmarkText)
{
  const std::wstring xml = L"<BookmarkList>\r\n  <Bookmark Channel='ForwardedEvents' RecordId='60' IsCurrent='true'/>"
                           L"\r\n</BookmarkList>";
  const std::vector<SCollectionState> written{
    {L"wec", "collections[0]", {{L"ForwardedEvents", 9000, xml}, {L"System", 12}}}};
  const std::string text = natc::run::FormatState(written);
  // Only the channel read by position gets the key: other entries read as they always did.
  EXPECT_EQ(text.find("bookmarkXml"), text.rfind("bookmarkXml"));
  const auto read = natc::run::ParseState(text, "state.json");
  ASSERT_EQ(read.at(0).bookmarks.size(), 2u);
  EXPECT_EQ(read[0].bookmarks[0].BookmarkXml, xml);
  EXPECT_TRUE(read[0].bookmarks[1].BookmarkXml.empty());
  EXPECT_THROW(natc::run::ParseState("{\"natcState\":1,\"collections\":[{\"task\":\"t\",\"collection\":\"c\","
                                     "\"bookmarks\":[{\"path\":\"F\",\"recordId\":1,\"bookmarkXml\":5}]}]}",
                                     "state.json"),
               CStateError);
}

TEST(StateFile, DamagedOrForeignTextIsRefused)
{
  for (const char* text : {"", "{", "[]", "{\"collections\":[]}", "{\"natcState\":2,\"collections\":[]}",
                           "{\"natcState\":1}", "{\"natcState\":1,\"collections\":[{\"task\":\"t\"}]}",
                           "{\"natcState\":1,\"collections\":[{\"task\":\"t\",\"collection\":\"c\",\"bookmarks\":"
                           "[{\"path\":\"System\",\"recordId\":-1}]}]}"})
  {
    try
    {
      natc::run::ParseState(text, "state.json");
      ADD_FAILURE() << "accepted: " << text;
    }
    catch (const CStateError& error)
    {
      EXPECT_EQ(std::string(error.what()).rfind("state.json: not a natc state file", 0), 0u) << error.what();
    }
  }
}

TEST(StateFile, AMissingFileIsAFreshStartAndASaveReplacesTheFile)
{
  const TempDirectory directory("natc-state-file");
  const std::string path = (directory.Path() / "state.json").string();
  EXPECT_FALSE(natc::run::LoadStateFile(path).has_value());
  natc::run::SaveStateFile(path, {{L"t", "collections[0]", {{L"System", 5}}}});
  natc::run::SaveStateFile(path, {{L"t", "collections[0]", {{L"System", 9}}}});
  const auto loaded = natc::run::LoadStateFile(path);
  ASSERT_TRUE(loaded.has_value());
  EXPECT_EQ(loaded->at(0).bookmarks.at(0).RecordId, 9);
  EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
}
} // namespace
