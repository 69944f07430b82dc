#include "common/StopSignals.h"

#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>

CStopSignals::CStopSignals()
{
  sigemptyset(&m_set);
  sigaddset(&m_set, SIGINT);
  sigaddset(&m_set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &m_set, &m_previous);
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
} // namespace

CStopSignals::~CStopSignals()
{
  pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
  if (m_armed)
  {
    sigaction(SIGINT, &m_previousAction, nullptr);
  }
}

int CStopSignals::armSecondInterrupt(int signal) const
{
  if (signal <= 0 || m_armed)
  {
    return signal > 0 ? signal : 0;
  }
  m_armed = true;
  struct sigaction action{};
  action.sa_handler = &ExitAtOnce;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &m_previousAction);
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  // Only this thread takes it: the workers keep it blocked, so the handler runs here.
  pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
  std::fputs("natc: stopping; interrupt again to exit at once\n", stderr);
  return signal;
}

int CStopSignals::TakePending() const
{
  const timespec now{0, 0};
  return armSecondInterrupt(sigtimedwait(&m_set, nullptr, &now));
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
      signal = sigwaitinfo(&m_set, nullptr);
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
      signal = sigtimedwait(&m_set, nullptr, &timeout);
    }
    if (signal > 0)
    {
      return armSecondInterrupt(signal);
    }
    // EINTR (another signal) or EAGAIN (timeout): the loop checks the deadline again.
  }
}
