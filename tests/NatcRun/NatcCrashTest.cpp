// `natc run --state FILE` killed with SIGKILL at random moments while it reads two large logs
// that the project's .evtx writer keeps appending to, then restarted: over 20 rounds no event is
// missing, and each kill repeats at most the last batch before it: 100 events per channel. The
// test reads natc's output as it comes and kills after a random number of records; it prints
// the events repeated after each kill.
#include "Evtx/Writer.h"
#include "TestSupport/TempDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
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
const std::array<std::string, 2> channels{"Natc-Test", "Natc-Other"};
// Long enough never to matter on a loaded machine; reaching it fails the test.
constexpr int outputWaitMs = 60000;

// natc run with stdout into a pipe the test reads, and stderr discarded.
struct SNatc
{
  pid_t pid = -1;
  int output = -1;
};

SNatc SpawnNatc(const std::vector<std::string>& arguments)
{
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) != 0)
    return {};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe[1], 1);
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
  ::close(pipe[1]);
  if (status != 0)
  {
    ::close(pipe[0]);
    return {};
  }
  return {pid, pipe[0]};
}

int WaitFor(pid_t pid)
{
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The record lines of a stream, as they arrive. A line cut short by a kill is never complete.
class CRecordLines
{
public:
  explicit CRecordLines(int fd) : m_fd(fd) {}
  ~CRecordLines() { ::close(m_fd); }
  CRecordLines(const CRecordLines&) = delete;
  CRecordLines& operator=(const CRecordLines&) = delete;

  // Reads what is there (waiting for some); the Index of every complete record line goes to
  // `indexes`. False at the end of the stream or when nothing came within the wait limit.
  bool Read(std::vector<int>& indexes)
  {
    pollfd ready{m_fd, POLLIN, 0};
    if (::poll(&ready, 1, outputWaitMs) != 1)
      return false;
    char buffer[65536];
    const ssize_t got = ::read(m_fd, buffer, sizeof buffer);
    if (got <= 0)
      return false;
    m_pending.append(buffer, static_cast<std::size_t>(got));
    std::size_t start = 0;
    for (std::size_t end = m_pending.find('\n'); end != std::string::npos; end = m_pending.find('\n', start))
    {
      const auto json = nlohmann::json::parse(m_pending.substr(start, end - start), nullptr, false);
      if (!json.is_discarded() && json.contains("fields"))
        indexes.push_back(std::stoi(json["fields"]["Data"][0].get<std::string>()));
      start = end + 1;
    }
    m_pending.erase(0, start);
    return true;
  }

private:
  int m_fd;
  std::string m_pending;
};

class NatcCrash : public testing::Test
{
protected:
  void SetUp() override
  {
    std::filesystem::create_directory(m_directory / "logs");
    for (std::size_t c = 0; c < channels.size(); ++c)
    {
      std::string error;
      ASSERT_TRUE(m_writers[c].Create((m_directory / "logs" / (channels[c] + ".evtx")).string(), &error)) << error;
    }
  }

  // Appends events to the channels in turn; each event's data is its index, unique over both.
  void Append(int count)
  {
    for (int i = 0; i < count; ++i)
    {
      const std::size_t c = m_channelOf.size() % channels.size();
      evtx::WriterEvent event;
      event.provider = "Natc-Test";
      event.channel = channels[c];
      event.eventId = 1000;
      event.level = 4;
      event.data.push_back({"Index", evtx::WriterValue::Text(std::to_string(m_channelOf.size() + 1))});
      ASSERT_NE(m_writers[c].Append(event), 0u);
      m_channelOf.push_back(c);
    }
  }

  // Takes a run's records: per channel, how many were delivered before.
  std::array<int, 2> Take(const std::vector<int>& indexes)
  {
    std::array<int, 2> repeated{};
    for (const int index : indexes)
      if (m_seen[index]++ > 0)
        ++repeated.at(m_channelOf.at(static_cast<std::size_t>(index - 1)));
    return repeated;
  }

  std::size_t Unseen() const { return m_channelOf.size() - m_seen.size(); }

  // Declared first: the path below is taken from it.
  const TempDirectory m_temp{"natc-crash"};
  const std::filesystem::path m_directory = m_temp.Path();
  std::array<evtx::Writer, 2> m_writers;
  std::vector<std::size_t> m_channelOf; // the channel of each index - 1
  std::map<int, int> m_seen;            // deliveries per index
};

TEST_F(NatcCrash, KilledAndRestartedRunsLoseNothingAndRepeatAtMostTheLastBatchPerChannel)
{
  const std::string config = (m_directory / "natc-run.json").string();
  std::ofstream(config) << R"({"hosts":[{"id":"h","name":")" << (m_directory / "logs").string() << R"("}],
    "tasks":[{"name":"logs","host":"h","collections":[{"type":"WindowsEvents","period":1,
      "filters":[{"path":"Natc-Test"},{"path":"Natc-Other"}]}]}]})";
  const std::string state = (m_directory / "state.json").string();
  Append(20000);

  std::mt19937 random(20261124);
  std::array<int, 2> repeatedInAll{};
  for (int round = 0; round < rounds; ++round)
  {
    const SNatc natc = SpawnNatc({config, "--state", state});
    ASSERT_GT(natc.pid, 0);
    CRecordLines lines(natc.output);
    // Killed once it has printed a random number of records, while the logs grow; natc has at
    // least that many events it never delivered, so the records come.
    const auto target = static_cast<std::size_t>(
      std::uniform_int_distribution<int>(1, static_cast<int>(std::min<std::size_t>(Unseen(), 3000)))(random));
    std::vector<int> indexes;
    while (indexes.size() < target && lines.Read(indexes))
      Append(20);
    kill(natc.pid, SIGKILL);
    EXPECT_EQ(WaitFor(natc.pid), 128 + SIGKILL);
    while (lines.Read(indexes))
    {
    }
    const auto repeated = Take(indexes);
    std::printf("round %2d: killed after %5zu records; delivered again: %s %d, %s %d\n", round, indexes.size(),
                channels[0].c_str(), repeated[0], channels[1].c_str(), repeated[1]);
    for (std::size_t c = 0; c < channels.size(); ++c)
    {
      EXPECT_LE(repeated[c], batch) << "round " << round << ", " << channels[c];
      repeatedInAll[c] += repeated[c];
    }
  }
  // Runs that end normally collect the rest, until one finds nothing new.
  for (std::size_t before = 0, run = 0; run < 20 && (run == 0 || m_seen.size() != before); ++run)
  {
    before = m_seen.size();
    const SNatc natc = SpawnNatc({config, "--duration", "2", "--state", state});
    ASSERT_GT(natc.pid, 0);
    std::vector<int> indexes;
    {
      CRecordLines lines(natc.output);
      while (lines.Read(indexes))
      {
      }
    }
    EXPECT_EQ(WaitFor(natc.pid), 0);
    const auto repeated = Take(indexes);
    for (std::size_t c = 0; c < channels.size(); ++c)
    {
      EXPECT_LE(repeated[c], run == 0 ? batch : 0) << "run " << run << " after the kills, " << channels[c];
      repeatedInAll[c] += repeated[c];
    }
  }

  int missing = 0;
  for (int index = 1; index <= static_cast<int>(m_channelOf.size()); ++index)
    missing += m_seen.count(index) == 0 ? 1 : 0;
  std::printf("natc crash test: %zu events, %d rounds, %d missing, delivered twice: %s %d, %s %d\n",
              m_channelOf.size(), rounds, missing, channels[0].c_str(), repeatedInAll[0], channels[1].c_str(),
              repeatedInAll[1]);
  RecordProperty("duplicates", repeatedInAll[0] + repeatedInAll[1]);
  EXPECT_EQ(missing, 0);
}
} // namespace
