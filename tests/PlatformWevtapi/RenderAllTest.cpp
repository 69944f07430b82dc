// Every record of every sample log through the public Event Log API: each file is linked into a
// host directory under its channel's Windows file name, queried with "*", and every event is
// rendered with the two-call size protocol. The API must deliver and render exactly the records
// our reader decodes, and the rendered XML must parse and carry the reference System values.
#include "TestSupport/Samples.h"
#include "TestSupport.h"
#include "WinEvt/Hosts.h"

#include "Evtx/Event.h"
#include "Evtx/File.h"
#include "Evtx/ValueText.h"
#include "Evtx/Query/Utf.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>

namespace
{
using namespace wevtapi_test;
namespace fs = std::filesystem;

std::vector<std::string> SampleNames()
{
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(EvtxSamplesDirectory(), error))
    if (entry.path().extension() == ".evtx")
      names.push_back(entry.path().stem().string());
  std::sort(names.begin(), names.end());
  return names;
}

// What our reader decodes: distinct record numbers (the API never delivers one twice) and the
// channel most records name.
struct Decoded
{
  std::set<std::uint64_t> recordIds;
  std::string channel;
};

Decoded DecodeFile(const fs::path& path)
{
  Decoded decoded;
  std::map<std::string, std::size_t> channels;
  evtx::File file;
  EXPECT_EQ(file.Open(path.string()), evtx::Status::Ok) << path;
  evtx::EventTree tree;
  for (std::uint32_t i = 0; i < file.ChunkCount(); ++i)
  {
    std::shared_ptr<evtx::Chunk> chunk;
    if (file.LoadChunk(i, chunk) != evtx::Status::Ok)
      continue;
    for (const evtx::Record& record : chunk->Records())
    {
      if (chunk->Decode(record, tree) != evtx::Status::Ok)
        continue;
      decoded.recordIds.insert(record.id);
      evtx::SystemValues system;
      tree.System(system);
      ++channels[evtx::ValueText(system.channel)];
    }
  }
  std::size_t most = 0;
  for (const auto& [name, count] : channels)
    if (!name.empty() && count > most)
      decoded.channel = name, most = count;
  return decoded;
}

// "created" as the references write it: milliseconds = round(fraction x 1000), not carried into
// the seconds. `tie` tells that the fraction lies exactly half way, where references differ.
std::string ReferenceCreated(const std::string& systemTime, bool& tie)
{
  // YYYY-MM-DDTHH:MM:SS.fffffffZ
  tie = false;
  if (systemTime.size() < 21 || systemTime[19] != '.')
    return systemTime;
  std::string digits;
  for (std::size_t i = 20; i < systemTime.size() && std::isdigit(static_cast<unsigned char>(systemTime[i])); ++i)
    digits += systemTime[i];
  digits.resize(7, '0');
  tie = digits.substr(3) == "5000";
  const double fraction = std::stod("0." + digits);
  char ms[16];
  std::snprintf(ms, sizeof ms, "%03d", static_cast<int>(std::nearbyint(fraction * 1000.0)));
  return systemTime.substr(0, 20) + ms;
}

long long MillisOfDay(const std::string& created)
{
  const int h = std::stoi(created.substr(11, 2)), m = std::stoi(created.substr(14, 2)), s = std::stoi(created.substr(17, 2));
  return ((h * 60LL + m) * 60 + s) * 1000 + std::stoll(created.substr(20));
}

class RenderAll : public testing::TestWithParam<std::string>
{
protected:
  fs::path Sample() const { return EvtxSamplesDirectory() / (GetParam() + ".evtx"); }

