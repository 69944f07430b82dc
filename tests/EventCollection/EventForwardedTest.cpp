// A log of forwarded events, written with the project's .evtx writer from events of the sample
// logs: each keeps its source's Channel and EventRecordID while the log numbers its records in
// order. Events stored later may show lower numbers than those already read; the collection
// reads such a channel by position (a Windows bookmark and EvtSeek), so that none is lost and
// none is delivered twice, across updates and across a restart with saved bookmarks.
#include "EventTestSupport.h"

#include "Evtx/Chunk.h"
#include "Evtx/Event.h"
#include "Evtx/File.h"
#include "Evtx/ValueText.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Samples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace
{
using namespace events_test;

// What a forwarded copy of a sample event keeps of it.
struct SSourceEvent
{
  std::string provider;
  std::uint16_t eventId = 0;
  std::uint8_t level = 4;
  std::uint64_t timeCreated = 0;
  std::uint64_t recordId = 0;
  std::string channel;
  std::string computer;
};

std::vector<SSourceEvent> ReadSample(const std::string& name)
{
  evtx::File file;
  if (file.Open((EvtxSamplesDirectory() / name).string()) != evtx::Status::Ok)
    throw std::runtime_error("cannot open sample " + name);
  std::vector<SSourceEvent> events;
  evtx::EventTree tree;
  for (std::uint32_t slot = 0; slot < file.ChunkCount(); ++slot)
  {
    std::shared_ptr<evtx::Chunk> chunk;
    if (file.LoadChunk(slot, chunk) != evtx::Status::Ok || !chunk)
      continue;
    for (const evtx::Record& record : chunk->Records())
    {
      evtx::SystemValues values;
      if (chunk->Decode(record, tree) != evtx::Status::Ok)
        continue;
      tree.System(values);
      if (!values.recordId || !values.eventId)
        continue;
      events.push_back({evtx::ValueText(values.providerName), static_cast<std::uint16_t>(*values.eventId),
                        static_cast<std::uint8_t>(values.level.value_or(4)), values.timeCreated.value_or(0),
                        *values.recordId, evtx::ValueText(values.channel), evtx::ValueText(values.computer)});
    }
  }
  return events;
}

// Events of three sample logs, by their EventRecordID: the highest ones are stored first, the
// lowest later, each group mixing the three channels.
class CForwardedSamples
{
public:
  CForwardedSamples()
  {
    for (const char* name : {"security.evtx", "system.evtx", "sysmon.evtx"})
    {
      auto events = ReadSample(name);
      std::sort(events.begin(), events.end(), [](auto& a, auto& b) { return a.recordId < b.recordId; });
      if (events.size() < 30)
        throw std::runtime_error(std::string("too few events in ") + name);
      low.insert(low.end(), events.begin(), events.begin() + 10);
      high.insert(high.end(), events.end() - 20, events.end());
    }
    // Interleaved by channel, as a collector receives them.
    Interleave(high, 20);
    Interleave(low, 10);
  }

  std::vector<SSourceEvent> high;
  std::vector<SSourceEvent> low;

private:
  static void Interleave(std::vector<SSourceEvent>& events, std::size_t perChannel)
  {
    std::vector<SSourceEvent> mixed;
    for (std::size_t i = 0; i < perChannel; ++i)
      for (std::size_t channel = 0; channel < 3; ++channel)
        mixed.push_back(events[channel * perChannel + i]);
    events = std::move(mixed);
  }
};

// Appends forwarded copies to a log; each copy carries an "Index" value that names it.
class CForwardedLog
{
public:
  CForwardedLog(std::string path, bool create = true) : m_path(std::move(path))
  {
    std::string error;
    if (!(create ? m_writer.Create(m_path, &error) : m_writer.Open(m_path, &error)))
      throw std::runtime_error("cannot write " + m_path + ": " + error);
  }

  // Returns the indexes given to the copies.
  std::set<int> Append(const std::vector<SSourceEvent>& events)
  {
    std::set<int> indexes;
    for (const SSourceEvent& source : events)
    {
      evtx::WriterEvent event;
      event.provider = source.provider;
      event.eventId = source.eventId;
      event.level = source.level;
      event.timeCreated = source.timeCreated;
      event.eventRecordId = source.recordId;
      event.channel = source.channel;
      event.computer = source.computer;
      event.data.push_back({"Index", evtx::WriterValue::Text(std::to_string(++m_index))});
      if (m_writer.Append(event) == 0)
        throw std::runtime_error("append failed");
      indexes.insert(m_index);
    }
    return indexes;
  }

private:
  std::string m_path;
  evtx::Writer m_writer;
  // Apart from the channel writer's indexes.
  int m_index = 1000;
};

class EventForwarded : public testing::Test
{
protected:
  std::shared_ptr<CTestEventCollection> Make(std::initializer_list<std::wstring> channels)
  {
    auto made = parts.Make(host.Path().wstring());
    made->Subscribe(subscriber);
    auto filters = Filters(channels);
    made->SetFilter(filters);
    return made;
  }

  // The indexes one update delivered; a repeated index fails the test.
  std::set<int> Update(CTestEventCollection& collection)
  {
    subscriber->Clear();
    collection.UpdateOnce();
    std::set<int> indexes;
    for (const auto& record : subscriber->Records())
      EXPECT_TRUE(indexes.insert(IndexOf(*record)).second) << "delivered twice: " << IndexOf(*record);
    return indexes;
  }

  static const CForwardedSamples& Samples()
  {
    static const CForwardedSamples samples;
    return samples;
  }

  CTempHost host;
  SCollectionParts parts;
  std::shared_ptr<CCollectingSubscriber> subscriber = std::make_shared<CCollectingSubscriber>();
};

TEST_F(EventForwarded, TheSamplesMixChannelsAndLaterEventsShowLowerNumbers)
{
  const auto& samples = Samples();
  std::set<std::string> channels;
  for (const auto& event : samples.high)
    channels.insert(event.channel);
  EXPECT_EQ(channels.size(), 3u);
  const auto lowest = std::min_element(samples.high.begin(), samples.high.end(),
                                       [](auto& a, auto& b) { return a.recordId < b.recordId; });
  for (const auto& event : samples.low)
    EXPECT_LT(event.recordId, lowest->recordId);
}

TEST_F(EventForwarded, EventsWithLowerNumbersAppendedLaterAreDeliveredOnce)
{
  CForwardedLog log(host.ChannelFile("ForwardedEvents"));
  const std::set<int> first = log.Append(Samples().high);
  auto collection = Make({L"ForwardedEvents"});
  EXPECT_EQ(Update(*collection), first);
  EXPECT_TRUE(Update(*collection).empty());
  const std::set<int> later = log.Append(Samples().low);
  EXPECT_EQ(Update(*collection), later);
  EXPECT_TRUE(Update(*collection).empty());
}

TEST_F(EventForwarded, ARestartWithSavedBookmarksResumesAfterTheLastEvent)
{
  CForwardedLog log(host.ChannelFile("ForwardedEvents"));
  const std::set<int> first = log.Append(Samples().high);
  std::vector<collector::ni::win_events::SBookmark> saved;
  {
    auto collection = Make({L"ForwardedEvents"});
    ASSERT_EQ(Update(*collection), first);
    saved = collection->SaveBookmarks();
  }
  ASSERT_EQ(saved.size(), 1u);
  EXPECT_EQ(saved[0].BookmarkXml, L"<BookmarkList>\r\n  <Bookmark Channel='ForwardedEvents' RecordId='" +
                                    std::to_wstring(first.size()) + L"' IsCurrent='true'/>\r\n</BookmarkList>");
  const std::set<int> later = log.Append(Samples().low);
  auto restarted = Make({L"ForwardedEvents"});
  restarted->RestoreBookmarks(saved);
  EXPECT_EQ(Update(*restarted), later);
}

// Saved while the update delivers the tenth event, the bookmark names the ninth: a restart
// delivers again from the tenth, nothing before it.
TEST_F(EventForwarded, BookmarksSavedDuringAnUpdateNameTheLastEventDelivered)
{
  CForwardedLog log(host.ChannelFile("ForwardedEvents"));
  const std::set<int> first = log.Append(Samples().high);
  auto collection = Make({L"ForwardedEvents"});
  std::vector<collector::ni::win_events::SBookmark> saved;
  subscriber->onRecord = [&](ICollectionTypes::Records records) {
    if (IndexOf(*records.front()) == *std::next(first.begin(), 9))
      saved = collection->SaveBookmarks();
  };
  ASSERT_EQ(Update(*collection), first);
  subscriber->onRecord = nullptr;
  ASSERT_EQ(saved.size(), 1u);
  auto restarted = Make({L"ForwardedEvents"});
  restarted->RestoreBookmarks(saved);
  EXPECT_EQ(Update(*restarted), std::set<int>(std::next(first.begin(), 9), first.end()));
}

TEST_F(EventForwarded, APathInOtherCaseIsReadByPositionToo)
{
  CForwardedLog log(host.ChannelFile("ForwardedEvents"));
  const std::set<int> first = log.Append(Samples().high);
  auto collection = Make({L"forwardedevents"});
  EXPECT_EQ(Update(*collection), first);
  const std::set<int> later = log.Append(Samples().low);
  EXPECT_EQ(Update(*collection), later);
  const auto saved = collection->SaveBookmarks();
  ASSERT_EQ(saved.size(), 1u);
  EXPECT_EQ(saved[0].Path, L"forwardedevents");
  EXPECT_FALSE(saved[0].BookmarkXml.empty());
}

// A subscription may fill a log of any name: its events naming other channels tell.
TEST_F(EventForwarded, ALogOfAnotherNameIsKnownByItsEventsChannels)
{
  CForwardedLog log(host.ChannelFile("WEC-Authentication"));
  const std::set<int> first = log.Append(Samples().high);
  auto collection = Make({L"WEC-Authentication"});
  EXPECT_EQ(Update(*collection), first);
  const std::set<int> later = log.Append(Samples().low);
  EXPECT_EQ(Update(*collection), later);
}

TEST_F(EventForwarded, AClearedLogIsReadFromItsFirstRecord)
{
  {
    CForwardedLog log(host.ChannelFile("ForwardedEvents"));
    log.Append(Samples().high);
  }
  auto collection = Make({L"ForwardedEvents"});
  ASSERT_EQ(Update(*collection).size(), Samples().high.size());
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  CForwardedLog cleared(host.ChannelFile("ForwardedEvents"));
  const std::set<int> after = cleared.Append(Samples().low);
  EXPECT_EQ(Update(*collection), after);
  EXPECT_EQ(capture.Sink().Count(L"Log ForwardedEvents was cleared; reading it from the start"), 1u);
  EXPECT_TRUE(Update(*collection).empty());
  EXPECT_EQ(capture.Sink().Count(L"was cleared"), 1u);
}

TEST_F(EventForwarded, OtherChannelsKeepTheirRecordNumberQuery)
{
  CChannelWriter system(host.ChannelFile("System"), "System");
  system.AppendMany(1, 5);
  CForwardedLog log(host.ChannelFile("ForwardedEvents"));
  log.Append(Samples().high);
  auto collection = Make({L"System", L"ForwardedEvents"});
  EXPECT_EQ(Update(*collection).size(), 5u + Samples().high.size());
  system.AppendMany(6, 2);
  const std::set<int> later = log.Append(Samples().low);
  const std::set<int> delivered = Update(*collection);
  EXPECT_EQ(delivered.size(), 2u + later.size());
  for (const auto& bookmark : collection->SaveBookmarks())
    EXPECT_EQ(bookmark.BookmarkXml.empty(), bookmark.Path == L"System") << bookmark.Path;
}

TEST_F(EventForwarded, RestoreBookmarksRejectsABookmarkTextWindowsRefuses)
{
  auto collection = Make({L"ForwardedEvents"});
  const std::vector<collector::ni::win_events::SBookmark> bad{{L"ForwardedEvents", 3, L"<BookmarkList><Bookmark/>"}};
  EXPECT_THROW(collection->RestoreBookmarks(bad), CHResultException);
}
} // namespace
