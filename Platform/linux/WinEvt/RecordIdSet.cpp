#include "RecordIdSet.h"

#include <iterator>

namespace natc::winevt
{
bool RecordIdSet::Contains(std::uint64_t id) const
{
  auto it = m_ranges.upper_bound(id);
  if (it == m_ranges.begin())
    return false;
  --it;
  return id <= it->second;
}

bool RecordIdSet::Insert(std::uint64_t id)
{
  if (Contains(id))
    return false;
  auto next = m_ranges.upper_bound(id);
  const bool joinsNext = next != m_ranges.end() && id != UINT64_MAX && next->first == id + 1;
  auto previous = next == m_ranges.begin() ? m_ranges.end() : std::prev(next);
  const bool joinsPrevious = previous != m_ranges.end() && previous->second + 1 == id;
  if (joinsPrevious && joinsNext)
  {
    previous->second = next->second;
    m_ranges.erase(next);
  }
  else if (joinsPrevious)
  {
    previous->second = id;
  }
  else if (joinsNext)
  {
    const std::uint64_t last = next->second;
    m_ranges.erase(next);
    m_ranges.emplace(id, last);
  }
  else
  {
    m_ranges.emplace(id, id);
  }
  return true;
}
} // namespace natc::winevt
