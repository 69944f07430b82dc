// natc run's runner in this process: a configuration built through create_collector, every
// record and state change printed as a JSON line, Stop ending every collection in Stopped.
// The logs are a host directory of the Linux Event Log API (label standin).
#include "run/DemoLogs.h"
#include "run/RunConfig.h"
#include "run/Runner.h"
#include "TestSupport/TempDirectory.h"

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

using namespace natc::run;

namespace
{
// Everything written to a temporary FILE*, read back as lines.
class CCapturedOutput
{
public:
  CCapturedOutput() : m_file(std::tmpfile()) {}
  ~CCapturedOutput() { std::fclose(m_file); }
  CCapturedOutput(const CCapturedOutput&) = delete;
  CCapturedOutput& operator=(const CCapturedOutput&) = delete;
  std::FILE* File() const { return m_file; }
  std::vector<nlohmann::json> Lines() const
  {
    std::fflush(m_file);
    std::rewind(m_file);
    std::string text;
    char buffer[4096];
    for (std::size_t read; (read = std::fread(buffer, 1, sizeof buffer, m_file)) > 0;)
    {
      text.append(buffer, read);
    }
    std::vector<nlohmann::json> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
    {
      lines.push_back(nlohmann::json::parse(line));
    }
    return lines;
  }

private:
  std::FILE* m_file;
};

// Counts the collections that reached Running (their first update ended well).
class CRunningCounter : public collector::ni::ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, collector::ni::ICollectionTypes::Records) override {}
  void OnStateChanged(const GUID&, const collector::ni::ICollectionTypes::IState& state) override
  {
    if (state.GetState() == collector::ni::ICollectionTypes::Running)
    {
      {
        const std::lock_guard lock(m_lock);
        ++m_running;
      }
      m_changed.notify_all();
    }
  }
  bool WaitFor(int count)
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, std::chrono::seconds(60), [&] { return m_running >= count; });
  }

private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  int m_running = 0;
};

TEST(RunnerTest, PrintsRecordsAndStatesOfEveryCollectionAndStopsThemAll)
{
  const TempDirectory directory("natc-run");
  ASSERT_TRUE(EnsureDemoLogs(directory.Path().string()));
  const std::string text = R"({
    "hosts": [{"id": "logs", "name": ")" + directory.Path().string() + R"("},
              {"id": "machine", "name": "localhost"}],
    "users": [{"id": "alice", "name": "CORP\\alice", "password": "pw"}],
    "tasks": [
      {"name": "events", "host": "logs", "user": "alice",
       "collections": [{"type": "WindowsEvents", "period": 30, "filters": [{"path": "System"}, {"path": "Application"}]}]},
      {"name": "machine", "host": "machine",
       "collections": [{"type": "MiProp", "filter": {"namespace": "root/cimv2", "class": "Win32_OperatingSystem",
                                                     "properties": ["Caption"]}}]}
    ]})";
  const SRunConfig config = ParseRunConfig(text, "test.json");
  CCapturedOutput output;
  {
    CRunner runner(config, "test.json", output.File(), 2);
    ASSERT_EQ(runner.CollectionCount(), 2u);
    auto running = std::make_shared<CRunningCounter>();
    runner.Subscribe(running);
    runner.Start();
    // Once both first updates have ended, everything they found has been printed.
    ASSERT_TRUE(running->WaitFor(2));
    runner.Stop();
    for (const auto state : runner.States())
    {
      EXPECT_EQ(state, collector::ni::ICollectionTypes::Stopped);
    }
    EXPECT_EQ(runner.RecordCount(), 14u);
  }
  std::size_t events = 0;
  std::size_t properties = 0;
  std::map<std::string, std::string> lastState;
  for (const auto& line : output.Lines())
  {
    const std::string cls = line.at("class");
    if (line.contains("state"))
    {
      lastState[line.at("collection")] = line.at("state");
    }
    else if (cls == "WindowsEvents")
    {
      ++events;
      EXPECT_TRUE(line.at("fields").contains("EventCode"));
    }
    else if (cls == "MiProp")
    {
      ++properties;
      EXPECT_FALSE(line.at("fields").at("Caption").get<std::string>().empty());
    }
  }
  EXPECT_EQ(events, 13u);
  EXPECT_EQ(properties, 1u);
  ASSERT_EQ(lastState.size(), 2u);
  for (const auto& [collection, state] : lastState)
  {
    EXPECT_EQ(state, "Stopped") << collection;
  }
}
} // namespace
