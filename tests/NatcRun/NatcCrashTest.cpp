// `natc run --state FILE` killed with SIGKILL at random moments while it reads a large log that
// the project's .evtx writer keeps appending to, then restarted: over 20 rounds no event is
// missing, and events are repeated only from the last records before each kill: at most one
// batch of 100 per kill in all (a run killed before its first save repeats the previous run's
// last batch once more). The duplicates seen are printed.
#include "Evtx/Writer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

extern char** environ;

namespace
{
constexpr int rounds = 20;
constexpr int batch = 100;

// natc run with stdout into `output` and stderr discarded.
pid_t SpawnNatc(const std::vector<std::string>& arguments, const std::string& output)
{
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  std::vector<std::string> all{NATC_BINARY, "run"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& argument : all)
    argv.push_back(argument.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int status = posix_spawn(&pid, NATC_BINARY, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return status == 0 ? pid : -1;
}

int WaitFor(pid_t pid)
{
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The Index of every complete record line (a kill may cut the last line short); `repeated`
// counts those delivered before.
void ReadIndexes(const std::string& file, std::map<int, int>& seen, int& repeated)
{
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);)
  {
    const auto json = nlohmann::json::parse(line, nullptr, false);
    if (json.is_discarded() || !json.contains("fields"))
      continue;
    repeated += seen[std::stoi(json["fields"]["Data"][0].get<std::string>())]++ > 0 ? 1 : 0;
  }
}

class NatcCrash : public testing::Test
{
protected:
  void SetUp() override
  {
    std::string pattern = (std::filesystem::temp_directory_path() / "natc-crash-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    m_directory = pattern;
    std::filesystem::create_directory(m_directory / "logs");
  }
  void TearDown() override
  {
    std::error_code ignored;
    std::filesystem::remove_all(m_directory, ignored);
  }

  void Append(evtx::Writer& writer, int count)
  {
    for (int i = 0; i < count; ++i)
    {
      evtx::WriterEvent event;
      event.provider = "Natc-Test";
      event.channel = "Natc-Test";
      event.eventId = 1000;
      event.level = 4;
      event.data.push_back({"Index", evtx::WriterValue::Text(std::to_string(++m_written))});
      ASSERT_NE(writer.Append(event), 0u);
    }
  }

  std::filesystem::path m_directory;
  int m_written = 0;
};

TEST_F(NatcCrash, KilledAndRestartedRunsLoseNothingAndRepeatOnlyTheLastBatch)
{
  const std::string config = (m_directory / "natc-run.json").string();
  std::ofstream(config) << R"({"hosts":[{"id":"h","name":")" << (m_directory / "logs").string() << R"("}],
    "tasks":[{"name":"logs","host":"h","collections":[{"type":"WindowsEvents","period":1,
      "filters":[{"path":"Natc-Test"}]}]}]})";
  const std::string state = (m_directory / "state.json").string();
  evtx::Writer writer;
  std::string error;
  ASSERT_TRUE(writer.Create((m_directory / "logs" / "Natc-Test.evtx").string(), &error)) << error;
  Append(writer, 5000);

  std::mt19937 random(20261124);
  int worstRound = 0;
  std::map<int, int> seen;
  for (int round = 0; round < rounds; ++round)
  {
    const std::string output = (m_directory / ("out" + std::to_string(round))).string();
    const pid_t pid = SpawnNatc({config, "--state", state}, output);
    ASSERT_GT(pid, 0);
    // The kill comes after a random number of appends, while natc reads.
    Append(writer, std::uniform_int_distribution<int>(20, 600)(random));
    kill(pid, SIGKILL);
    EXPECT_EQ(WaitFor(pid), 128 + SIGKILL);
    int repeated = 0;
    ReadIndexes(output, seen, repeated);
    worstRound = std::max(worstRound, repeated);
  }
  // Runs that end normally collect the rest, until one finds nothing new.
  for (std::size_t before = 0, run = 0; run < 20 && (run == 0 || seen.size() != before); ++run)
  {
    before = seen.size();
    const std::string last = (m_directory / ("last" + std::to_string(run))).string();
    const pid_t pid = SpawnNatc({config, "--duration", "2", "--state", state}, last);
    ASSERT_GT(pid, 0);
    EXPECT_EQ(WaitFor(pid), 0);
    int repeated = 0;
    ReadIndexes(last, seen, repeated);
    if (run > 0)
      EXPECT_EQ(repeated, 0);
    worstRound = std::max(worstRound, repeated);
  }

  int missing = 0;
  int duplicates = 0;
  for (int index = 1; index <= m_written; ++index)
  {
    const auto found = seen.find(index);
    missing += found == seen.end() ? 1 : 0;
    duplicates += found == seen.end() ? 0 : found->second - 1;
  }
  std::printf("natc crash test: %d events, %d rounds, %d missing, %d delivered twice, at most %d after one kill\n",
              m_written, rounds, missing, duplicates, worstRound);
  RecordProperty("duplicates", duplicates);
  EXPECT_EQ(missing, 0);
  EXPECT_LE(duplicates, rounds * batch);
}
} // namespace