  // Renders every event of the query; counts events whose rendering failed.
  std::vector<std::wstring> RenderEverything(EVT_HANDLE query, std::size_t& failures)
  {
    std::vector<std::wstring> xmls;
    EVT_HANDLE events[64];
    DWORD returned = 0;
    while (EvtNext(query, 64, events, INFINITE, 0, &returned))
    {
      for (DWORD i = 0; i < returned; ++i)
      {
        Handle event(events[i]);
        DWORD used = 0, properties = 0;
        if (EvtRender(nullptr, event.get(), EvtRenderEventXml, 0, nullptr, &used, &properties) ||
            GetLastError() != ERROR_INSUFFICIENT_BUFFER || used % sizeof(wchar_t) != 0 || used == 0)
        {
          ++failures;
          continue;
        }
        std::wstring xml(used / sizeof(wchar_t), L'\0');
        DWORD second = 0;
        if (!EvtRender(nullptr, event.get(), EvtRenderEventXml, used, xml.data(), &second, &properties) ||
            second != used || xml.back() != L'\0')
        {
          ++failures;
          continue;
        }
        xml.pop_back();
        xmls.push_back(std::move(xml));
      }
    }
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
    return xmls;
  }
};

TEST_P(RenderAll, EveryDecodedRecordRendersWithTheReferenceSystemValues)
{
  const Decoded decoded = DecodeFile(Sample());
  const std::wstring channel = decoded.channel.empty() ? L"Sample/Log" : evtx::query::FromUtf8(decoded.channel);
  TempHost host;
  fs::create_symlink(Sample(), host.Path() / natc::winevt::ChannelFileName(channel));
  Handle session = OpenSession(host.WidePath());
  ASSERT_TRUE(session);
  Handle query(EvtQuery(session.get(), channel.c_str(), L"*", EvtQueryChannelPath | EvtQueryForwardDirection));
  ASSERT_TRUE(query) << GetLastError();

  std::size_t failures = 0;
  const auto xmls = RenderEverything(query.get(), failures);
  EXPECT_EQ(failures, 0u) << "events that did not render";
  EXPECT_EQ(xmls.size(), decoded.recordIds.size()) << "rendered vs decoded records";

  // Parse every rendering and index the System values by EventRecordID.
  std::map<std::uint64_t, std::unique_ptr<pugi::xml_document>> parsed;
  for (const std::wstring& xml : xmls)
  {
    auto document = std::make_unique<pugi::xml_document>();
    const auto result = document->load_buffer(xml.data(), xml.size() * sizeof(wchar_t), pugi::parse_default,
                                              pugi::encoding_wchar);
    if (!result)
    {
      ADD_FAILURE() << "XML does not parse (" << result.description() << "): " << evtx::query::ToUtf8(xml).substr(0, 300);
      continue;
    }
    const auto id = document->child("Event").child("System").child("EventRecordID").text().as_ullong();
    parsed.emplace(id, std::move(document));
  }

  std::ifstream expected(EvtxSamplesDirectory() / "expected" / (GetParam() + ".jsonl"));
  std::string line;
  std::size_t checked = 0;
  while (std::getline(expected, line))
  {
    if (line.empty())
      continue;
    const auto e = nlohmann::json::parse(line);
    const auto id = e.at("record_id").get<std::uint64_t>();
    SCOPED_TRACE(GetParam() + " record " + std::to_string(id));
    const auto found = parsed.find(id);
    ASSERT_NE(found, parsed.end()) << "not rendered";
    const pugi::xml_node system = found->second->child("Event").child("System");
    const pugi::xml_node eventId = system.child("EventID");
    EXPECT_EQ(eventId.text().as_uint(), e.at("event_id").get<std::uint32_t>());
    if (e.at("qualifiers").is_null())
    {
      EXPECT_FALSE(eventId.attribute("Qualifiers"));
    }
    else
    {
      EXPECT_EQ(eventId.attribute("Qualifiers").as_uint(0xffffffffu), e.at("qualifiers").get<std::uint32_t>());
    }
    if (!e.at("level").is_null())
    {
      EXPECT_EQ(system.child("Level").text().as_uint(), e.at("level").get<std::uint32_t>());
    }
    EXPECT_EQ(std::string(system.child("Provider").attribute("Name").value()), e.at("provider").get<std::string>());
    EXPECT_EQ(std::string(system.child("Channel").text().get()), e.at("channel").get<std::string>());
    EXPECT_EQ(std::string(system.child("Computer").text().get()), e.at("computer").get<std::string>());
    EXPECT_EQ(std::string(system.child("Security").attribute("UserID").value()), e.at("user_sid").get<std::string>());
    if (!e.at("created").is_null())
    {
      bool tie = false;
      const std::string ours = ReferenceCreated(system.child("TimeCreated").attribute("SystemTime").value(), tie);
      const std::string theirs = e.at("created").get<std::string>();
      ASSERT_GE(ours.size(), 21u) << ours;
      // Half-way times round either way in the references; python-evtx's times may be 1 ms off.
      if (tie || !e.value("created_exact", true))
      {
        EXPECT_EQ(ours.substr(0, 11), theirs.substr(0, 11));
        EXPECT_LE(std::llabs(MillisOfDay(ours) - MillisOfDay(theirs)), 1) << ours << " vs " << theirs;
      }
      else
      {
        EXPECT_EQ(ours, theirs);
      }
    }
    ++checked;
  }
  RecordProperty("rendered", static_cast<int>(xmls.size()));
  RecordProperty("checked", static_cast<int>(checked));
}

