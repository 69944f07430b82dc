// The Event Log API over the real sample logs: each file is placed in a host directory under its
// channel's Windows file name and queried through EvtQuery/EvtNext/EvtRender; the results are
// checked against the reference values in expected/*.jsonl.
#include "TestSupport/Samples.h"
#include "TestSupport.h"
#include "WinEvt/Hosts.h"

#include "Evtx/File.h"
#include "Evtx/Query/Utf.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

namespace
{
using namespace wevtapi_test;

const std::filesystem::path kSamples = EvtxSamplesDirectory();

struct Reference
{
  std::uint64_t recordId;
  std::uint32_t eventId;
  std::string provider;
  std::string channel;
  // "2016-07-08T18:12:51.682": the time to the millisecond, as the reference readers write it.
  std::string created;
};

std::vector<Reference> LoadReference(const std::string& name)
{
  std::vector<Reference> records;
  std::ifstream in(kSamples / "expected" / (name + ".jsonl"));
  std::string line;
  while (std::getline(in, line))
  {
    if (line.empty())
      continue;
    const auto j = nlohmann::json::parse(line);
    records.push_back({j.at("record_id").get<std::uint64_t>(), j.at("event_id").get<std::uint32_t>(),
                       j.at("provider").get<std::string>(), j.at("channel").get<std::string>(),
                       j.at("created").is_string() ? j.at("created").get<std::string>() : std::string()});
  }
  return records;
}

std::vector<std::string> SampleNames()
{
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(kSamples, error))
    if (entry.path().extension() == ".evtx")
      names.push_back(entry.path().stem().string());
  std::sort(names.begin(), names.end());
  return names;
}

class Sample : public testing::TestWithParam<std::string>
{
protected:
  void SetUp() override
  {
    reference = LoadReference(GetParam());
    if (reference.empty())
      GTEST_SKIP() << "no reference values for " << GetParam();
    const auto named = std::find_if(reference.begin(), reference.end(), [](const Reference& r) { return !r.channel.empty(); });
    channel = named != reference.end() ? evtx::query::FromUtf8(named->channel) : L"Sample/Log";
    // The file as Windows stores the channel: "A/B" is A%4B.evtx.
    std::filesystem::create_symlink(kSamples / (GetParam() + ".evtx"),
                                    host.Path() / natc::winevt::ChannelFileName(channel));
    session = OpenSession(host.WidePath());
    ASSERT_TRUE(session);
  }

  std::vector<std::uint64_t> Select(const std::wstring& xpath)
  {
    const std::wstring list = L"<QueryList><Query Id=\"0\"><Select Path=\"" + channel + L"\">" + xpath +
                              L"</Select></Query></QueryList>";
    Handle query(EvtQuery(session.get(), nullptr, list.c_str(), 0x1101));
    EXPECT_TRUE(query) << GetLastError();
    return query ? ReadAll(query.get()) : std::vector<std::uint64_t>{};
  }

  TempHost host;
  Handle session;
  std::vector<Reference> reference;
  std::wstring channel;
};

TEST_P(Sample, EveryReferenceRecordIsDeliveredOnce)
{
  auto ids = Select(L"*");
  // Records the reader cannot render show as 0 here; they are counted, not compared.
  std::sort(ids.begin(), ids.end());
  const auto rendered = std::upper_bound(ids.begin(), ids.end(), 0u);
  RecordProperty("unrendered", static_cast<int>(rendered - ids.begin()));
  EXPECT_EQ(std::adjacent_find(rendered, ids.end()), ids.end()) << "a record was delivered twice";
  const std::set<std::uint64_t> delivered(ids.begin(), ids.end());
  for (const Reference& r : reference)
    EXPECT_TRUE(delivered.count(r.recordId)) << "record " << r.recordId << " missing";
}

TEST_P(Sample, EventIdFilterMatchesTheReference)
{
  std::map<std::uint32_t, int> counts;
  for (const Reference& r : reference)
    ++counts[r.eventId];
  const auto common = std::max_element(counts.begin(), counts.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; })->first;
  const auto ids = Select(L"*[System[(EventID=" + std::to_wstring(common) + L")]]");
  const std::set<std::uint64_t> selected(ids.begin(), ids.end());
  for (const Reference& r : reference)
    EXPECT_EQ(selected.count(r.recordId) == 1, r.eventId == common) << "record " << r.recordId;
}

