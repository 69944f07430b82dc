// Acceptance over the real sample logs: every record that the reference readers found is read,
// with equal System values and equal EventData texts where the references agree or libevtx
// read the record (a short list of its known faults aside).
#include "TestSupport/Samples.h"
#include "Evtx/Chunk.h"
#include "Evtx/Event.h"
#include "Evtx/File.h"
#include "Evtx/Render.h"
#include "Evtx/ValueText.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace
{
struct Read
{
  std::optional<std::uint32_t> eventId, qualifiers, level;
  std::string provider, channel, computer, userSid;
  std::optional<std::uint64_t> created;
  std::vector<std::string> data;
};

std::vector<std::string> SampleNames()
{
  std::vector<std::string> names;
  if (!fs::is_directory(EvtxSamplesDirectory()))
    return names;
  for (const auto& entry : fs::directory_iterator(EvtxSamplesDirectory()))
    if (entry.path().extension() == ".evtx")
      names.push_back(entry.path().stem().string());
  std::sort(names.begin(), names.end());
  return names;
}

// "created" as the references wrote it: milliseconds = round(fraction x 1000), ties to even,
// printed without carrying into the seconds.
std::string ReferenceCreated(std::uint64_t filetime)
{
  std::string text;
  evtx::AppendFileTime(text, filetime);  // YYYY-MM-DDTHH:MM:SS.fffffffZ
  const double fraction = std::stod("0." + text.substr(20, 7));
  char ms[16];
  std::snprintf(ms, sizeof ms, "%03d", static_cast<int>(std::nearbyint(fraction * 1000.0)));
  return text.substr(0, 20) + ms;
}

long long MillisOfDay(const std::string& created)
{
  // HH:MM:SS.mmm[m] starting at 11
  const int h = std::stoi(created.substr(11, 2)), m = std::stoi(created.substr(14, 2)),
            s = std::stoi(created.substr(17, 2));
  return ((h * 60LL + m) * 60 + s) * 1000 + std::stoll(created.substr(20));
}

// A whole number written in decimal or as 0x-hex: the references write SizeT values in
// decimal where Windows (and we) write 0x-hex, and pad hex numbers differently.
bool ParseNumber(const std::string& s, unsigned long long& out)
{
  const bool hex = s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
  const std::string digits = hex ? s.substr(2) : s;
  if (digits.empty() || digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
    return false;
  try
  {
    out = std::stoull(digits, nullptr, hex ? 16 : 10);
    return true;
  }
  catch (...)
  {
    return false;
  }
}

// An instant "YYYY-MM-DD[T ]HH:MM:SS.f+Z?" truncated to microseconds, as text, or nullopt.
std::optional<std::string> Instant(const std::string& s)
{
  if (s.size() < 20 || s[4] != '-' || s[7] != '-' || (s[10] != 'T' && s[10] != ' ') ||
      s[13] != ':' || s[16] != ':' || s[19] != '.')
    return std::nullopt;
  std::string digits;
  for (std::size_t i = 20; i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])); ++i)
    digits += s[i];
  digits.resize(6, '0');
  return s.substr(0, 10) + "T" + s.substr(11, 8) + "." + digits;
}

