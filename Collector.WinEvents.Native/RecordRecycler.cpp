#include "RecordRecycler.h"

namespace collector::ni::impl
{
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
  return std::shared_ptr<CRecordOnVector>(lent, SGiveBack{recycler});
}
} // namespace collector::ni::impl
