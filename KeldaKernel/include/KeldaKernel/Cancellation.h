// Cooperative cancellation. A token is tested (is_cancelled / throw_if_cancelled) by work that
// can stop; its cancellation source cancels it. A child made with create_child_cancellation is
// cancelled when its parent is. Code running on a pool thread marks its token current with an
// interruption_scope; interruption_point() then throws CInterruptedException once it is cancelled.
#pragma once

#include <memory>

class ICancellation;

class ICancellationToken
{
public:
  virtual ~ICancellationToken() = default;
  virtual bool is_cancelled() const noexcept = 0;
  // Throws CInterruptedException when cancelled.
  virtual void throw_if_cancelled() const = 0;
  // The source that cancels this token.
  virtual std::shared_ptr<ICancellation> get_cancellation() = 0;
  // Records a stop request and whether the stopper waits for running work (the flag of Stop).
  virtual void stop(bool sync) noexcept = 0;
  virtual bool stop_requested() const noexcept = 0;
  virtual bool stop_is_sync() const noexcept = 0;
};

// A cancellation source, which is also the token it cancels.
class ICancellation : public ICancellationToken
{
public:
  virtual void cancel() noexcept = 0;
};

// A new root token, cancelled only through its own source.
std::shared_ptr<ICancellation> create_cancellation();
// A new token cancelled by its own source or by any ancestor's. A null parent gives a root.
std::shared_ptr<ICancellation> create_child_cancellation(const std::shared_ptr<ICancellationToken>& parent);

// Makes `token` the current thread's token for the scope's lifetime (scopes nest).
class interruption_scope
{
public:
  explicit interruption_scope(std::shared_ptr<ICancellationToken> token) noexcept;
  ~interruption_scope();
  interruption_scope(const interruption_scope&) = delete;
  interruption_scope& operator=(const interruption_scope&) = delete;

private:
  std::shared_ptr<ICancellationToken> m_previous;
};

// Throws CInterruptedException when the current thread's token is cancelled; else nothing.
void interruption_point();
// The current thread's token, or null.
std::shared_ptr<ICancellationToken> current_cancellation() noexcept;
