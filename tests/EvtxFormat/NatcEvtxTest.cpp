// natc evtx as a user runs it over the sample logs: dump prints one line per event in file order
// (xml and jsonl agree with the reference values, every xml line is well-formed XML), --query
// selects as wevtutil qe /q: does over one or several files, a directory dumps every file, info
// counts chunks and records, and bad arguments say why.
#include "TestLog.h"
#include "TestSupport/CommandOutput.h"
#include "TestSupport/Samples.h"
#include "TestSupport/TempDirectory.h"

#include "Evtx/Writer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace
{
std::vector<nlohmann::json> Reference(const std::string& name)
{
  std::vector<nlohmann::json> records;
  std::ifstream in(EvtxSamplesDirectory() / "expected" / (name + ".jsonl"));
  std::string line;
  while (std::getline(in, line))
    if (!line.empty())
      records.push_back(nlohmann::json::parse(line));
  return records;
}

std::size_t CountReference(const std::string& name, const std::function<bool(const nlohmann::json&)>& selected)
{
  const auto records = Reference(name);
  return static_cast<std::size_t>(std::count_if(records.begin(), records.end(), selected));
}

std::vector<std::string> SampleNames()
{
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(EvtxSamplesDirectory(), error))
    if (entry.path().extension() == ".evtx")
      names.push_back(entry.path().stem().string());
  std::sort(names.begin(), names.end());
  return names;
}

// The text of a record's line that holds <EventRecordID>id</EventRecordID>, or "".
std::string LineOfRecord(const std::vector<std::string>& lines, std::uint64_t id)
{
  const std::string tag = "<EventRecordID>" + std::to_string(id) + "</EventRecordID>";
  for (const std::string& line : lines)
    if (line.find(tag) != std::string::npos)
      return line;
  return "";
}

bool HavePython()
{
  return std::system("python3 -c pass >/dev/null 2>&1") == 0;
}

// Parses each line of its input with Python's xml.etree; prints the failures, then the counts.
const std::string kParseEachLine = R"(python3 -c '
import sys, xml.etree.ElementTree as tree
lines = bad = 0
for line in sys.stdin.buffer:
    lines += 1
    try:
        tree.fromstring(line)
    except tree.ParseError as error:
        bad += 1
        print("line", lines, error)
print("lines", lines, "bad", bad)
')";

class NatcEvtx : public ::testing::Test
{
protected:
  void SetUp() override
  {
    if (!std::filesystem::exists(Sample("system.evtx")))
      GTEST_SKIP() << "sample logs not found under " << EvtxSamplesDirectory();
  }

  static std::string Sample(const std::string& name) { return (EvtxSamplesDirectory() / name).string(); }

  static CommandOutput Evtx(const std::string& arguments, bool withStderr = false)
  {
    return RunCommand(std::string(NATC_BINARY) + " evtx " + arguments, withStderr);
  }
};

TEST_F(NatcEvtx, DumpJsonlGivesEveryReferenceRecordInFileOrder)
{
  const auto reference = Reference("system");
  const CommandOutput output = Evtx("dump '" + Sample("system.evtx") + "' --format jsonl");
  ASSERT_EQ(output.status, 0);
  ASSERT_EQ(output.lines.size(), reference.size());
  for (std::size_t i = 0; i < reference.size(); ++i)
  {
    const auto line = nlohmann::json::parse(output.lines[i]);
    SCOPED_TRACE(output.lines[i]);
    EXPECT_EQ(line.at("record_id"), reference[i].at("record_id"));
    EXPECT_EQ(line.at("event_id"), reference[i].at("event_id"));
    EXPECT_EQ(line.at("qualifiers"), reference[i].at("qualifiers"));
    EXPECT_EQ(line.at("provider"), reference[i].at("provider"));
    EXPECT_EQ(line.at("channel"), reference[i].at("channel"));
    // Our time has seven fractional digits; the reference rounds to milliseconds.
    EXPECT_EQ(line.at("created").get<std::string>().substr(0, 19),
              reference[i].at("created").get<std::string>().substr(0, 19));
  }
}