std::string Lower(std::string s)
{
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

// The references read our values back from XML, whose parsers turn CR LF into LF.
std::string XmlLineEnds(const std::string& s)
{
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i)
    if (!(s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n'))
      out += s[i];
  return out;
}

bool DataEqual(const std::string& expected, const std::string& actualRaw)
{
  const std::string actual = XmlLineEnds(actualRaw);
  if (expected == actual)
    return true;
  unsigned long long a = 0, b = 0;
  if (ParseNumber(expected, a) && ParseNumber(actual, b))
    return a == b;
  const std::string le = Lower(expected), la = Lower(actual);
  if (le == la && (le == "true" || le == "false" || (le.size() == 38 && le.front() == '{')))
    return true;
  const auto ie = Instant(expected), ia = Instant(actual);
  return ie && ia && *ie == *ia;
}

// Records where libevtx's data is not what Windows shows, so they are not compared.
const char* KnownReferenceFault(const std::string& name, std::uint64_t recordId)
{
  struct Fault
  {
    const char* file;
    std::uint64_t record;
    const char* why;
  };
  static const Fault faults[] = {
    // ExtraInfo is a string holding one line feed; libevtx writes the element empty (and
    // python-evtx disagrees with it).
    {"Application_no_crc32", 441, "whitespace-only value dropped by the reference"},
  };
  for (const Fault& f : faults)
    if (name == f.file && recordId == f.record)
      return f.why;
  return nullptr;
}

std::map<std::uint64_t, Read> ReadAll(const std::string& path, std::size_t& renderMismatches)
{
  std::map<std::uint64_t, Read> out;
  evtx::File file;
  EXPECT_EQ(file.Open(path), evtx::Status::Ok) << path;
  evtx::EventTree tree;
  std::string fast, slow;
  for (std::uint32_t i = 0; i < file.ChunkCount(); ++i)
  {
    std::shared_ptr<evtx::Chunk> chunk;
    if (file.LoadChunk(i, chunk) != evtx::Status::Ok)
      continue;
    for (const evtx::Record& record : chunk->Records())
    {
      if (chunk->Decode(record, tree) != evtx::Status::Ok)
        continue;
      // Both renderers must agree byte for byte.
      fast.clear();
      slow.clear();
      EXPECT_EQ(chunk->RenderXml(record, fast), evtx::Status::Ok);
      evtx::RenderTree(tree, slow);
      if (fast != slow)
        ++renderMismatches;
      evtx::SystemValues sys;
      tree.System(sys);
      Read r;
      r.eventId = sys.eventId;
      r.qualifiers = sys.qualifiers;
      r.level = sys.level;
      r.provider = evtx::ValueText(sys.providerName);
      r.channel = evtx::ValueText(sys.channel);
      r.computer = evtx::ValueText(sys.computer);
      r.userSid = evtx::ValueText(sys.userId);
      r.created = sys.timeCreated;
      for (std::uint32_t c = tree.FirstChild(tree.EventData()); c != evtx::kNoNode; c = tree[c].nextSibling)
        if (tree[c].kind == evtx::NodeKind::Element)
          r.data.push_back(tree.Text(c));
      // The references key records by the EventRecordID text of the XML, 0 when it is absent.
      out.emplace(sys.recordId.value_or(0), std::move(r));
    }
  }
  return out;
}

class SampleFile : public ::testing::TestWithParam<std::string>
{
};

TEST_P(SampleFile, MatchesReferenceValues)
{
  const std::string name = GetParam();
  std::size_t renderMismatches = 0;
  const auto read = ReadAll((EvtxSamplesDirectory() / (name + ".evtx")).string(), renderMismatches);
  EXPECT_EQ(renderMismatches, 0u);
  std::ifstream expected(EvtxSamplesDirectory() / "expected" / (name + ".jsonl"));
  ASSERT_TRUE(expected.good());
  std::string line;
  std::size_t checked = 0;
  while (std::getline(expected, line))
  {
    if (line.empty())
      continue;
    const auto e = nlohmann::json::parse(line);
    const std::uint64_t id = e["record_id"].get<std::uint64_t>();
    const auto found = read.find(id);
    ASSERT_NE(found, read.end()) << name << ": record " << id << " not delivered";
    const Read& r = found->second;
    SCOPED_TRACE(name + " record " + std::to_string(id));
    EXPECT_EQ(r.eventId.value_or(0), e["event_id"].get<std::uint32_t>());
    if (e["qualifiers"].is_null())
      EXPECT_FALSE(r.qualifiers.has_value());
    else
      EXPECT_EQ(r.qualifiers.value_or(0xffffffff), e["qualifiers"].get<std::uint32_t>());
    if (!e["level"].is_null())
    {
      EXPECT_EQ(r.level.value_or(0), e["level"].get<std::uint32_t>());
    }
    EXPECT_EQ(r.provider, e["provider"].get<std::string>());
    EXPECT_EQ(r.channel, e["channel"].get<std::string>());
    EXPECT_EQ(r.computer, e["computer"].get<std::string>());
    EXPECT_EQ(r.userSid, e["user_sid"].get<std::string>());
    if (e["created"].is_null())
    {
      // The reference could not read a time here; nothing to compare.
    }
    else if (e.value("created_exact", true))
    {
      ASSERT_TRUE(r.created.has_value());
      const std::string ours = ReferenceCreated(*r.created);
      const std::string theirs = e["created"].get<std::string>();
      // A time exactly half way between two milliseconds rounds either way in the references.
      const bool tie = *r.created % 10000 == 5000;
      if (tie)
        EXPECT_LE(std::llabs(MillisOfDay(ours) - MillisOfDay(theirs)), 1) << ours << " vs " << theirs;
      else
        EXPECT_EQ(ours, theirs);
    }
    else if (r.created && *r.created != 0)
    {
      const std::string ours = ReferenceCreated(*r.created);
      const std::string theirs = e["created"].get<std::string>();
      EXPECT_EQ(ours.substr(0, 11), theirs.substr(0, 11));
      EXPECT_LE(std::llabs(MillisOfDay(ours) - MillisOfDay(theirs)), 1);
    }
    // libevtx's data is trusted even where python-evtx disagrees: those records are where
    // optional and array substitutions show.
    const bool trusted = e["data_agreed"].get<bool>() || e["reader"].get<std::string>() == "libevtx";
    const auto data = e["data"].get<std::vector<std::string>>();
    if (const char* why = KnownReferenceFault(name, id))
    {
      // Kept honest: an excluded record must still differ, else drop it from the list.
      bool same = r.data.size() == data.size();
      for (std::size_t i = 0; same && i < data.size(); ++i)
        same = DataEqual(data[i], r.data[i]);
      EXPECT_FALSE(same) << "no longer differs (" << why << ")";
    }
    else if (trusted)
    {
      ASSERT_EQ(r.data.size(), data.size());
      for (std::size_t i = 0; i < data.size(); ++i)
        EXPECT_TRUE(DataEqual(data[i], r.data[i])) << "data[" << i << "]: '" << data[i] << "' vs '" << r.data[i] << "'";
    }
    ++checked;
  }
  RecordProperty("checked", static_cast<int>(checked));
}

INSTANTIATE_TEST_SUITE_P(Samples, SampleFile, ::testing::ValuesIn(SampleNames()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           std::string n = info.param;
                           for (char& c : n)
                             if (!std::isalnum(static_cast<unsigned char>(c)))
                               c = '_';
                           return n;
                         });

TEST(Samples, FolderIsPresent)
{
  EXPECT_FALSE(SampleNames().empty()) << "no samples under " << EvtxSamplesDirectory();
}
} // namespace

namespace
{
// The first chunk of system.evtx as bytes.
std::vector<std::uint8_t> FirstSystemChunk()
{
  std::ifstream in(fs::path(EvtxSamplesDirectory()) / "system.evtx", std::ios::binary);
  std::vector<std::uint8_t> bytes(evtx::kChunkSize);
  in.seekg(static_cast<std::streamoff>(evtx::kFileHeaderSize));
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!in)
    bytes.clear();
  return bytes;
}

TEST(SampleChunk, LoadingIntoTheChunksOwnBufferReadsWhatACopyReads)
{
  const auto bytes = FirstSystemChunk();
  ASSERT_EQ(bytes.size(), evtx::kChunkSize) << "system.evtx is missing or short";
  evtx::Chunk copied;
  ASSERT_EQ(copied.Load(bytes.data(), bytes.size(), 0), evtx::Status::Ok);
  evtx::Chunk inPlace;
  std::memcpy(inPlace.Buffer(), bytes.data(), bytes.size());
  ASSERT_EQ(inPlace.LoadBuffer(0), evtx::Status::Ok);
  ASSERT_FALSE(copied.Records().empty());
  ASSERT_EQ(copied.Records().size(), inPlace.Records().size());
  std::string a, b;
  for (std::size_t i = 0; i < copied.Records().size(); ++i)
  {
    ASSERT_EQ(copied.RenderXml(copied.Records()[i], a), evtx::Status::Ok);
    ASSERT_EQ(inPlace.RenderXml(inPlace.Records()[i], b), evtx::Status::Ok);
  }
  EXPECT_EQ(a, b);
}

// A chunk's records rendered as lines in one call are what rendering them one by one gives,
// on every sample (damaged ones included: their failing records are listed, not written).
TEST(SampleChunk, RenderingAllLinesEqualsRenderingEachRecord)
{
  evtx::RenderOptions oneLine;
  oneLine.escapeLineBreaks = true;
  std::size_t failures = 0;
  for (const std::string& name : SampleNames())
  {
    evtx::File file;
    ASSERT_EQ(file.Open((fs::path(EvtxSamplesDirectory()) / (name + ".evtx")).string()), evtx::Status::Ok) << name;
    for (std::uint32_t index = 0; index < file.ChunkCount(); ++index)
    {
      std::shared_ptr<evtx::Chunk> chunk;
      if (file.LoadChunk(index, chunk) != evtx::Status::Ok)
        continue;
      std::string each = "before\n";
      std::vector<std::pair<std::uint64_t, evtx::Status>> eachFailed;
      for (const evtx::Record& record : chunk->Records())
      {
        const evtx::Status status = chunk->RenderXml(record, each, oneLine);
        if (status == evtx::Status::Ok)
          each += '\n';
        else
          eachFailed.emplace_back(record.id, status);
      }
      std::string lines = "before\n";
      std::vector<std::pair<evtx::Record, evtx::Status>> failed;
      chunk->RenderXmlLines(lines, oneLine, failed);
      EXPECT_EQ(lines, each) << name << " chunk " << index;
      ASSERT_EQ(failed.size(), eachFailed.size()) << name << " chunk " << index;
      for (std::size_t i = 0; i < failed.size(); ++i)
      {
        EXPECT_EQ(failed[i].first.id, eachFailed[i].first);
        EXPECT_EQ(failed[i].second, eachFailed[i].second);
      }
      failures += failed.size();
    }
  }
  // The damaged samples hold records that fail: the comparison covered that case too.
  EXPECT_GT(failures, 0u);
}

TEST(SampleChunk, AReusedChunkForgetsItsPreviousRecords)
{
  const auto bytes = FirstSystemChunk();
  ASSERT_EQ(bytes.size(), evtx::kChunkSize) << "system.evtx is missing or short";
  evtx::Chunk chunk;
  ASSERT_EQ(chunk.Load(bytes.data(), bytes.size(), 3), evtx::Status::Ok);
  ASSERT_FALSE(chunk.Records().empty());
  // A short read, then a damaged signature: neither may show the earlier chunk's records.
  EXPECT_EQ(chunk.Load(bytes.data(), 100, 4), evtx::Status::Truncated);
  EXPECT_TRUE(chunk.Records().empty());
  EXPECT_EQ(chunk.Index(), 4u);
  ASSERT_EQ(chunk.Load(bytes.data(), bytes.size(), 3), evtx::Status::Ok);
  chunk.Buffer()[0] = 'X';
  EXPECT_NE(chunk.LoadBuffer(5), evtx::Status::Ok);
  EXPECT_TRUE(chunk.Records().empty());
  EXPECT_FALSE(chunk.HeaderChecksumOk());
}
} // namespace
