// NameTable: a chunk's element and attribute names by chunk offset, each decoded once. A name is
// kept as "</name> name='<name", so that the renderer writes each tag of an element or attribute
// in one piece (OpenTag, CloseTag, AttributeTag of the view Find or Add gave).
//
// Usage: table.Clear() when a chunk loads; Find(offset, name), else Add(offset, utf8) once.
// Views stay valid until the next Clear. The table and its text keep their memory across
// chunks, so a chunk's names cost no allocation once the largest chunk was read.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace evtx::detail
{
class NameTable
{
public:
  // Readable bytes after every tag, for copies that move a fixed block.
  static constexpr std::size_t kReadSlack = 32;

  void Clear() noexcept;
  bool Find(std::uint32_t offset, std::string_view& name) const noexcept
  {
    if (slots_.empty())
      return false;
    for (std::size_t i = Hash(offset) & (slots_.size() - 1);; i = (i + 1) & (slots_.size() - 1))
    {
      const Slot& slot = slots_[i];
      if (slot.tags == nullptr)
        return false;
      if (slot.offset == offset)
      {
        name = {slot.tags + 2, slot.length};
        return true;
      }
    }
  }
  // Stores the name (UTF-8) for an offset that Find did not find; returns its view.
  std::string_view Add(std::uint32_t offset, std::string_view name);

  // "<name", "</name>" and " name='" of a name this table gave.
  static std::string_view OpenTag(std::string_view name) noexcept
  {
    return {name.data() + 2 * name.size() + 4, name.size() + 1};
  }
  static std::string_view CloseTag(std::string_view name) noexcept
  {
    return {name.data() - 2, name.size() + 3};
  }
  static std::string_view AttributeTag(std::string_view name) noexcept
  {
    return {name.data() + name.size() + 1, name.size() + 3};
  }

private:
  struct Slot
  {
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    const char* tags = nullptr;  // nullptr: a free slot
  };
  static std::size_t Hash(std::uint32_t offset) noexcept
  {
    return (offset * 0x9e3779b1u) >> 7;
  }
  char* Room(std::size_t size);
  void Grow();

  std::vector<Slot> slots_;
  std::size_t used_ = 0;
  // The tags' text: blocks filled in order; a block is never moved, so views stay valid.
  std::vector<std::unique_ptr<char[]>> blocks_;
  std::vector<std::size_t> blockSizes_;
  std::size_t block_ = 0;      // the block being filled
  std::size_t blockUsed_ = 0;  // bytes of it in use
};
} // namespace evtx::detail