TEST_F(NatcEvtx, DumpXmlPrintsOneWholeEventPerLine)
{
  const CommandOutput output = Evtx("dump '" + Sample("system.evtx") + "'");
  ASSERT_EQ(output.status, 0);
  ASSERT_EQ(output.lines.size(), Reference("system").size());
  for (const std::string& line : output.lines)
  {
    ASSERT_EQ(line.rfind("<Event xmlns=", 0), 0U) << line;
    ASSERT_EQ(line.substr(line.size() - 8), "</Event>") << line;
  }
  EXPECT_NE(output.lines.front().find("<EventRecordID>1</EventRecordID>"), std::string::npos);
}

TEST_F(NatcEvtx, QueryListSelectsOnlyTheEventsOfItsChannel)
{
  std::size_t expected = 0;
  for (const auto& record : Reference("system"))
    expected += record.at("event_id") == 16 ? 1 : 0;
  ASSERT_GT(expected, 0U);
  const std::string query =
    "<QueryList><Query Id=\"0\"><Select Path=\"System\">*[System[(EventID=16)]]</Select></Query></QueryList>";
  const CommandOutput output = Evtx("dump '" + Sample("system.evtx") + "' --format jsonl --query '" + query + "'");
  ASSERT_EQ(output.status, 0);
  EXPECT_EQ(output.lines.size(), expected);
  for (const std::string& line : output.lines)
    EXPECT_EQ(nlohmann::json::parse(line).at("event_id"), 16);

  // The security log's events are of another channel: the same query list selects none of them.
  const CommandOutput other = Evtx("dump '" + Sample("security.evtx") + "' --query '" + query + "'");
  EXPECT_EQ(other.status, 0);
  EXPECT_TRUE(other.lines.empty());
}

TEST_F(NatcEvtx, BareXPathAppliesToEveryFile)
{
  std::size_t expected = 0;
  for (const auto& record : Reference("system"))
    expected += record.at("level") == 2 ? 1 : 0;
  const CommandOutput output = Evtx("dump '" + Sample("system.evtx") + "' --format jsonl --query '*[System[Level=2]]'");
  ASSERT_EQ(output.status, 0);
  EXPECT_EQ(output.lines.size(), expected);
}

TEST_F(NatcEvtx, DirectoryDumpsEveryFileInNameOrder)
{
  const TempDirectory temporary("natc-evtx-test");
  const std::filesystem::path& directory = temporary.Path();
  std::filesystem::create_symlink(Sample("system.evtx"), directory / "a.evtx");
  std::filesystem::create_symlink(Sample("security.evtx"), directory / "b.evtx");
  std::ofstream(directory / "notes.txt") << "not a log\n";
  const CommandOutput output = Evtx("dump '" + directory.string() + "' --format jsonl");
  ASSERT_EQ(output.status, 0);
  const std::size_t system = Reference("system").size();
  ASSERT_EQ(output.lines.size(), system + Reference("security").size());
  EXPECT_EQ(nlohmann::json::parse(output.lines.front()).at("channel"), "System");
  EXPECT_EQ(nlohmann::json::parse(output.lines[system]).at("channel"), "Security");
}

TEST_F(NatcEvtx, InfoCountsChunksAndRecords)
{
  const CommandOutput output = Evtx("info '" + Sample("system.evtx") + "'");
  ASSERT_EQ(output.status, 0);
  const auto has = [&](const std::string& text) {
    for (const std::string& line : output.lines)
      if (line == text)
        return true;
    return false;
  };
  EXPECT_TRUE(has("header checksum: ok"));
  EXPECT_TRUE(has("chunks damaged: 0"));
  EXPECT_TRUE(has("records: " + std::to_string(Reference("system").size())));
}

TEST_F(NatcEvtx, InfoReportsTheDamageOfABrokenFile)
{
  const CommandOutput output = Evtx("info '" + Sample("sample_with_a_bad_chunk_magic.evtx") + "'");
  ASSERT_EQ(output.status, 0);
  bool damaged = false;
  for (const std::string& line : output.lines)
    damaged = damaged || (line.find("checksum BAD") != std::string::npos);
  EXPECT_TRUE(damaged);
}

