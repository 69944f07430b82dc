// A command's stop request: SIGINT and SIGTERM on Linux, Ctrl-C, Ctrl-Break and the console's
// close request on Windows (reported as SIGINT and SIGTERM). Constructed first thing in a
// command, so that a request that arrives while the command sets up is kept instead of killing it.
//   const CStopSignals signals;  ...  signals.WaitForStop(std::nullopt);  ...Stop(true)...
// Once a stop request has been taken, a second interrupt ends the process at once (exit 130), so
// that a stop that hangs can still be interrupted. One body per platform (linux/, windows/).
#pragma once

#include <csignal>
#include <memory>
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
  // What the platform keeps between the calls (signal masks, the console handler's state).
  struct SState;
  std::unique_ptr<SState> m_state;
};
