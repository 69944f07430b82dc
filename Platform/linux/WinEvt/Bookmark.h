// The object behind a bookmark handle: a bookmark list that EvtUpdateBookmark moves on one
// thread while EvtRender or EvtSeek may read it on another.
#pragma once

#include "BookmarkXml.h"
#include "Handles.h"

#include <mutex>

namespace natc::winevt
{
class BookmarkObject final : public EvtObject
{
public:
  explicit BookmarkObject(BookmarkList list) : m_list(std::move(list)) {}

  void Update(std::wstring_view channel, std::uint64_t recordId)
  {
    const std::lock_guard guard(m_lock);
    m_list.Update(channel, recordId);
  }
  BookmarkList Copy() const
  {
    const std::lock_guard guard(m_lock);
    return m_list;
  }

private:
  mutable std::mutex m_lock;
  BookmarkList m_list;
};
} // namespace natc::winevt