TEST_F(NatcEvtx, HelpDescribesDumpAndItsQueries)
{
  for (const char* arguments : {"--help", "dump --help", "dump -h"})
  {
    SCOPED_TRACE(arguments);
    const CommandOutput output = Evtx(arguments);
    EXPECT_EQ(output.status, 0);
    ASSERT_FALSE(output.lines.empty());
    EXPECT_EQ(output.lines.front().rfind("usage: natc evtx dump FILE|DIR...", 0), 0u) << output.lines.front();
    EXPECT_TRUE(std::any_of(output.lines.begin(), output.lines.end(),
                            [](const std::string& line) { return line.find("--query Q") != std::string::npos; }));
  }
}

TEST_F(NatcEvtx, BadArgumentsAndQueriesSayWhy)
{
  const std::pair<std::string, std::string> cases[] = {
    {"", "evtx needs a sub-command: dump or info"},
    {"dump", "evtx dump needs a FILE or DIR"},
    {"dump x.evtx --format csv", "--format must be xml or jsonl"},
    {"info", "evtx info needs a FILE"},
    {"dump '" + Sample("system.evtx") + "' --query '<QueryList><Nonsense/></QueryList>'", "natc evtx:"},
  };
  for (const auto& [arguments, message] : cases)
  {
    SCOPED_TRACE(arguments);
    const CommandOutput output = Evtx(arguments, true);
    EXPECT_NE(output.status, 0);
    ASSERT_FALSE(output.lines.empty());
    EXPECT_NE(output.lines.front().find(message), std::string::npos) << output.lines.front();
  }
}
// Python's xml.etree (expat, strict XML 1.0) parses every line of every sample's dump, the lines
// with control characters included.
TEST_F(NatcEvtx, EveryXmlLineOfEverySampleParsesWithPythonsXmlEtree)
{
  if (!HavePython())
    GTEST_SKIP() << "python3 not installed";
  const auto names = SampleNames();
  ASSERT_FALSE(names.empty());
  for (const std::string& name : names)
  {
    SCOPED_TRACE(name);
    // Records that do not decode are reported on stderr and left out, as without the pipe.
    std::string arguments = "dump '" + Sample(name + ".evtx");
    arguments += "' 2>/dev/null | ";
    arguments += kParseEachLine;
    const CommandOutput output = Evtx(arguments);
    ASSERT_EQ(output.status, 0);
    ASSERT_FALSE(output.lines.empty());
    std::size_t lines = 0, bad = 1;
    ASSERT_EQ(std::sscanf(output.lines.back().c_str(), "lines %zu bad %zu", &lines, &bad), 2) << output.lines.back();
    EXPECT_EQ(bad, 0u) << output.lines.front();
    EXPECT_GE(lines, Reference(name).size());
  }
}

// A control character that XML forbids comes out as its control picture in xml (U+0003 as
// U+2403), and as a JSON escape in jsonl: record 55 of security.evtx, a 4739 event.
TEST_F(NatcEvtx, ForbiddenControlCharactersKeepTheirCode)
{
  const CommandOutput xml = Evtx("dump '" + Sample("security.evtx") + "'");
  ASSERT_EQ(xml.status, 0);
  const std::string line = LineOfRecord(xml.lines, 55);
  EXPECT_NE(line.find("<Data Name='MinPasswordAge'>\xe2\x90\x83</Data>"), std::string::npos) << line;
  EXPECT_NE(line.find("<Data Name='LockoutThreshold'>\xe2\x90\x83</Data>"), std::string::npos) << line;
  for (const std::string& any : xml.lines)
    EXPECT_EQ(std::find_if(any.begin(), any.end(), [](char c) { return c != '\t' && static_cast<unsigned char>(c) < 0x20; }),
              any.end());

  const CommandOutput jsonl = Evtx("dump '" + Sample("security.evtx") + "' --format jsonl");
  ASSERT_EQ(jsonl.status, 0);
  bool found = false;
  for (const std::string& text : jsonl.lines)
  {
    const auto event = nlohmann::json::parse(text);
    if (event.at("record_id") != 55)
      continue;
    found = true;
    const auto data = event.at("data").get<std::vector<std::string>>();
    EXPECT_EQ(std::count(data.begin(), data.end(), std::string("\x03")), 2);
  }
  EXPECT_TRUE(found);
}

