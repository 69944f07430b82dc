// A child process for a test's lifetime: spawned at construction, killed and reaped at
// destruction. A failed spawn leaves pid() at -1.
//   ChildProcess child({"/bin/sleep", "30"});
//   ASSERT_GT(child.pid(), 0);
#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

class ChildProcess
{
public:
  explicit ChildProcess(std::vector<std::string> args)
  {
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (auto& arg : args)
      argv.push_back(arg.data());
    argv.push_back(nullptr);
    if (posix_spawn(&m_pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
      m_pid = -1;
  }
  ~ChildProcess()
  {
    if (m_pid > 0)
    {
      kill(m_pid, SIGKILL);
      int status = 0;
      waitpid(m_pid, &status, 0);
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  pid_t pid() const { return m_pid; }

private:
  pid_t m_pid = -1;
};
