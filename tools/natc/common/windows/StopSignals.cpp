// Windows body of CStopSignals: Ctrl-C, Ctrl-Break and the console's close request (the
// counterparts of SIGINT and SIGTERM) reach a console control handler, which records the first
// one and wakes the waiting command.
#include "common/StopSignals.h"

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace
{
struct CStopState
{
  std::mutex mutex;
  std::condition_variable arrived;
  int signal = 0;
};

CStopState& State()
{
  static CStopState state;
  return state;
}

BOOL WINAPI OnConsoleControl(DWORD type)
{
  const int signal = type == CTRL_C_EVENT ? SIGINT : SIGTERM;
  auto& state = State();
  {
    const std::lock_guard lock(state.mutex);
    if (state.signal == 0)
      state.signal = signal;
  }
  state.arrived.notify_all();
  return TRUE;
}
} // namespace

CStopSignals::CStopSignals()
{
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
  return std::exchange(state.signal, 0);
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
  return std::exchange(state.signal, 0);
}
