// Linux body of CStopSignals: SIGINT and SIGTERM are blocked in the constructing thread, so that
// every thread started afterwards (the pool's workers) inherits the mask and the command takes
// them with sigtimedwait.
#include "common/StopSignals.h"

#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>

struct CStopSignals::SState
{
  sigset_t set{};
  sigset_t previous{};
  struct sigaction previousAction{};
  bool armed = false;
};

CStopSignals::CStopSignals() : m_state(std::make_unique<SState>())
{
  sigemptyset(&m_state->set);
  sigaddset(&m_state->set, SIGINT);
  sigaddset(&m_state->set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &m_state->set, &m_state->previous);
}

namespace
{
// Only async-signal-safe calls: the stop that was asked for first may be what hangs.
void ExitAtOnce(int)
{
  constexpr char message[] = "natc: interrupted again; exiting at once\n";
  const ssize_t ignored = write(STDERR_FILENO, message, sizeof message - 1);
  static_cast<void>(ignored);
  _exit(130);
}

// Lets a second SIGINT reach this thread, where it exits at once; returns `signal`.
int ArmSecondInterrupt(int signal, struct sigaction& previousAction, bool& armed)
{
  if (signal <= 0 || armed)
  {
    return signal > 0 ? signal : 0;
  }
  armed = true;
  struct sigaction action{};
  action.sa_handler = &ExitAtOnce;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &previousAction);
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  // Only this thread takes it: the workers keep it blocked, so the handler runs here.
  pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
  std::fputs("natc: stopping; interrupt again to exit at once\n", stderr);
  return signal;
}
} // namespace

CStopSignals::~CStopSignals()
{
  pthread_sigmask(SIG_SETMASK, &m_state->previous, nullptr);
  if (m_state->armed)
  {
    sigaction(SIGINT, &m_state->previousAction, nullptr);
  }
}

int CStopSignals::TakePending() const
{
  const timespec now{0, 0};
  return ArmSecondInterrupt(sigtimedwait(&m_state->set, nullptr, &now), m_state->previousAction, m_state->armed);
}

int CStopSignals::WaitForStop(std::optional<double> seconds) const
{
  const auto deadline = seconds ? std::optional(std::chrono::steady_clock::now() +
                                                std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                  std::chrono::duration<double>(*seconds)))
                                : std::nullopt;
  while (true)
  {
    int signal = 0;
    if (!deadline)
    {
      signal = sigwaitinfo(&m_state->set, nullptr);
    }
    else
    {
      const auto left = *deadline - std::chrono::steady_clock::now();
      if (left <= std::chrono::steady_clock::duration::zero())
      {
        return 0;
      }
      const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
      const timespec timeout{static_cast<time_t>(nanoseconds / 1000000000), static_cast<long>(nanoseconds % 1000000000)};
      signal = sigtimedwait(&m_state->set, nullptr, &timeout);
    }
    if (signal > 0)
    {
      return ArmSecondInterrupt(signal, m_state->previousAction, m_state->armed);
    }
    // EINTR (another signal) or EAGAIN (timeout): the loop checks the deadline again.
  }
}
