// Lends a collection's records to its subscribers and takes each one back when the last of them
// lets it go, so that the next record is filled into the same object: its field vector, its key
// and the text buffers its fields hold are reused instead of allocated again. One record at most
// waits for reuse; a record still held elsewhere is never touched, and one returned after the
// recycler is gone is deleted. Take and Share are for the one producing thread; the record may
// come back on any thread.
//   auto recycler = std::make_shared<CRecordRecycler>();
//   std::unique_ptr<CRecordOnVector> record = recycler->Take();  // null when none came back
//   if (!record) record = std::make_unique<CRecordOnVector>();
//   ... fill it ...
//   std::shared_ptr<CRecordOnVector> lent = CRecordRecycler::Share(recycler, std::move(record));
#pragma once

#include "Collector.Interfaces.Impl.h"

#include <atomic>
#include <memory>

namespace collector::ni::impl
{
class CRecordRecycler
{
public:
  CRecordRecycler() = default;
  CRecordRecycler(const CRecordRecycler&) = delete;
  CRecordRecycler& operator=(const CRecordRecycler&) = delete;
  ~CRecordRecycler();

  // The record that came back last, with its contents as its holders left them; null if none.
  std::unique_ptr<CRecordOnVector> Take() noexcept;

  // Shares the record; when its last holder lets go, it comes back to `recycler`.
  static std::shared_ptr<CRecordOnVector> Share(const std::shared_ptr<CRecordRecycler>& recycler,
                                                std::unique_ptr<CRecordOnVector> record);

private:
  // Keeps the record for the next Take (deleting the one kept before).
  void giveBack(CRecordOnVector* record) noexcept;

  std::atomic<CRecordOnVector*> m_spare{nullptr};
};
} // namespace collector::ni::impl