// SizeT values are 0x-hex (4616's ProcessId of process 1100 is 0x44c); every value of the log equals
// the reference's by value, which writes them in decimal.
TEST_F(NatcEvtx, SizeTValuesAreHexAndEqualTheReferenceByValue)
{
  const CommandOutput xml = Evtx("dump '" + Sample("Security_with_size_t.evtx") + "'");
  ASSERT_EQ(xml.status, 0);
  const std::string line = LineOfRecord(xml.lines, 599);
  EXPECT_NE(line.find("<Data Name='ProcessId'>0x44c</Data>"), std::string::npos) << line;

  const auto reference = Reference("Security_with_size_t");
  const CommandOutput jsonl = Evtx("dump '" + Sample("Security_with_size_t.evtx") + "' --format jsonl");
  ASSERT_EQ(jsonl.status, 0);
  ASSERT_EQ(jsonl.lines.size(), reference.size());
  const auto number = [](const std::string& text, unsigned long long& value) {
    const bool hex = text.rfind("0x", 0) == 0;
    const std::string digits = hex ? text.substr(2) : text;
    if (digits.empty() || digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
      return false;
    value = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
    return true;
  };
  std::size_t byValue = 0;
  for (std::size_t i = 0; i < reference.size(); ++i)
  {
    if (!reference[i].at("data_agreed").get<bool>())
      continue;
    const auto ours = nlohmann::json::parse(jsonl.lines[i]).at("data").get<std::vector<std::string>>();
    const auto theirs = reference[i].at("data").get<std::vector<std::string>>();
    ASSERT_EQ(ours.size(), theirs.size()) << jsonl.lines[i];
    for (std::size_t k = 0; k < ours.size(); ++k)
    {
      // Other texts are compared, with the references' other normalisations, by the samples tests.
      unsigned long long a = 0, b = 0;
      if (!number(ours[k], a) || !number(theirs[k], b))
        continue;
      EXPECT_EQ(a, b) << ours[k] << " vs " << theirs[k];
      byValue += ours[k].rfind("0x", 0) == 0 && theirs[k].rfind("0x", 0) != 0 ? 1 : 0;
    }
  }
  EXPECT_GT(byValue, 100u) << "SizeT values compared by value";
}

// Queries as wevtutil qe /q: takes them, counted against the reference values.
TEST_F(NatcEvtx, BareXPathsSelectWhatTheReferenceCounts)
{
  struct Case
  {
    const char* xpath;
    std::function<bool(const nlohmann::json&)> selected;
  };
  const Case cases[] = {
    {"*[System[(EventID=4624 or EventID=4634)]]",
     [](const nlohmann::json& r) { return r.at("event_id") == 4624 || r.at("event_id") == 4634; }},
    {"*[System[EventRecordID>=100 and EventRecordID<=200]]",
     [](const nlohmann::json& r) { return r.at("record_id") >= 100 && r.at("record_id") <= 200; }},
    {"*[System[Provider[@Name='Microsoft-Windows-Security-Auditing'] and Level=0]]",
     [](const nlohmann::json& r) { return r.at("provider") == "Microsoft-Windows-Security-Auditing" && r.at("level") == 0; }},
    // Event Viewer's custom time range, as it writes it: the times compare as instants.
    {"*[System[TimeCreated[@SystemTime>='2016-07-08T18:12:00.000Z' and @SystemTime<='2016-07-08T18:20:00.999Z']]]",
     [](const nlohmann::json& r) {
       const auto created = r.at("created").get<std::string>();
       return created >= "2016-07-08T18:12:00.000" && created <= "2016-07-08T18:20:00.999";
     }},
    {"*[EventData[Data='fsir']]",
     [](const nlohmann::json& r) {
       const auto data = r.at("data").get<std::vector<std::string>>();
       return std::find(data.begin(), data.end(), "fsir") != data.end();
     }},
  };
  for (const Case& c : cases)
  {
    SCOPED_TRACE(c.xpath);
    const std::size_t expected = CountReference("security", c.selected);
    ASSERT_GT(expected, 0u);
    const CommandOutput output = Evtx("dump '" + Sample("security.evtx") + "' --format jsonl --query \"" + c.xpath + "\"");
    ASSERT_EQ(output.status, 0);
    EXPECT_EQ(output.lines.size(), expected);
  }
}

// A query list over several files: each Select applies to the events of its channel (named in any
// case), and the files are dumped in the order given.
TEST_F(NatcEvtx, QueryListOverSeveralFilesSelectsPerChannel)
{
  const std::string query = "<QueryList><Query Id='0'>"
                            "<Select Path='system'>*[System[Level=2]]</Select>"
                            "<Select Path='Security'>*[System[EventID=4624]]</Select>"
                            "</Query></QueryList>";
  const std::size_t system = CountReference("system", [](const nlohmann::json& r) { return r.at("level") == 2; });
  const std::size_t security = CountReference("security", [](const nlohmann::json& r) { return r.at("event_id") == 4624; });
  ASSERT_GT(system, 0u);
  ASSERT_GT(security, 0u);
  const CommandOutput output = Evtx("dump '" + Sample("system.evtx") + "' '" + Sample("security.evtx") +
                                    "' --format jsonl --query \"" + query + "\"");
  ASSERT_EQ(output.status, 0);
  ASSERT_EQ(output.lines.size(), system + security);
  EXPECT_EQ(nlohmann::json::parse(output.lines[system - 1]).at("channel"), "System");
  EXPECT_EQ(nlohmann::json::parse(output.lines[system]).at("channel"), "Security");
}
// Every control character XML 1.0 forbids, in element text and in an attribute, at every offset
// of an eight-byte block: each becomes its control picture, tab stays, LF and CR become character
// references, and the line parses.
TEST_F(NatcEvtx, EveryForbiddenControlBecomesItsControlPicture)
{
  std::string controls, expected;
  for (int code = 0; code < 0x20; ++code)
  {
    const std::string padding(static_cast<std::size_t>(code % 8), 'a');
    controls += padding + static_cast<char>(code) + "&";
    expected += padding;
    if (code == '\t')
      expected += '\t';
    else if (code == '\n')
      expected += "&#10;";
    else if (code == '\r')
      expected += "&#13;";
    else
      expected += std::string{'\xe2', '\x90', static_cast<char>(0x80 + code)};
    expected += "&amp;";
  }
  evtx::test::TempLog log;
  {
    evtx::Writer writer;
    ASSERT_TRUE(writer.Create(log.Path()));
    evtx::WriterEvent event;
    event.provider = std::string("Provider") + '\x01';
    event.eventId = 1;
    event.data = {{"Controls", evtx::WriterValue::Text("x" + controls)}};
    ASSERT_NE(writer.Append(event), 0u);
  }
  const CommandOutput output = Evtx("dump '" + log.Path() + "'");
  ASSERT_EQ(output.status, 0);
  ASSERT_EQ(output.lines.size(), 1u);
  const std::string& line = output.lines.front();
  EXPECT_NE(line.find("<Data Name='Controls'>x" + expected + "</Data>"), std::string::npos) << line;
  EXPECT_NE(line.find("<Provider Name='Provider\xe2\x90\x81'"), std::string::npos) << line;
  if (!HavePython())
    GTEST_SKIP() << "python3 not installed";
  const CommandOutput parsed = Evtx("dump '" + log.Path() + "' | " + kParseEachLine);
  ASSERT_FALSE(parsed.lines.empty());
  EXPECT_EQ(parsed.lines.back(), "lines 1 bad 0") << parsed.lines.front();
}
} // namespace
