// natc perf as a user runs it on this machine: two updates of the processor's busy time give
// counter records on the second update only, each pointing at a target record that names its
// counter and instance; bad arguments exit 2 with a usage line.
#include "TestSupport/CommandOutput.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace
{
const std::string busyCounter = "Win32_PerfRawData_PerfOS_Processor:PercentProcessorTime";

CommandOutput Perf(const std::string& arguments, bool withStderr = false)
{
  return RunCommand(std::string(NATC_BINARY) + " perf " + arguments, withStderr);
}

TEST(NatcPerf, TwoUpdatesGiveBusyPercentagesWhoseTargetsNameTheirCounter)
{
  const CommandOutput output = Perf("--counter " + busyCounter + " --updates 2 --period 1");
  ASSERT_EQ(output.status, 0);
  std::vector<std::string> states;
  std::set<std::string> counterTimes;
  std::set<long long> counterTargets;
  std::map<long long, std::string> targetInstances;
  for (const std::string& text : output.lines)
  {
    const auto line = nlohmann::json::parse(text);
    EXPECT_EQ(line.at("class"), "MiPerf");
    if (line.contains("state"))
    {
      states.push_back(line.at("state").get<std::string>());
      continue;
    }
    const auto& fields = line.at("fields");
    if (line.at("type") == 1)
    {
      // A target added: its key and "id" agree, and "c" is the counter as configured.
      EXPECT_EQ(line.at("key").at("id"), fields.at("id"));
      EXPECT_EQ(fields.at("c"), busyCounter);
      targetInstances[fields.at("id").get<long long>()] = fields.at("ins").get<std::string>();
      continue;
    }
    EXPECT_EQ(line.at("type"), 0);
    const double busy = fields.at("v").get<double>();
    EXPECT_GE(busy, 0.0);
    EXPECT_LE(busy, 100.0);
    counterTimes.insert(fields.at("t").get<std::string>());
    counterTargets.insert(fields.at("id").get<long long>());
  }
  EXPECT_EQ(states, (std::vector<std::string>{"Starting", "Running", "Stopping", "Stopped"}));
  // A rate needs two samples: only the second update delivers values, all with its one time.
  EXPECT_EQ(counterTimes.size(), 1U);
  ASSERT_FALSE(counterTargets.empty());
  for (const long long id : counterTargets)
    EXPECT_EQ(targetInstances.count(id), 1U) << "no target record for id " << id;
  // The "_Total" instance is reported with an empty instance name.
  bool sawTotal = false;
  for (const auto& [id, instance] : targetInstances)
    sawTotal = sawTotal || instance.empty();
  EXPECT_TRUE(sawTotal);
}

TEST(NatcPerf, BadArgumentsExitWithTwoAndSayWhy)
{
  const std::pair<std::string, std::string> cases[] = {
    {"", "at least one --counter is needed"},
    {"--counter Foo", "--counter wants CLASS:COUNTER[:FACTOR], got 'Foo'"},
    {"--counter A:B --period 0", "--period needs a number from 1 to 1000000000, not '0'"},
    {"--counter A:B --period abc", "--period needs a number from 1 to 1000000000, not 'abc'"},
    {"--counter A:B --period 99999999999999999999", "not '99999999999999999999'"},
    {"--counter A:B --updates 0", "--updates needs a number from 1 to 1000000000, not '0'"},
    {"--counter A:B:x", "the factor of --counter 'A:B:x' is not a number"},
  };
  for (const auto& [arguments, message] : cases)
  {
    SCOPED_TRACE(arguments);
    const CommandOutput output = Perf(arguments, true);
    EXPECT_EQ(output.status, 2);
    ASSERT_FALSE(output.lines.empty());
    EXPECT_NE(output.lines.front().find(message), std::string::npos) << output.lines.front();
    EXPECT_NE(output.lines.at(1).find("usage: natc perf"), std::string::npos);
  }
}
} // namespace
