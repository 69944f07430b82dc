#include "RecordRecycler.h"

#include <cstddef>

namespace collector::ni::impl
{
namespace
{
// Allocates the lent records' shared-pointer control blocks (all of one type) through a cache of
// one block: the block of the record that came back last serves the next record.
template <class T>
struct SControlBlocks
{
  using value_type = T;
  SControlBlocks() noexcept = default;
  template <class U>
  SControlBlocks(const SControlBlocks<U>&) noexcept // NOLINT(google-explicit-constructor): rebinding
  {
  }

  T* allocate(std::size_t count)
  {
    if (count == 1)
      if (void* block = Spare().exchange(nullptr, std::memory_order_acquire); block != nullptr)
        return static_cast<T*>(block);
    return std::allocator<T>().allocate(count);
  }

  void deallocate(T* block, std::size_t count) noexcept
  {
    // The cached block before this one, if any, is freed.
    if (count == 1)
    {
      block = static_cast<T*>(Spare().exchange(block, std::memory_order_acq_rel));
      if (block == nullptr)
        return;
    }
    std::allocator<T>().deallocate(block, count);
  }

  template <class U>
  bool operator==(const SControlBlocks<U>&) const noexcept
  {
    return true;
  }

private:
  static std::atomic<void*>& Spare() noexcept
  {
    static std::atomic<void*> spare{nullptr};
    return spare;
  }
};
} // namespace

CRecordRecycler::~CRecordRecycler()
{
  const std::unique_ptr<CRecordOnVector> spare(m_spare.load(std::memory_order_acquire));
}

std::unique_ptr<CRecordOnVector> CRecordRecycler::Take() noexcept
{
  // Acquire: what the last holder did with the record happens before the producer reuses it.
  return std::unique_ptr<CRecordOnVector>(m_spare.exchange(nullptr, std::memory_order_acq_rel));
}

void CRecordRecycler::giveBack(CRecordOnVector* record) noexcept
{
  // The record kept before, not taken since, is deleted.
  const std::unique_ptr<CRecordOnVector> older(m_spare.exchange(record, std::memory_order_acq_rel));
}

std::shared_ptr<CRecordOnVector> CRecordRecycler::Share(const std::shared_ptr<CRecordRecycler>& recycler,
                                                        std::unique_ptr<CRecordOnVector> record)
{
  // The deleter keeps the recycler alive while a record it lent is out.
  struct SGiveBack
  {
    std::shared_ptr<CRecordRecycler> owner;
    void operator()(CRecordOnVector* returned) const noexcept { owner->giveBack(returned); }
  };
  // Released first: should the shared pointer fail to allocate, its deleter already gave the
  // record back.
  CRecordOnVector* const lent = record.release();
  return std::shared_ptr<CRecordOnVector>(lent, SGiveBack{recycler}, SControlBlocks<CRecordOnVector>());
}
} // namespace collector::ni::impl
