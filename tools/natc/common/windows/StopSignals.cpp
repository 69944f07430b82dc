// Windows body of CStopSignals: Ctrl-C, Ctrl-Break and the console's close request (the
// counterparts of SIGINT and SIGTERM) reach a console control handler, which records the first
// one and wakes the waiting command. Handler routines run on a thread of their own:
// https://learn.microsoft.com/en-us/windows/console/handlerroutine
#include "common/StopSignals.h"

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <utility>

// Nothing per object: the handler routine takes no context, so the state is the process's.
struct CStopSignals::SState
{
};

namespace
{
struct SConsoleStop
{
  std::mutex mutex;
  std::condition_variable arrived;
  int signal = 0;
  // A stop request was taken: the next Ctrl-C exits at once.
  bool stopping = false;
};

// Lives as long as the process, since a handler call may still be running when a command ends.
SConsoleStop& State()
{
  static SConsoleStop state;
  return state;
}

BOOL WINAPI OnConsoleControl(DWORD type)
{
  auto* state = &State();
  const int signal = type == CTRL_C_EVENT ? SIGINT : SIGTERM;
  {
    const std::lock_guard lock(state->mutex);
    if (state->stopping && signal == SIGINT)
    {
      std::fputs("natc: interrupted again; exiting at once\n", stderr);
      ExitProcess(130);
    }
    if (state->signal == 0)
      state->signal = signal;
  }
  state->arrived.notify_all();
  return TRUE;
}

// Hands out the arrived request once and lets the next Ctrl-C end the process.
int Take(SConsoleStop& state)
{
  const int signal = std::exchange(state.signal, 0);
  if (signal != 0 && !state.stopping)
  {
    state.stopping = true;
    std::fputs("natc: stopping; interrupt again to exit at once\n", stderr);
  }
  return signal;
}
} // namespace

CStopSignals::CStopSignals()
{
  {
    auto& state = State();
    const std::lock_guard lock(state.mutex);
    state.signal = 0;
    state.stopping = false;
  }
  SetConsoleCtrlHandler(OnConsoleControl, TRUE);
}

CStopSignals::~CStopSignals()
{
  SetConsoleCtrlHandler(OnConsoleControl, FALSE);
}

int CStopSignals::TakePending() const
{
  auto& state = State();
  const std::lock_guard lock(state.mutex);
  return Take(state);
}

int CStopSignals::WaitForStop(std::optional<double> seconds) const
{
  auto& state = State();
  std::unique_lock lock(state.mutex);
  const auto stopped = [&] { return state.signal != 0; };
  if (!seconds)
    state.arrived.wait(lock, stopped);
  else if (!state.arrived.wait_for(lock, std::chrono::duration<double>(*seconds), stopped))
    return 0;
  return Take(state);
}
