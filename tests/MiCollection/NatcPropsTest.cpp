// natc props as a user runs it: JSON lines of one "MiProp" pass over this machine with --once,
// and exit status 2 with a usage line for bad arguments.
#include "TestSupport/CommandOutput.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace
{
using Result = CommandOutput;

Result RunProps(const std::string& arguments, bool withStderr = false)
{
  return RunCommand(std::string(NATC_BINARY) + " props " + arguments, withStderr);
}

TEST(NatcProps, OnceOverTheOperatingSystemPrintsOneRecordAndTheStates)
{
  const Result result = RunProps("--class Win32_OperatingSystem --property Caption --property Version --once");
  EXPECT_EQ(result.status, 0);
  std::vector<std::string> states;
  int records = 0;
  for (const auto& line : result.lines)
  {
    const auto json = nlohmann::json::parse(line);
    EXPECT_EQ(json.at("class"), "MiProp");
    if (json.contains("state"))
    {
      states.push_back(json.at("state").get<std::string>());
      continue;
    }
    ++records;
    EXPECT_FALSE(json.contains("key"));
    EXPECT_FALSE(json.at("fields").at("Caption").get<std::string>().empty());
  }
  EXPECT_EQ(records, 1);
  EXPECT_EQ(states, (std::vector<std::string>{"Starting", "Running", "Stopping", "Stopped"}));
}

// The raw data as Windows publishes it: SystemUpTime is the boot moment as a FILETIME, measured
// against Timestamp_Object at Frequency_Object; the committed-bytes fraction comes with its base.
TEST(NatcProps, RawPerformanceDataInWindowsShape)
{
  const Result system = RunProps("--class Win32_PerfRawData_PerfOS_System --property SystemUpTime "
                                 "--property Timestamp_Object --property Frequency_Object --once");
  EXPECT_EQ(system.status, 0);
  int records = 0;
  for (const auto& line : system.lines)
  {
    const auto json = nlohmann::json::parse(line);
    if (json.contains("state"))
      continue;
    ++records;
    const auto& fields = json.at("fields");
    const auto boot = fields.at("SystemUpTime").get<long long>();
    const auto now = fields.at("Timestamp_Object").get<long long>();
    EXPECT_EQ(fields.at("Frequency_Object").get<long long>(), 10'000'000);
    // FILETIMEs: 100 ns units since 1601, so 1970 is 116,444,736,000,000,000.
    EXPECT_GT(boot, 116'444'736'000'000'000LL);
    EXPECT_GT(now, boot);
  }
  EXPECT_EQ(records, 1);

  const Result memory = RunProps("--class Win32_PerfRawData_PerfOS_Memory --property PercentCommittedBytesInUse "
                                 "--property PercentCommittedBytesInUse_Base --once");
  EXPECT_EQ(memory.status, 0);
  records = 0;
  for (const auto& line : memory.lines)
  {
    const auto json = nlohmann::json::parse(line);
    if (json.contains("state"))
      continue;
    ++records;
    EXPECT_GT(json.at("fields").at("PercentCommittedBytesInUse_Base").get<long long>(), 0);
    EXPECT_GE(json.at("fields").at("PercentCommittedBytesInUse").get<long long>(), 0);
  }
  EXPECT_EQ(records, 1);
}

TEST(NatcProps, FailedFirstUpdateExitsWithOne)
{
  const Result result = RunProps("--class No_Such_Class --property Name --once");
  EXPECT_EQ(result.status, 1);
  bool sawError = false;
  for (const auto& line : result.lines)
  {
    const auto json = nlohmann::json::parse(line);
    if (json.value("state", "") == "Error")
    {
      sawError = true;
      EXPECT_NE(json.at("description").get<std::string>().find("The specified class does not exist"),
                std::string::npos);
    }
  }
  EXPECT_TRUE(sawError);
}

TEST(NatcProps, BadArgumentsExitWithTwoAndSayWhy)
{
  const std::pair<const char*, const char*> cases[] = {
    {"--property Name", "--class is required"},
    {"--class", "--class needs a value"},
    {"--class A --class B", "--class given twice"},
    {"--class A --period x", "--period needs a whole number of seconds"},
    {"--class A --period 0", "--period needs a whole number of seconds"},
    {"--class A --property ''", "--property must not be empty"},
    {"--class A --bogus", "unknown option '--bogus'"},
  };
  for (const auto& [arguments, message] : cases)
  {
    SCOPED_TRACE(arguments);
    const Result result = RunProps(arguments, true);
    EXPECT_EQ(result.status, 2);
    ASSERT_FALSE(result.lines.empty());
    EXPECT_NE(result.lines.front().find(message), std::string::npos) << result.lines.front();
    EXPECT_NE(result.lines.back().find("usage: natc props"), std::string::npos);
  }
}
} // namespace