TEST_P(Sample, ProviderFilterMatchesTheReference)
{
  const auto named = std::find_if(reference.begin(), reference.end(), [](const Reference& r) { return !r.provider.empty(); });
  ASSERT_NE(named, reference.end());
  const std::string provider = named->provider;
  const auto ids = Select(L"*[System[Provider[@Name='" + evtx::query::FromUtf8(provider) + L"']]]");
  const std::set<std::uint64_t> selected(ids.begin(), ids.end());
  for (const Reference& r : reference)
    EXPECT_EQ(selected.count(r.recordId) == 1, r.provider == provider) << "record " << r.recordId;
}

TEST_P(Sample, RecordIdBoundGivesExactlyTheNewerRecords)
{
  const auto all = Select(L"*");
  const std::uint64_t bookmark = reference[reference.size() / 2].recordId;
  std::vector<std::uint64_t> expected;
  std::copy_if(all.begin(), all.end(), std::back_inserter(expected), [&](auto id) { return id > bookmark; });
  const auto newer = Select(L"*[System[(EventRecordID&gt;" + std::to_wstring(bookmark) + L")]]");
  evtx::File file;
  ASSERT_EQ(file.Open((kSamples / (GetParam() + ".evtx")).string()), evtx::Status::Ok);
  if ((file.Header().flags & 1) == 0)
  {
    EXPECT_EQ(newer, expected);
    return;
  }
  // A file copied while Windows had it open may hold records beyond its chunk headers' ranges;
  // chunks are skipped by those ranges, so only the records they cover are certain.
  for (const auto id : newer)
    EXPECT_NE(std::find(expected.begin(), expected.end(), id), expected.end())
      << "record " << id << " is not newer than " << bookmark;
}

// Event Viewer's filter for a custom time range, which Windows answers with the events inside it:
// https://learn.microsoft.com/en-us/windows/win32/wes/consuming-events (XPath 1.0 limitations).
TEST_P(Sample, TimeRangeAsEventViewerWritesItMatchesTheReference)
{
  std::vector<std::string> times;
  for (const Reference& r : reference)
    if (r.created.size() == 23)
      times.push_back(r.created);
  std::sort(times.begin(), times.end());
  times.erase(std::unique(times.begin(), times.end()), times.end());
  if (times.size() < 4)
    GTEST_SKIP() << "too few distinct times in the reference";
  const std::string low = times[times.size() / 4], high = times[times.size() * 3 / 4];
  const std::wstring xpath = L"*[System[TimeCreated[@SystemTime&gt;='" + evtx::query::FromUtf8(low) +
                             L"Z' and @SystemTime&lt;='" + evtx::query::FromUtf8(high) + L"Z']]]";
  const auto ids = Select(xpath);
  const std::set<std::uint64_t> selected(ids.begin(), ids.end());
  std::size_t inside = 0;
  for (const Reference& r : reference)
  {
    // The reference times are rounded to milliseconds: records in a bound's millisecond may fall
    // on either side of it.
    if (r.created.size() != 23 || r.created == low || r.created == high)
      continue;
    const bool expected = r.created > low && r.created < high;
    inside += expected ? 1 : 0;
    EXPECT_EQ(selected.count(r.recordId) == 1, expected) << "record " << r.recordId << " at " << r.created;
  }
  EXPECT_GT(inside, 0u);
}

TEST(Samples, DirectoryIsThere)
{
  EXPECT_TRUE(std::filesystem::is_directory(kSamples)) << kSamples << " not found; set NATC_SHARED_DIR";
  EXPECT_FALSE(SampleNames().empty());
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Sample);
INSTANTIATE_TEST_SUITE_P(Files, Sample, testing::ValuesIn(SampleNames()), [](const auto& info) {
  std::string name = info.param;
  std::replace_if(name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
  return name;
});
} // namespace
