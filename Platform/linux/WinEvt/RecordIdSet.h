// The record numbers a query has delivered, kept as merged ranges: a log's numbers are mostly
// consecutive, so memory stays at a few ranges even for millions of records, while recovered or
// damaged files with repeated chunks still never deliver a number twice.
#pragma once

#include <cstdint>
#include <map>

namespace natc::winevt
{
class RecordIdSet
{
public:
  bool Contains(std::uint64_t id) const;
  // Adds id; false when it was already there.
  bool Insert(std::uint64_t id);
  std::size_t RangeCount() const { return m_ranges.size(); }

private:
  // First number of each range to its last number.
  std::map<std::uint64_t, std::uint64_t> m_ranges;
};
} // namespace natc::winevt
