// natc perf as a user runs it on this machine: two updates of the processor's busy time give
// counter records on the second update only, each pointing at a target record that names its
// counter and instance; System Up Time and committed bytes in use agree with /proc on the first
// update; bad arguments exit 2 with a usage line.
#include "TestSupport/CommandOutput.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
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

double UptimeSeconds()
{
  std::ifstream file("/proc/uptime");
  double seconds = 0;
  file >> seconds;
  return seconds;
}

// Committed_AS / CommitLimit of /proc/meminfo, in percent.
double CommittedPercent()
{
  std::ifstream file("/proc/meminfo");
  std::string line;
  double committed = 0;
  double limit = 0;
  while (std::getline(file, line))
  {
    std::istringstream fields(line);
    std::string name;
    double kb = 0;
    fields >> name >> kb;
    if (name == "Committed_AS:")
      committed = kb;
    else if (name == "CommitLimit:")
      limit = kb;
  }
  return limit > 0 ? 100.0 * committed / limit : -1.0;
}

TEST(NatcPerf, UpTimeAndCommittedBytesInUseAreTrueOnTheFirstUpdate)
{
  const std::string upTime = "Win32_PerfRawData_PerfOS_System:SystemUpTime";
  const std::string inUse = "Win32_PerfRawData_PerfOS_Memory:PercentCommittedBytesInUse";
  const double uptimeBefore = UptimeSeconds();
  const double committedBefore = CommittedPercent();
  const CommandOutput output = Perf("--counter " + upTime + " --counter " + inUse + " --once");
  const double uptimeAfter = UptimeSeconds();
  const double committedAfter = CommittedPercent();
  ASSERT_EQ(output.status, 0);
  std::map<long long, std::string> counterOf;
  std::map<std::string, double> values;
  std::vector<std::pair<long long, double>> records;
  for (const std::string& text : output.lines)
  {
    const auto line = nlohmann::json::parse(text);
    if (line.contains("state"))
      continue;
    const auto& fields = line.at("fields");
    if (line.at("type") == 1)
      counterOf[fields.at("id").get<long long>()] = fields.at("c").get<std::string>();
    else
      records.emplace_back(fields.at("id").get<long long>(), fields.at("v").get<double>());
  }
  for (const auto& [id, value] : records)
    values[counterOf.at(id)] = value;
  // Neither needs a previous sample: PERF_ELAPSED_TIME and PERF_RAW_FRACTION over its base.
  ASSERT_EQ(values.count(upTime), 1U);
  ASSERT_EQ(values.count(inUse), 1U);
  EXPECT_GE(values[upTime], uptimeBefore - 1.0);
  EXPECT_LE(values[upTime], uptimeAfter + 1.0);
  EXPECT_GE(values[inUse], std::min(committedBefore, committedAfter) - 1.0);
  EXPECT_LE(values[inUse], std::max(committedBefore, committedAfter) + 1.0);
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
