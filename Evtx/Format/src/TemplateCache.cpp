// TemplateCache: compiled templates reused across the chunks of one reader, found by the
// definition's GUID and size and taken only when the definition compiles the same.
#include "Bytes.h"
#include "TemplateStore.h"

#include <cstring>

namespace evtx
{
TemplateCache::TemplateCache(std::size_t byteLimit)
  : store_(std::make_unique<detail::TemplateStore>(byteLimit))
{
}

TemplateCache::~TemplateCache() = default;

std::uint64_t TemplateCache::Stored() const { return store_->Stored(); }
std::uint64_t TemplateCache::Hits() const { return store_->Hits(); }
} // namespace evtx

namespace evtx::detail
{
namespace
{
// A definition: next offset (4), GUID (16), data size (4), then the data. The entry keeps all
// but the next offset, so data offsets are shifted by the GUID's and the size's there.
constexpr std::uint32_t kGuidAt = 4;
constexpr std::uint32_t kDataAt = 24;
constexpr std::uint32_t kKept = kDataAt - kGuidAt;

std::uint64_t Key(const std::uint8_t* data, std::uint32_t definition)
{
  const std::uint8_t* guid = data + definition + kGuidAt;
  return (Le64(guid) * 0x9e3779b97f4a7c15ull) ^ Le64(guid + 8) ^
         (std::uint64_t(Le32(data + definition + 20)) << 32);
}

// Offsets into the text and substitution tables move with the template's tables.
Op Shifted(Op op, std::uint32_t text, std::uint32_t substs)
{
  switch (op.kind)
  {
  case OpKind::Close:
  case OpKind::AttrStart:
  case OpKind::ContentSubst:
  case OpKind::AttrSubst:
    op.off += text;
    break;
  case OpKind::ElementStart:
  case OpKind::ElementSubst:
    op.off += substs;
    break;
  default:
    break;
  }
  if (op.preLen != 0)
    op.pre += text;
  return op;
}

// The compiler's choice between the two element layouts, as Compiler::Element makes it.
bool Plausible(const std::uint8_t* data, std::uint32_t at, std::uint32_t element,
               std::uint32_t end)
{
  if (at + 4 > end)
    return false;
  const std::uint32_t offset = Le32(data + at);
  return offset == at + 4 || offset + 8 <= element;
}
} // namespace

bool TemplateStore::Matches(const Entry& entry, const std::uint8_t* data,
                            std::uint32_t definition) const
{
  const std::uint32_t begin = definition + kDataAt;
  const std::uint32_t size = Le32(data + definition + 20);
  if (entry.bytes.size() != kKept + std::size_t(size))
    return false;
  // Every byte outside the masked fields is equal.
  const std::uint8_t* bytes = data + definition + kGuidAt;
  std::uint32_t from = 0;
  for (const std::uint32_t at : entry.masked)
  {
    if (std::memcmp(bytes + from, entry.bytes.data() + from, at - from) != 0)
      return false;
    from = at + 4;
  }
  if (std::memcmp(bytes + from, entry.bytes.data() + from, entry.bytes.size() - from) != 0)
    return false;
  // Each name field points where it did: right behind itself, or at the same name.
  const std::uint8_t* external = entry.external.data();
  for (const TemplateShape::NameField& field : entry.shape.names)
  {
    const std::uint32_t at = begin + field.at;
    const std::uint32_t offset = Le32(data + at);
    if (field.inlined != (offset == at + 4))
      return false;
    if (field.inlined)
      continue;
    if (offset > kChunkSize - 8)
      return false;
    const std::uint32_t units = Le16(data + offset + 6);
    const std::size_t length = 2 + 2 * std::size_t(units);
    if (offset + 8 + 2 * units > kChunkSize || Le16(external) != units ||
        std::memcmp(data + offset + 6, external, length) != 0)
      return false;
    external += length;
  }
  for (const TemplateShape::ElementLayout& element : entry.shape.elements)
  {
    const std::uint32_t at = begin + element.at;
    if (Plausible(data, at + 7, at, begin + size) != element.withId ||
        Plausible(data, at + 5, at, begin + size) != element.withoutId)
      return false;
  }
  return true;
}

bool TemplateStore::Find(Chunk::Impl& impl, std::uint32_t definition, Compiled& out)
{
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto range = index_.equal_range(Key(impl.data, definition));
  for (auto it = range.first; it != range.second; ++it)
  {
    const Entry& entry = entries_[it->second];
    if (!Matches(entry, impl.data, definition))
      continue;
    impl.sharedTables.push_back(entry.tables);
    out = Compiled{};
    out.tables = entry.tables.get();
    out.opEnd = static_cast<std::uint32_t>(entry.tables->ops.size());
    out.lineBreaks = entry.lineBreaks;
    out.controls = entry.controls;
    ++hits_;
    return true;
  }
  return false;
}

void TemplateStore::Add(const Chunk::Impl& impl, std::uint32_t definition,
                        const TemplateShape& shape, const Compiled& compiled,
                        std::uint32_t textBegin, std::uint32_t substsBegin)
{
  const std::uint32_t begin = definition + kDataAt;
  const std::uint32_t size = Le32(impl.data + definition + 20);
  Entry entry;
  entry.key = Key(impl.data, definition);
  entry.bytes.assign(impl.data + definition + kGuidAt, impl.data + begin + size);
  for (const TemplateShape::NameField& field : shape.names)
  {
    const std::uint32_t at = field.at - begin;
    entry.shape.names.push_back({at, field.inlined});
    entry.masked.push_back(kKept + at);
    if (field.inlined)
    {
      // The name stored here starts with the chunk offset of the next name in its hash chain.
      entry.masked.push_back(kKept + at + 4);
      continue;
    }
    const std::uint32_t offset = Le32(impl.data + field.at);
    const std::uint32_t units = Le16(impl.data + offset + 6);
    entry.external.insert(entry.external.end(), impl.data + offset + 6,
                          impl.data + offset + 8 + 2 * std::size_t(units));
  }
  for (const std::uint32_t at : entry.masked)
    std::memset(entry.bytes.data() + at, 0, 4);
  for (const TemplateShape::ElementLayout& element : shape.elements)
    entry.shape.elements.push_back({element.at - begin, element.withId, element.withoutId});
  auto tables = std::make_shared<TemplateTables>();
  for (std::uint32_t i = compiled.opBegin; i < compiled.opEnd; ++i)
    tables->ops.push_back(Shifted(impl.ops[i], 0u - textBegin, 0u - substsBegin));
  tables->text.assign(impl.text, textBegin);
  tables->elementSubsts.assign(impl.elementSubsts.begin() + substsBegin, impl.elementSubsts.end());
  entry.tables = std::move(tables);
  entry.lineBreaks = compiled.lineBreaks;
  entry.controls = compiled.controls;

  const std::lock_guard<std::mutex> lock(mutex_);
  const std::size_t footprint = Footprint(entry);
  if (bytes_ + footprint > byteLimit_)
  {
    // Full: start over rather than keep templates of a part of the log read long ago.
    index_.clear();
    entries_.clear();
    bytes_ = 0;
    if (footprint > byteLimit_)
      return;
  }
  bytes_ += footprint;
  index_.emplace(entry.key, entries_.size());
  entries_.push_back(std::move(entry));
  ++stored_;
}

std::size_t TemplateStore::Footprint(const Entry& entry)
{
  return sizeof(Entry) + entry.bytes.size() + 4 * entry.masked.size() +
         sizeof(TemplateShape::NameField) * entry.shape.names.size() +
         sizeof(TemplateShape::ElementLayout) * entry.shape.elements.size() +
         entry.external.size() + sizeof(TemplateTables) + sizeof(Op) * entry.tables->ops.size() +
         entry.tables->text.size() + 4 * entry.tables->elementSubsts.size();
}

std::uint64_t TemplateStore::Stored() const
{
  const std::lock_guard<std::mutex> lock(mutex_);
  return stored_;
}

std::uint64_t TemplateStore::Hits() const
{
  const std::lock_guard<std::mutex> lock(mutex_);
  return hits_;
}
} // namespace evtx::detail
