// NameTable: open addressing over chunk offsets, and the blocks that hold the names' tags.
#include "NameTable.h"

#include <algorithm>
#include <cstring>

namespace evtx::detail
{
namespace
{
constexpr std::size_t kBlockSize = std::size_t{16} << 10;
constexpr std::size_t kFirstSlots = 256;
} // namespace

void NameTable::Clear() noexcept
{
  if (used_ != 0)
    std::fill(slots_.begin(), slots_.end(), Slot{});
  used_ = 0;
  block_ = 0;
  blockUsed_ = 0;
}

char* NameTable::Room(std::size_t size)
{
  // Each piece leaves kReadSlack bytes of its block after it (the next piece may use them).
  while (block_ < blocks_.size() && blockSizes_[block_] - blockUsed_ < size + kReadSlack)
  {
    ++block_;
    blockUsed_ = 0;
  }
  if (block_ == blocks_.size())
  {
    const std::size_t blockSize = std::max(size + kReadSlack, kBlockSize);
    blocks_.push_back(std::make_unique<char[]>(blockSize));
    blockSizes_.push_back(blockSize);
    blockUsed_ = 0;
  }
  char* room = blocks_[block_].get() + blockUsed_;
  blockUsed_ += size;
  return room;
}

void NameTable::Grow()
{
  std::vector<Slot> old(slots_.empty() ? kFirstSlots : 2 * slots_.size());
  old.swap(slots_);
  for (const Slot& slot : old)
  {
    if (slot.tags == nullptr)
      continue;
    std::size_t i = Hash(slot.offset) & (slots_.size() - 1);
    while (slots_[i].tags != nullptr)
      i = (i + 1) & (slots_.size() - 1);
    slots_[i] = slot;
  }
}

std::string_view NameTable::Add(std::uint32_t offset, std::string_view name)
{
  // At most half full, so that a search ends soon at a free slot.
  if (2 * (used_ + 1) > slots_.size())
    Grow();
  const std::size_t n = name.size();
  char* tags = Room(3 * n + 7);
  char* at = tags;
  const auto put = [&at](std::string_view piece) {
    std::memcpy(at, piece.data(), piece.size());
    at += piece.size();
  };
  put("</");
  put(name);
  put("> ");
  put(name);
  put("='<");
  put(name);
  std::size_t i = Hash(offset) & (slots_.size() - 1);
  while (slots_[i].tags != nullptr)
    i = (i + 1) & (slots_.size() - 1);
  slots_[i] = Slot{offset, static_cast<std::uint32_t>(n), tags};
  ++used_;
  return {tags + 2, n};
}
} // namespace evtx::detail
