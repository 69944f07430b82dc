#include "common/StopSignals.h"

#include <pthread.h>

#include <chrono>
#include <ctime>

CStopSignals::CStopSignals()
{
  sigemptyset(&m_set);
  sigaddset(&m_set, SIGINT);
  sigaddset(&m_set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &m_set, &m_previous);
}

CStopSignals::~CStopSignals()
{
  pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

int CStopSignals::TakePending() const
{
  const timespec now{0, 0};
  const int signal = sigtimedwait(&m_set, nullptr, &now);
  return signal > 0 ? signal : 0;
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
      return signal;
    }
    // EINTR (another signal) or EAGAIN (timeout): the loop checks the deadline again.
  }
}
