// SIGINT and SIGTERM as a command's stop request. Constructed first thing in a command: it
// blocks both in this thread, so every thread started afterwards (the pool's workers) inherits
// the mask, and a signal that arrives while the command sets up is kept instead of killing it.
//   const CStopSignals signals;  ...  signals.WaitForStop(std::nullopt);  ...Stop(true)...
// Once a stop signal has been taken, a second SIGINT ends the process at once (exit 130), so
// that a stop that hangs can still be interrupted.
#pragma once

#include <csignal>
#include <optional>

class CStopSignals
{
public:
  CStopSignals();
  ~CStopSignals();
  CStopSignals(const CStopSignals&) = delete;
  CStopSignals& operator=(const CStopSignals&) = delete;

  // A signal that already arrived, or 0.
  int TakePending() const;
  // The signal that arrived, or 0 when `seconds` passed first (never, without seconds).
  int WaitForStop(std::optional<double> seconds) const;

private:
  // Lets a second SIGINT reach this thread, where it exits at once; returns `signal`.
  int armSecondInterrupt(int signal) const;

  sigset_t m_set{};
  sigset_t m_previous{};
  mutable struct sigaction m_previousAction{};
  mutable bool m_armed = false;
};
