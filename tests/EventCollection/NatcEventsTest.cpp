// natc events as a user runs it: one update over a host directory that holds a sample log under
// its channel's file name, checked line by line against the sample's reference values; the
// filters, a missing channel next to a present one, and argument errors.
#include "TestSupport/Samples.h"
#include "TestSupport/CommandOutput.h"
#include "TestSupport/TempDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace
{
// Parsed with the keys in the order they were printed.
using Json = nlohmann::ordered_json;

std::vector<Json> Reference(const std::string& name)
{
  std::vector<Json> records;
  std::ifstream in(EvtxSamplesDirectory() / "expected" / (name + ".jsonl"));
  std::string line;
  while (std::getline(in, line))
    if (!line.empty())
      records.push_back(Json::parse(line));
  return records;
}

// A temporary host directory: System.evtx is the sample system log.
class NatcEvents : public ::testing::Test
{
protected:
  void SetUp() override
  {
    if (!std::filesystem::exists(EvtxSamplesDirectory() / "system.evtx"))
      GTEST_SKIP() << "sample logs not found under " << EvtxSamplesDirectory();
    m_host.emplace("natc-events-test");
    std::filesystem::create_symlink(EvtxSamplesDirectory() / "system.evtx", Host() / "System.evtx");
  }

  const std::filesystem::path& Host() const { return m_host->Path(); }

  CommandOutput Events(const std::string& arguments, bool withStderr = false) const
  {
    return RunCommand(std::string(NATC_BINARY) + " events --logs '" + Host().string() + "' " + arguments, withStderr);
  }

  struct Lines
  {
    std::vector<Json> records;
    std::vector<std::string> states;
    std::set<std::string> collections;
  };

  static Lines Split(const CommandOutput& output)
  {
    Lines lines;
    for (const std::string& text : output.lines)
    {
      const Json line = Json::parse(text);
      EXPECT_EQ(line.at("class"), "WindowsEvents");
      lines.collections.insert(line.at("collection").get<std::string>());
      if (line.contains("state"))
        lines.states.push_back(line.at("state").get<std::string>());
      else
        lines.records.push_back(line);
    }
    return lines;
  }

  std::optional<TempDirectory> m_host;
};

int EventTypeOfLevel(const Json& level)
{
  const int value = level.is_number() ? level.get<int>() : 0;
  return value == 1 || value == 2 ? 1 : value == 3 ? 2 : 3;
}

bool IsHexNumber(const std::string& text)
{
  if (text.size() < 3 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X'))
    return false;
  for (std::size_t i = 2; i < text.size(); ++i)
    if (std::isxdigit(static_cast<unsigned char>(text[i])) == 0)
      return false;
  return true;
}

// "YYYY-MM-DDTHH:MM:SS.f...Z" with any number of fraction digits.
bool IsTime(const std::string& text)
{
  return text.size() >= 21 && text[4] == '-' && text[10] == 'T' && text[19] == '.' && text.back() == 'Z';
}

// The reference's comparison rules for data values: hexadecimal numbers by value, times as
// instants to the microsecond, GUIDs and booleans without case.
std::string Normalised(const std::string& text)
{
  if (IsTime(text))
  {
    std::string fraction = text.substr(20, text.size() - 21);
    fraction.resize(6, '0');
    return text.substr(0, 20) + fraction;
  }
  if (IsHexNumber(text))
    return std::to_string(std::strtoull(text.c_str() + 2, nullptr, 16));
  std::string lower = text;
  for (char& c : lower)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

TEST_F(NatcEvents, OnceOverTheSystemLogPrintsEveryReferenceRecordInOrder)
{
  const CommandOutput output = Events("--channel System --once");
  ASSERT_EQ(output.status, 0);
  const Lines lines = Split(output);
  EXPECT_EQ(lines.states, (std::vector<std::string>{"Starting", "Running", "Stopping", "Stopped"}));
  ASSERT_EQ(lines.collections.size(), 1U);
  const std::string& collection = *lines.collections.begin();
  EXPECT_EQ(collection.size(), 38U);
  EXPECT_EQ(collection.front(), '{');
  EXPECT_EQ(collection.back(), '}');

  const std::vector<Json> reference = Reference("system");
  ASSERT_EQ(lines.records.size(), reference.size());
  std::size_t dataCompared = 0;
  for (std::size_t i = 0; i < reference.size(); ++i)
  {
    const Json& expected = reference[i];
    const Json& record = lines.records[i];
    SCOPED_TRACE("record_id " + std::to_string(expected.at("record_id").get<long long>()));
    EXPECT_EQ(record.at("type"), 1);
    const Json& fields = record.at("fields");
    const auto qualifiers = expected.at("qualifiers").is_number() ? expected.at("qualifiers").get<std::int64_t>() : 0;
    const std::int64_t internalId = (qualifiers << 16) | expected.at("event_id").get<std::int64_t>();
    EXPECT_EQ(record.at("key"), (Json{{"InternalId", internalId}}));
    EXPECT_EQ(fields.at("InternalId"), internalId);
    EXPECT_EQ(fields.at("SourceName"), expected.at("provider"));
    EXPECT_EQ(fields.at("EventCode"), expected.at("event_id"));
    EXPECT_EQ(fields.at("EventType"), EventTypeOfLevel(expected.at("level")));
    EXPECT_EQ(fields.at("CreatedTime"), expected.at("created").get<std::string>() + "Z");
    EXPECT_EQ(fields.at("Description"), "");
    if (expected.at("user_sid") == "S-1-5-18")
    {
      EXPECT_EQ(fields.at("InitiatedBy"), "NT AUTHORITY\\SYSTEM");
    }
    else if (expected.at("user_sid").get<std::string>().rfind("S-1-5-21-", 0) == 0)
    {
      // A domain account that this machine cannot resolve stays in its SID text.
      EXPECT_EQ(fields.at("InitiatedBy"), expected.at("user_sid"));
    }
    // The fields come in the record's own order.
    std::vector<std::string> names;
    for (const auto& item : fields.items())
      names.push_back(item.key());
    EXPECT_EQ(names, (std::vector<std::string>{"SourceName", "Description", "CreatedTime", "InitiatedBy", "EventType",
                                               "Data", "EventCode", "InternalId"}));
    if (!expected.at("data_agreed").get<bool>())
      continue;
    ++dataCompared;
    const auto& data = fields.at("Data");
    ASSERT_EQ(data.size(), expected.at("data").size());
    for (std::size_t k = 0; k < data.size(); ++k)
      EXPECT_EQ(Normalised(data[k].get<std::string>()), Normalised(expected.at("data")[k].get<std::string>()));
  }
  EXPECT_GT(dataCompared, 1000U);
}

TEST_F(NatcEvents, EventIdFilterPrintsOnlyThoseEvents)
{
  const CommandOutput output = Events("--channel System --event-id 7036 --event-id 12 --once");
  ASSERT_EQ(output.status, 0);
  const Lines lines = Split(output);
  std::size_t expected = 0;
  for (const auto& record : Reference("system"))
    expected += record.at("event_id") == 7036 || record.at("event_id") == 12 ? 1 : 0;
  ASSERT_GT(expected, 0U);
  EXPECT_EQ(lines.records.size(), expected);
  for (const auto& record : lines.records)
    EXPECT_TRUE(record.at("fields").at("EventCode") == 7036 || record.at("fields").at("EventCode") == 12);
}

TEST_F(NatcEvents, ProviderFilterPrintsOnlyThatProvider)
{
  const CommandOutput output = Events("--channel System --provider e1iexpress --once");
  ASSERT_EQ(output.status, 0);
  const Lines lines = Split(output);
  std::size_t expected = 0;
  for (const auto& record : Reference("system"))
    expected += record.at("provider") == "e1iexpress" ? 1 : 0;
  ASSERT_GT(expected, 0U);
  EXPECT_EQ(lines.records.size(), expected);
  for (const auto& record : lines.records)
    EXPECT_EQ(record.at("fields").at("SourceName"), "e1iexpress");
}

TEST_F(NatcEvents, MissingChannelDoesNotSpoilThePresentOne)
{
  const CommandOutput output = Events("--channel No-Such-Log --channel System --once");
  EXPECT_EQ(output.status, 0);
  const Lines lines = Split(output);
  EXPECT_EQ(lines.records.size(), Reference("system").size());
  EXPECT_EQ(lines.states.back(), "Stopped");
}

TEST_F(NatcEvents, BadArgumentsExitWithTwoAndSayWhy)
{
  const std::pair<std::string, std::string> cases[] = {
    {"--channel System --event-id x", "--event-id needs a number from 0 to 4294967295, not 'x'"},
    {"--once", "--channel"},
    {"--channel System --period 0", "--period"},
    {"--channel System --bogus", "--bogus"},
  };
  for (const auto& [arguments, message] : cases)
  {
    SCOPED_TRACE(arguments);
    const CommandOutput output = Events(arguments, true);
    EXPECT_EQ(output.status, 2);
    ASSERT_FALSE(output.lines.empty());
    EXPECT_NE(output.lines.front().find(message), std::string::npos) << output.lines.front();
    EXPECT_NE(output.lines.at(1).find("usage: natc events"), std::string::npos);
  }
}

TEST(NatcEventsArguments, LogsMustBeAnExistingDirectory)
{
  for (const std::string arguments : {"--channel System --once", "--logs /no/such/natc/dir --channel System --once"})
  {
    SCOPED_TRACE(arguments);
    const CommandOutput output = RunCommand(std::string(NATC_BINARY) + " events " + arguments, true);
    EXPECT_EQ(output.status, 2);
    ASSERT_FALSE(output.lines.empty());
    EXPECT_NE(output.lines.front().find("--logs"), std::string::npos) << output.lines.front();
  }
}
} // namespace
