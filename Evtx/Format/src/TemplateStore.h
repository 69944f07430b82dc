// Internals of TemplateCache: the entries (a definition's bytes and the compiled ops it gave),
// the checks that tell whether a definition in another chunk compiles the same, and the handing
// of an entry's tables (shared, read-only) to a chunk.
#pragma once

#include "ChunkImpl.h"
#include "Evtx/TemplateCache.h"

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace evtx::detail
{
// What a compile read beyond the definition's own bytes, at chunk offsets: the name fields
// (a name stored right after its field, or one elsewhere in the chunk) and the element layouts
// the compiler chose from the name offsets.
struct TemplateShape
{
  struct NameField
  {
    std::uint32_t at = 0;
    bool inlined = false;
  };
  struct ElementLayout
  {
    std::uint32_t at = 0;
    bool withId = false;
    bool withoutId = false;
  };
  std::vector<NameField> names;
  std::vector<ElementLayout> elements;
};

class TemplateStore
{
public:
  explicit TemplateStore(std::size_t byteLimit) : byteLimit_(byteLimit) {}

  // Gives impl the compiled form of the definition at `definition` when an entry matches it (its
  // tables, which impl keeps); false otherwise.
  bool Find(Chunk::Impl& impl, std::uint32_t definition, Compiled& out);
  // Stores what CompileTemplate appended to impl's tables from the given marks on.
  void Add(const Chunk::Impl& impl, std::uint32_t definition, const TemplateShape& shape,
           const Compiled& compiled, std::uint32_t textBegin, std::uint32_t substsBegin);

  std::uint64_t Stored() const;
  std::uint64_t Hits() const;

private:
  struct Entry
  {
    std::uint64_t key = 0;
    // GUID and data, with the fields that hold chunk offsets zeroed (listed in masked).
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint32_t> masked;
    TemplateShape shape;                // offsets relative to the data
    std::vector<std::uint8_t> external; // per outside name: its count and UTF-16 text
    // Ops whose text and substitution offsets are relative to these tables.
    std::shared_ptr<const TemplateTables> tables;
    bool lineBreaks = false;
    bool controls = false;
  };
  bool Matches(const Entry& entry, const std::uint8_t* data, std::uint32_t definition) const;
  static std::size_t Footprint(const Entry& entry);

  mutable std::mutex mutex_;
  std::unordered_multimap<std::uint64_t, std::size_t> index_;
  std::vector<Entry> entries_;
  std::size_t bytes_ = 0;
  std::size_t byteLimit_;
  std::uint64_t stored_ = 0;
  std::uint64_t hits_ = 0;
};
} // namespace evtx::detail
