// The natc binary: `natc run` with a malformed configuration exits 2 before anything starts and
// names the file and the line; with --duration it stops by itself; SIGTERM and SIGINT stop it
// cleanly (exit 0, every collection Stopped), also one that comes while natc is still reading
// its configuration.
#include "TestSupport/TempDirectory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace
{
struct SProcess
{
  pid_t pid = -1;
  int out = -1;
  int err = -1;
};

// Starts natc with `arguments`, its stdout and stderr on pipes; XDG_CACHE_HOME points into
// `cache` so that demo logs never land in the user's home. With `stdoutWriter`, the stdout pipe
// holds one page only and the caller gets a second writing end of it.
SProcess Spawn(const std::vector<std::string>& arguments, const std::string& cache, int* stdoutWriter = nullptr,
               const std::string& logLevel = "error")
{
  int out[2];
  int err[2];
  if (pipe(out) != 0 || pipe(err) != 0)
  {
    throw std::runtime_error("pipe failed");
  }
  if (stdoutWriter != nullptr)
  {
    fcntl(out[1], F_SETPIPE_SZ, 4096);
    *stdoutWriter = dup(out[1]);
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  posix_spawn_file_actions_addclose(&actions, out[0]);
  posix_spawn_file_actions_addclose(&actions, err[0]);
  std::vector<std::string> all{NATC_BINARY, "run"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  argv.reserve(all.size() + 1);
  for (auto& argument : all)
  {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  std::vector<std::string> environment{"XDG_CACHE_HOME=" + cache, "NATC_LOG_LEVEL=" + logLevel};
  for (char** variable = environ; *variable != nullptr; ++variable)
  {
    const std::string entry = *variable;
    if (entry.rfind("XDG_CACHE_HOME=", 0) != 0 && entry.rfind("NATC_LOG_LEVEL=", 0) != 0)
    {
      environment.push_back(entry);
    }
  }
  std::vector<char*> envp;
  envp.reserve(environment.size() + 1);
  for (auto& entry : environment)
  {
    envp.push_back(entry.data());
  }
  envp.push_back(nullptr);
  SProcess process;
  const int status = posix_spawn(&process.pid, NATC_BINARY, &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(err[1]);
  if (status != 0)
  {
    throw std::runtime_error("posix_spawn failed");
  }
  process.out = out[0];
  process.err = err[0];
  return process;
}

std::string ReadAll(int fd)
{
  std::string text;
  char buffer[4096];
  for (ssize_t read; (read = ::read(fd, buffer, sizeof buffer)) > 0;)
  {
    text.append(buffer, static_cast<std::size_t>(read));
  }
  close(fd);
  return text;
}

// Reads stdout until a collection of each of `classes` has reported "Running"; returns what was
// read. Gives up (returning what it has) when natc ends its output or is silent for a minute.
std::string ReadUntilRunning(int fd, std::set<std::string> classes)
{
  std::string text;
  std::size_t lineStart = 0;
  char buffer[4096];
  while (!classes.empty())
  {
    pollfd ready{fd, POLLIN, 0};
    if (poll(&ready, 1, 60000) != 1)
    {
      break;
    }
    const ssize_t read = ::read(fd, buffer, sizeof buffer);
    if (read <= 0)
    {
      break;
    }
    text.append(buffer, static_cast<std::size_t>(read));
    for (std::size_t end; (end = text.find('\n', lineStart)) != std::string::npos; lineStart = end + 1)
    {
      const auto json = nlohmann::json::parse(text.substr(lineStart, end - lineStart));
      if (json.value("state", "") == "Running")
      {
        classes.erase(json.at("class").get<std::string>());
      }
    }
  }
  return text;
}

int WaitExit(pid_t pid)
{
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Reads `fd` until a line contains `text`; returns what was read (all of it when natc ends first).
std::string ReadUntilLine(int fd, const std::string& text)
{
  std::string read;
  char buffer[4096];
  while (read.find(text) == std::string::npos)
  {
    const ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count <= 0)
    {
      break;
    }
    read.append(buffer, static_cast<std::size_t>(count));
  }
  return read;
}

// Runs natc with stdout thrown away and stderr on a terminal; returns what the terminal showed.
std::string RunOnTerminal(const std::vector<std::string>& arguments, const std::string& cache)
{
  std::vector<std::string> all{NATC_BINARY};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& argument : all)
  {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  const std::string cacheVariable = "XDG_CACHE_HOME=" + cache;
  int terminal = -1;
  const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid == 0)
  {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    putenv(const_cast<char*>(cacheVariable.c_str()));
    putenv(const_cast<char*>("NATC_LOG_LEVEL=error"));
    execv(NATC_BINARY, argv.data());
    _exit(127);
  }
  if (pid < 0)
  {
    return "forkpty failed";
  }
  std::string shown;
  char buffer[4096];
  // The terminal reports EIO once natc, its only user, has exited.
  for (ssize_t count; (count = ::read(terminal, buffer, sizeof buffer)) > 0;)
  {
    shown.append(buffer, static_cast<std::size_t>(count));
  }
  close(terminal);
  EXPECT_EQ(WaitExit(pid), 0) << shown;
  return shown;
}

// Every collection's last state line says Stopped (`someStates`: and there is at least one).
void ExpectAllStopped(const std::string& output, bool someStates = true)
{
  std::map<std::string, std::string> last;
  std::istringstream stream(output);
  for (std::string line; std::getline(stream, line);)
  {
    const auto json = nlohmann::json::parse(line);
    if (json.contains("state"))
    {
      last[json.at("collection")] = json.at("state");
    }
  }
  EXPECT_EQ(last.empty(), !someStates);
  for (const auto& [collection, state] : last)
  {
    EXPECT_EQ(state, "Stopped") << collection;
  }
}

class NatcRunProcessTest : public ::testing::Test
{
protected:
  std::string Cache() const { return (m_directory / "cache").string(); }

  // Declared first: the path below is taken from it.
  const TempDirectory m_temp{"natc-run-process"};
  const std::filesystem::path m_directory = m_temp.Path();
};

TEST_F(NatcRunProcessTest, MalformedConfigurationExitsTwoNamingFileAndLine)
{
  const auto config = m_directory / "bad.json";
  std::ofstream(config) << "{\n  \"hosts\": [{\"id\": \"h\", \"name\": \"localhost\"}],\n  \"tasks\": [\n"
                           "    {\"host\": \"h\", \"collections\": [{\"type\": \"MIPROP\"}]}\n  ]\n}\n";
  const SProcess process = Spawn({config.string()}, Cache());
  const std::string out = ReadAll(process.out);
  const std::string err = ReadAll(process.err);
  EXPECT_EQ(WaitExit(process.pid), 2);
  EXPECT_TRUE(out.empty()) << out;
  EXPECT_NE(err.find(config.string() + ":4: "), std::string::npos) << err;
  EXPECT_NE(err.find("unknown collection type \"MIPROP\""), std::string::npos) << err;
}

TEST_F(NatcRunProcessTest, MissingConfigurationFileExitsTwo)
{
  const SProcess process = Spawn({(m_directory / "absent.json").string()}, Cache());
  ReadAll(process.out);
  const std::string err = ReadAll(process.err);
  EXPECT_EQ(WaitExit(process.pid), 2);
  EXPECT_NE(err.find("absent.json: cannot be read"), std::string::npos) << err;
}

TEST_F(NatcRunProcessTest, DefaultRunWithDurationStopsByItselfAndWritesDemoLogs)
{
  const SProcess process = Spawn({"--duration", "1"}, Cache());
  const std::string out = ReadAll(process.out);
  const std::string err = ReadAll(process.err);
  EXPECT_EQ(WaitExit(process.pid), 0) << err;
  EXPECT_NE(err.find("generated by natc"), std::string::npos) << err;
  EXPECT_NE(err.find("duration reached"), std::string::npos) << err;
  EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(Cache()) / "natc" / "demo-logs" / "System.evtx"));
  EXPECT_NE(out.find("\"class\":\"WindowsEvents\""), std::string::npos);
  EXPECT_NE(out.find("\"class\":\"MiProp\""), std::string::npos);
  EXPECT_NE(out.find("\"class\":\"MiPerf\""), std::string::npos);
  ExpectAllStopped(out);
  // stderr is a pipe here, not a terminal: no progress line.
  EXPECT_EQ(err.find("events/s"), std::string::npos) << err;
}

// On a terminal, natc run and natc events show the events read per channel as they come.
TEST_F(NatcRunProcessTest, ProgressLineOnATerminal)
{
  const std::string run = RunOnTerminal({"run", "--duration", "1"}, Cache());
  EXPECT_NE(run.find("System+Application: "), std::string::npos) << run;
  EXPECT_NE(run.find(" events/s"), std::string::npos) << run;
  const std::string logs = (std::filesystem::path(Cache()) / "natc" / "demo-logs").string();
  const std::string events = RunOnTerminal({"events", "--logs", logs, "--channel", "System", "--once"}, Cache());
  EXPECT_NE(events.find("\rSystem: "), std::string::npos) << events;
  EXPECT_NE(events.find(" events/s"), std::string::npos) << events;
}

TEST_F(NatcRunProcessTest, SigtermAndSigintStopCleanly)
{
  for (const int signal : {SIGTERM, SIGINT})
  {
    const SProcess process = Spawn({}, Cache());
    // Every collection of the default configuration has finished its first update: the signal
    // finds them all Running.
    std::string out = ReadUntilRunning(process.out, {"WindowsEvents", "MiProp", "MiPerf"});
    kill(process.pid, signal);
    out += ReadAll(process.out);
    const std::string err = ReadAll(process.err);
    EXPECT_EQ(WaitExit(process.pid), 0) << err;
    EXPECT_NE(err.find(signal == SIGTERM ? "terminated" : "interrupted"), std::string::npos) << err;
    ExpectAllStopped(out);
  }
}

// The configuration comes through a pipe, so the signal is sent while natc is still reading
// it: natc keeps it, starts nothing and exits 0 once the configuration is in.
TEST_F(NatcRunProcessTest, SignalWhileReadingTheConfigurationStopsBeforeAnythingStarts)
{
  const auto config = m_directory / "config.fifo";
  ASSERT_EQ(mkfifo(config.c_str(), 0600), 0);
  const SProcess process = Spawn({config.string()}, Cache());
  // Opening for writing returns once natc has opened the pipe for reading.
  const int writer = open(config.c_str(), O_WRONLY);
  ASSERT_GE(writer, 0);
  kill(process.pid, SIGTERM);
  // A natc that died of the signal has closed the pipe: the write fails instead of killing us.
  struct CIgnorePipeSignal
  {
    void (*previous)(int) = std::signal(SIGPIPE, SIG_IGN);
    CIgnorePipeSignal() = default;
    ~CIgnorePipeSignal() { std::signal(SIGPIPE, previous); }
    CIgnorePipeSignal(const CIgnorePipeSignal&) = delete;
    CIgnorePipeSignal& operator=(const CIgnorePipeSignal&) = delete;
  } const ignorePipeSignal;
  const std::string text = "{\"hosts\": [{\"id\": \"h\", \"name\": \"localhost\"}],\n"
                           " \"tasks\": [{\"host\": \"h\", \"collections\": [{\"type\": \"MiProp\", \"filter\":\n"
                           "   {\"namespace\": \"root/cimv2\", \"class\": \"Win32_OperatingSystem\", \"properties\": [\"Caption\"]}}]}]}\n";
  EXPECT_EQ(write(writer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(writer);
  const std::string out = ReadAll(process.out);
  const std::string err = ReadAll(process.err);
  EXPECT_EQ(WaitExit(process.pid), 0) << err;
  EXPECT_NE(err.find("terminated; 1 collections stopped, 0 records"), std::string::npos) << err;
  ExpectAllStopped(out, false);
}

// The stop is made to hang: natc's stdout is a full pipe nobody reads, so its first "Stopping"
// line blocks. A second SIGINT still ends it at once, with 130.
TEST_F(NatcRunProcessTest, SecondInterruptExitsAtOnce)
{
  const auto config = m_directory / "config.json";
  std::ofstream(config) << "{\"hosts\": [{\"id\": \"h\", \"name\": \"localhost\"}],\n"
                           " \"tasks\": [{\"host\": \"h\", \"collections\": [{\"type\": \"MiProp\", \"period\": 86400,\n"
                           "   \"filter\": {\"namespace\": \"root/cimv2\", \"class\": \"Win32_OperatingSystem\", \"properties\": [\"Caption\"]}}]}]}\n";
  int writer = -1;
  const SProcess process = Spawn({config.string()}, Cache(), &writer);
  ASSERT_GE(writer, 0);
  // After its first update the collection prints nothing for a day: the pipe is ours to fill.
  ReadUntilRunning(process.out, {"MiProp"});
  int queued = 0;
  ASSERT_EQ(ioctl(process.out, FIONREAD, &queued), 0);
  const std::string filler(static_cast<std::size_t>(fcntl(writer, F_GETPIPE_SZ) - queued), ' ');
  ASSERT_EQ(write(writer, filler.data(), filler.size()), static_cast<ssize_t>(filler.size()));
  kill(process.pid, SIGINT);
  const std::string stopping = ReadUntilLine(process.err, "interrupt again to exit at once");
  EXPECT_NE(stopping.find("interrupt again"), std::string::npos) << stopping;
  kill(process.pid, SIGINT);
  EXPECT_EQ(WaitExit(process.pid), 130);
  close(writer);
  ReadAll(process.out);
  const std::string err = stopping + ReadAll(process.err);
  EXPECT_NE(err.find("interrupted again; exiting at once"), std::string::npos) << err;
}

// --check runs the checks of a start: the JSON, the password sources, the WQL and, on this
// machine's MI, the classes and counters. Every problem is listed by line; nothing starts.
TEST_F(NatcRunProcessTest, CheckListsEveryProblemAndStartsNothing)
{
  const auto config = m_directory / "check.json";
  std::ofstream(config)
    << "{\"hosts\": [{\"id\": \"h\", \"name\": \"localhost\"}],\n"                                                  // 1
       " \"users\": [{\"id\": \"u\", \"name\": \"x\", \"password\": {\"env\": \"NATC_TEST_UNSET_PASSWORD_VARIABLE\"}}],\n" // 2
       " \"tasks\": [{\"host\": \"h\", \"collections\": [\n"                                                             // 3
       "   {\"type\": \"MiProp\", \"filter\": {\"namespace\": \"root/cimv2\", \"class\": \"Win32_NoSuchClassAtAll\", \"properties\": [\"Name\"]}},\n"  // 4
       "   {\"type\": \"MiProp\", \"filter\": {\"namespace\": \"root/cimv2\", \"class\": \"Win32_OperatingSystem\",\n"     // 5
       "     \"condition\": \"WHERE (((\"}},\n"                                                                          // 6
       "   {\"type\": \"MiPerf\", \"counters\": [{\"class\": \"Win32_PerfRawData_NoSuch\", \"counter\": \"X\"}]},\n"      // 7
       "   {\"type\": \"WindowsEvents\", \"filters\": [{\"path\": \"\"}]}]}]}\n";                                         // 8
  const SProcess process = Spawn({config.string(), "--check"}, Cache());
  const std::string out = ReadAll(process.out);
  const std::string err = ReadAll(process.err);
  EXPECT_EQ(WaitExit(process.pid), 2) << err;
  EXPECT_TRUE(out.empty()) << out;
  const std::string file = config.string();
  for (const std::string& expected :
       {file + ":2: users[0].password: environment variable NATC_TEST_UNSET_PASSWORD_VARIABLE is not set",
        file + ":4: tasks[0].collections[0].filter: this machine's MI refuses",
        file + ":5: tasks[0].collections[1].filter: WQL", file + ":7: tasks[0].collections[2].counters[0]: ",
        file + ":8: tasks[0].collections[3].filters[0].path: must not be empty"})
  {
    EXPECT_NE(("\n" + err).find("\n" + expected), std::string::npos) << expected << "\n" << err;
  }
}

TEST_F(NatcRunProcessTest, CheckOfAGoodConfigurationExitsZeroAndStartsNothing)
{
  const auto config = m_directory / "good.json";
  std::ofstream(config) << "{\"hosts\": [{\"id\": \"h\", \"name\": \"localhost\"}],\n"
                           " \"tasks\": [{\"host\": \"h\", \"collections\": [\n"
                           "   {\"type\": \"MiProp\", \"filter\": {\"namespace\": \"root/cimv2\", \"class\": \"Win32_OperatingSystem\",\n"
                           "     \"properties\": [\"Caption\"]}},\n"
                           "   {\"type\": \"MiPerf\", \"counters\": [{\"class\": \"Win32_PerfRawData_PerfOS_Memory\",\n"
                           "     \"counter\": \"AvailableBytes\"}]}]}]}\n";
  const SProcess process = Spawn({config.string(), "--check"}, Cache());
  const std::string out = ReadAll(process.out);
  const std::string err = ReadAll(process.err);
  EXPECT_EQ(WaitExit(process.pid), 0) << err;
  EXPECT_TRUE(out.empty()) << out;
  EXPECT_NE(err.find("no problems found (2 collections)"), std::string::npos) << err;
}

// Passwords from the environment, a file and the configuration itself appear nowhere in
// natc's output, not even at debug level; the literal one is warned about while the file is
// readable by others, and not once it is private.
TEST_F(NatcRunProcessTest, PasswordsComeFromEnvironmentOrFileAndAreNeverShown)
{
  const auto secretFile = m_directory / "pw.txt";
  std::ofstream(secretFile) << "file-secret-5c1d\n";
  ASSERT_EQ(setenv("NATC_TEST_PASSWORD_7f3a", "env-secret-9b2e", 1), 0);
  const auto config = m_directory / "secrets.json";
  std::ofstream(config)
    << "{\"hosts\": [{\"id\": \"h\", \"name\": \"localhost\"}],\n"
       " \"users\": [{\"id\": \"e\", \"name\": \".\\\\someone\", \"password\": {\"env\": \"NATC_TEST_PASSWORD_7f3a\"}},\n"
       "   {\"id\": \"f\", \"name\": \".\\\\someone\", \"password\": {\"file\": \"pw.txt\"}},\n"
       "   {\"id\": \"l\", \"name\": \".\\\\someone\", \"password\": \"literal-secret-3e8f\"}],\n"
       " \"tasks\": [\n"
       "   {\"host\": \"h\", \"user\": \"e\", \"collections\": [{\"type\": \"MiProp\", \"filter\": {\"namespace\": \"root/cimv2\", \"class\": \"Win32_OperatingSystem\", \"properties\": [\"Caption\"]}}]},\n"
       "   {\"host\": \"h\", \"user\": \"f\", \"collections\": [{\"type\": \"MiProp\", \"filter\": {\"namespace\": \"root/cimv2\", \"class\": \"Win32_OperatingSystem\", \"properties\": [\"Caption\"]}}]},\n"
       "   {\"host\": \"h\", \"user\": \"l\", \"collections\": [{\"type\": \"MiProp\", \"filter\": {\"namespace\": \"root/cimv2\", \"class\": \"Win32_OperatingSystem\", \"properties\": [\"Caption\"]}}]}]}\n";
  const auto expectNoSecret = [](const std::string& text) {
    for (const char* secret : {"env-secret-9b2e", "file-secret-5c1d", "literal-secret-3e8f"})
    {
      EXPECT_EQ(text.find(secret), std::string::npos) << secret << " in:\n" << text;
    }
  };
  std::filesystem::permissions(config, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write |
                                         std::filesystem::perms::group_read | std::filesystem::perms::others_read);
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{config.string(), "--check"},
                                                    std::vector<std::string>{config.string(), "--duration", "0"}})
  {
    const SProcess process = Spawn(arguments, Cache(), nullptr, "debug");
    const std::string out = ReadAll(process.out);
    const std::string err = ReadAll(process.err);
    EXPECT_EQ(WaitExit(process.pid), 0) << err;
    expectNoSecret(out + err);
    EXPECT_NE(err.find(config.string() + ":4: users[2].password: a literal password in a file that others can read"),
              std::string::npos)
      << err;
  }
  std::filesystem::permissions(config, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  const SProcess process = Spawn({config.string(), "--check"}, Cache(), nullptr, "debug");
  const std::string err = ReadAll(process.err);
  ReadAll(process.out);
  EXPECT_EQ(WaitExit(process.pid), 0) << err;
  EXPECT_EQ(err.find("literal password"), std::string::npos) << err;
  unsetenv("NATC_TEST_PASSWORD_7f3a");
}

TEST_F(NatcRunProcessTest, LogsOptionNeedsADirectory)
{
  const SProcess process = Spawn({"--logs", (m_directory / "nowhere").string(), "--duration", "0"}, Cache());
  ReadAll(process.out);
  const std::string err = ReadAll(process.err);
  EXPECT_EQ(WaitExit(process.pid), 2);
  EXPECT_NE(err.find("not a directory"), std::string::npos) << err;
}
} // namespace
