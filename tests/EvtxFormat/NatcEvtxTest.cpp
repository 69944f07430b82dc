// natc evtx as a user runs it over the sample logs: dump prints one line per event in file order
// (xml and jsonl agree with the reference values), --query filters by channel and XPath, a
// directory dumps every file, info counts chunks and records, and bad arguments say why.
#include "TestSupport/CommandOutput.h"
#include "TestSupport/Samples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
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
  std::string pattern = (std::filesystem::temp_directory_path() / "natc-evtx-test-XXXXXX").string();
  ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
  const std::filesystem::path directory = pattern;
  std::filesystem::create_symlink(Sample("system.evtx"), directory / "a.evtx");
  std::filesystem::create_symlink(Sample("security.evtx"), directory / "b.evtx");
  std::ofstream(directory / "notes.txt") << "not a log\n";
  const CommandOutput output = Evtx("dump '" + directory.string() + "' --format jsonl");
  std::filesystem::remove_all(directory);
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
} // namespace
