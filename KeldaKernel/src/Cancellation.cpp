// Cancellation tokens. A token links to its parent, so cancelling a parent reaches every
// descendant without the parent knowing them; tests walk the chain with atomic loads only.
#include "KeldaKernel/Cancellation.h"

#include "KeldaKernel/Exceptions.h"

#include <atomic>

namespace
{
class CCancellation final : public ICancellation, public std::enable_shared_from_this<CCancellation>
{
public:
  explicit CCancellation(std::shared_ptr<ICancellationToken> parent) : m_parent(std::move(parent)) {}

  bool is_cancelled() const noexcept override
  {
    if (m_cancelled.load(std::memory_order_acquire))
      return true;
    return m_parent && m_parent->is_cancelled();
  }

  void throw_if_cancelled() const override
  {
    if (is_cancelled())
      KELDA_THROW(CInterruptedException());
  }

  std::shared_ptr<ICancellation> get_cancellation() override { return shared_from_this(); }

  void stop(bool sync) noexcept override
  {
    m_stopSync.store(sync, std::memory_order_relaxed);
    m_stopRequested.store(true, std::memory_order_release);
  }

  bool stop_requested() const noexcept override { return m_stopRequested.load(std::memory_order_acquire); }
  bool stop_is_sync() const noexcept override { return m_stopSync.load(std::memory_order_acquire); }

  void cancel() noexcept override { m_cancelled.store(true, std::memory_order_release); }

private:
  const std::shared_ptr<ICancellationToken> m_parent;
  std::atomic<bool> m_cancelled{false};
  std::atomic<bool> m_stopRequested{false};
  std::atomic<bool> m_stopSync{false};
};

thread_local std::shared_ptr<ICancellationToken> t_current;
} // namespace

std::shared_ptr<ICancellation> create_cancellation()
{
  return std::make_shared<CCancellation>(nullptr);
}

std::shared_ptr<ICancellation> create_child_cancellation(const std::shared_ptr<ICancellationToken>& parent)
{
  return std::make_shared<CCancellation>(parent);
}

interruption_scope::interruption_scope(std::shared_ptr<ICancellationToken> token) noexcept
  : m_previous(std::exchange(t_current, std::move(token)))
{
}

interruption_scope::~interruption_scope() { t_current = std::move(m_previous); }

void interruption_point()
{
  if (t_current && t_current->is_cancelled())
    KELDA_THROW(CInterruptedException());
}

std::shared_ptr<ICancellationToken> current_cancellation() noexcept { return t_current; }
