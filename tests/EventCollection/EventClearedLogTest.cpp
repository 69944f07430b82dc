// Bookmarks over logs written with the project's .evtx writer: a filter Path in other case or
// as a file:// path, and logs cleared or recreated under the collection, whose record numbers
// start again at 1.
#include "EventTestSupport.h"

#include "TestSupport/LogCapture.h"
#include "TestSupport/Samples.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace
{
using namespace events_test;

class EventClearedLog : public CWrittenLogTest
{
protected:
  // Records delivered by one update.
  std::size_t Update()
  {
    subscriber->Clear();
    collection->UpdateOnce();
    return subscriber->Records().size();
  }
};

TEST_F(EventClearedLog, APathInOtherCaseIsReadOnce)
{
  CChannelWriter writer(host.ChannelFile("System"), "System");
  writer.AppendMany(1, 5);
  SetChannels({L"system"});
  EXPECT_EQ(Update(), 5u);
  EXPECT_EQ(Update(), 0u);
  writer.AppendMany(6, 2);
  EXPECT_EQ(Update(), 2u);
}

TEST_F(EventClearedLog, AFilePathKeepsItsOwnBookmark)
{
  const std::string file = host.ChannelFile("System");
  CChannelWriter writer(file, "System");
  writer.AppendMany(1, 4);
  const std::wstring path = L"file://" + std::filesystem::path(file).wstring();
  SetChannels({path});
  EXPECT_EQ(Update(), 4u);
  EXPECT_EQ(collection->GetBookmarks().at(path), 4);
  EXPECT_EQ(Update(), 0u);
}

TEST_F(EventClearedLog, AClearedLogIsReadFromItsFirstRecord)
{
  {
    CChannelWriter writer(host.ChannelFile("System"), "System");
    writer.AppendMany(1, 10);
  }
  SetChannels({L"System"});
  ASSERT_EQ(Update(), 10u);
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  // Clearing starts a new file whose numbers begin at 1.
  CChannelWriter cleared(host.ChannelFile("System"), "System");
  cleared.AppendMany(100, 3);
  EXPECT_EQ(Update(), 3u);
  EXPECT_EQ(capture.Sink().Count(L"Log System was cleared; reading it from the start"), 1u);
  EXPECT_EQ(IndexOf(*subscriber->Records().front()), 100);
  EXPECT_EQ(Update(), 0u);
  cleared.AppendMany(103, 1);
  EXPECT_EQ(Update(), 1u);
  EXPECT_EQ(capture.Sink().Count(L"was cleared"), 1u);
}

TEST_F(EventClearedLog, ARecreatedLogIsReadFromItsFirstRecord)
{
  SetChannels({L"System", L"Application"});
  {
    CChannelWriter system(host.ChannelFile("System"), "System");
    system.AppendMany(1, 6);
    CChannelWriter application(host.ChannelFile("Application"), "Application");
    application.AppendMany(1, 2);
  }
  ASSERT_EQ(Update(), 8u);
  std::filesystem::remove(host.ChannelFile("System"));
  EXPECT_EQ(Update(), 0u);
  CChannelWriter recreated(host.ChannelFile("System"), "System");
  recreated.AppendMany(50, 2);
  EXPECT_EQ(Update(), 2u);
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 2);
  EXPECT_EQ(collection->GetBookmarks().at(L"Application"), 2);
}
} // namespace

namespace
{
TEST_F(EventClearedLog, ASampleLogIsNotTakenForCleared)
{
  const std::string name = "Microsoft-Windows-HelloForBusiness%4Operational.evtx";
  std::filesystem::copy_file(EvtxSamplesDirectory() / name, host.Path() / name);
  SetChannels({L"microsoft-windows-helloforbusiness/operational"});
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  EXPECT_EQ(Update(), 6u);
  EXPECT_EQ(Update(), 0u);
  EXPECT_EQ(capture.Sink().Count(L"was cleared"), 0u);
}
} // namespace
