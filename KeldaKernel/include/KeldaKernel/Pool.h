// The thread pool on which collections run their updates. `pool` is a cheap copyable handle to
// a fixed set of worker threads (built on Boost.Asio). dispatch_proc runs a procedure at once or
// at a deadline and returns a tp_task that can withdraw it (if it has not started) or wait for it.
// Exceptions that escape a procedure are logged and swallowed: they never end a worker.
#pragma once

#include <boost/thread/xtime.hpp>
#include <functional>
#include <memory>
#include <optional>

class pool
{
public:
  using proc = std::function<void()>;

  class tp_task
  {
  public:
    tp_task() = default;
    // withdraw: a task still waiting for its deadline or a worker is removed and never runs.
    // noWait: return at once; otherwise block until the task has run or was withdrawn.
    void halt(bool withdraw, bool noWait);
    // True when the task ran to its end or was withdrawn (an empty task counts as finished).
    bool finished() const noexcept;
    bool empty() const noexcept { return !m_state; }

  private:
    friend class pool;
    struct State;
    explicit tp_task(std::shared_ptr<State> state) : m_state(std::move(state)) {}
    std::shared_ptr<State> m_state;
  };

  // A pool with `threads` workers (at least one); 0 means the number of cores.
  explicit pool(unsigned threads = 0);
  ~pool();
  pool(const pool&) = default;
  pool& operator=(const pool&) = default;

  // Runs `procedure` on a worker as soon as one is free, or not before `deadline` (a relative
  // delay: sec seconds and nsec nanoseconds from now) when one is given.
  tp_task dispatch_proc(proc procedure, std::optional<boost::xtime> deadline = std::nullopt) const;

  unsigned thread_count() const noexcept;
  // Stops the workers after withdrawing what waits; called when the last handle goes.
  void shutdown();

private:
  struct Impl;
  std::shared_ptr<Impl> m_impl;
};