// EvtRender's XML of one record of a sample log, served as the given channel.
std::wstring RenderRecord(const std::string& sample, const std::wstring& channel, std::uint64_t recordId)
{
  TempHost host;
  fs::create_symlink(EvtxSamplesDirectory() / sample, host.Path() / natc::winevt::ChannelFileName(channel));
  Handle session = OpenSession(host.WidePath());
  if (!session)
    return L"<no session>";
  const std::wstring xpath = L"*[System[EventRecordID=" + std::to_wstring(recordId) + L"]]";
  Handle query(EvtQuery(session.get(), channel.c_str(), xpath.c_str(), EvtQueryChannelPath | EvtQueryForwardDirection));
  EVT_HANDLE event = nullptr;
  DWORD returned = 0;
  if (!query || !EvtNext(query.get(), 1, &event, INFINITE, 0, &returned) || returned != 1)
    return L"<no event>";
  Handle owned(event);
  return RenderXml(event);
}

// Windows renders pointer-sized values in 0x-hex: Microsoft's XML of event 4616 shows
// <Data Name="ProcessId">0x1074</Data>. Record 599 of this log is a 4616 event of process 1100.
TEST(RenderAllSamples, SizeTValuesRenderAsWindowsRendersThem)
{
  if (!fs::exists(EvtxSamplesDirectory() / "Security_with_size_t.evtx"))
    GTEST_SKIP() << "sample missing";
  const std::wstring xml = RenderRecord("Security_with_size_t.evtx", L"Security", 599);
  EXPECT_NE(xml.find(L"<EventID>4616</EventID>"), std::wstring::npos) << evtx::query::ToUtf8(xml);
  EXPECT_NE(xml.find(L"<Data Name='ProcessId'>0x44c</Data>"), std::wstring::npos) << evtx::query::ToUtf8(xml);
}

// Windows' EvtRender writes control characters as they are (strict XML readers reject its output
// for them), so the events' text keeps them: record 55 of security.evtx holds U+0003 in a 4739.
TEST(RenderAllSamples, ControlCharactersReachTheRenderedTextUnchanged)
{
  if (!fs::exists(EvtxSamplesDirectory() / "security.evtx"))
    GTEST_SKIP() << "sample missing";
  const std::wstring xml = RenderRecord("security.evtx", L"Security", 55);
  EXPECT_NE(xml.find(L"<EventID>4739</EventID>"), std::wstring::npos) << evtx::query::ToUtf8(xml);
  EXPECT_NE(xml.find(std::wstring(L"<Data Name='MinPasswordAge'>") + L'\x03' + L"</Data>"), std::wstring::npos)
    << evtx::query::ToUtf8(xml);
  EXPECT_EQ(xml.find(L'\x2403'), std::wstring::npos);
}

TEST(RenderAllSamples, FolderIsPresent)
{
  EXPECT_FALSE(SampleNames().empty()) << "no samples under " << EvtxSamplesDirectory();
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RenderAll);
INSTANTIATE_TEST_SUITE_P(Samples, RenderAll, testing::ValuesIn(SampleNames()), [](const auto& info) {
  std::string name = info.param;
  std::replace_if(name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
  return name;
});
} // namespace
