// Chunk: loading and checking a chunk, the name and template caches, and the two ways of
// turning a record into something useful: rendering XML and decoding an EventTree.
#include "Bytes.h"
#include "ChunkImpl.h"
#include "Evtx/Crc32.h"
#include "Evtx/File.h"
#include "TemplateStore.h"

#include <cstring>

namespace evtx
{
using detail::Compiled;
using detail::kNone;
using detail::Le16;
using detail::Le32;
using detail::Le64;
using detail::OpenedFragment;
using detail::OpKind;

namespace
{
constexpr std::uint32_t kRecordSignature = 0x00002a2a;
constexpr std::uint32_t kRecordHeaderSize = 24;
constexpr std::uint32_t kAnonymousKey = 0x80000000u;
// States of Chunk::recordsChecksum_.
constexpr std::uint8_t kChecksumUnknown = 0;
constexpr std::uint8_t kChecksumBad = 1;
constexpr std::uint8_t kChecksumGood = 2;

// NULL in the sense of optional substitutions: a NullType value (or a missing one). An empty
// value of another type, such as a zero-length Binary, still shows its element.
bool IsNullType(const Value& value) noexcept
{
  return value.BaseType() == ValueType::Null;
}

// Offset of the next record in [from, end) whose signature and both size fields agree, or end.
std::uint32_t NextIntactRecord(const std::uint8_t* data, std::uint32_t from, std::uint32_t end)
{
  for (std::uint32_t pos = (from + 7) & ~7u; pos + kRecordHeaderSize + 4 <= end; pos += 8)
  {
    const std::uint32_t size = Le32(data + pos + 4);
    if (Le32(data + pos) == kRecordSignature && size >= kRecordHeaderSize + 4 &&
        size <= end - pos && Le32(data + pos + size - 4) == size)
      return pos;
  }
  return end;
}
} // namespace

Chunk::Chunk() : impl_(std::make_unique<Impl>()) {}
Chunk::~Chunk() = default;

void Chunk::ShareTemplates(std::shared_ptr<TemplateCache> cache)
{
  impl_->shared = std::move(cache);
}

Status Chunk::Load(const std::uint8_t* bytes, std::size_t size, std::uint32_t index)
{
  std::uint8_t* buffer = Buffer();
  if (size < kChunkSize)
  {
    // A short chunk is never parsed; the rest of the buffer is zeroed so nothing stale remains.
    std::memcpy(buffer, bytes, size);
    std::memset(buffer + size, 0, kChunkSize - size);
    Forget(index);
    return Status::Truncated;
  }
  std::memcpy(buffer, bytes, kChunkSize);
  return LoadBuffer(index);
}

std::uint8_t* Chunk::Buffer()
{
  // Sized once: a recycled chunk is overwritten in place rather than cleared first.
  if (data_.size() != kChunkSize)
    data_.assign(kChunkSize, 0);
  return data_.data();
}

void Chunk::Forget(std::uint32_t index)
{
  records_.clear();
  index_ = index;
  headerChecksumOk_ = false;
  recordsEnd_ = 0;
  recordsChecksum_.store(kChecksumUnknown, std::memory_order_relaxed);
  recordsTruncated_ = false;
  header_ = ChunkHeader{};
  impl_->Reset(Buffer());
}

Status Chunk::LoadBuffer(std::uint32_t index)
{
  Forget(index);
  const Status status = ParseChunkHeader(data_.data(), kChunkHeaderSize, header_);
  if (status != Status::Ok && status != Status::BadHeaderChecksum)
    return status;
  headerChecksumOk_ = status == Status::Ok;

  // Records end at the header's free-space offset; a nonsensical one means "until the first
  // record that does not check".
  std::uint32_t end = header_.freeSpaceOffset;
  if (end < kChunkHeaderSize || end > kChunkSize)
    end = kChunkSize;
  else
    recordsEnd_ = end;
  // Below the free-space offset every record was complete when the header was written, so a
  // record whose trailing size copy is damaged is still offered (its decode may then fail).
  // After a damaged record header, look for the next record that checks fully.
  std::uint32_t pos = kChunkHeaderSize;
  while (pos + kRecordHeaderSize + 4 <= end)
  {
    const std::uint8_t* r = data_.data() + pos;
    const std::uint32_t recordSize = Le32(r + 4);
    if (Le32(r) == kRecordSignature && recordSize >= kRecordHeaderSize + 4 &&
        recordSize <= end - pos && recordSize % 8 == 0)
    {
      if (Le32(r + recordSize - 4) != recordSize)
        recordsTruncated_ = true;
      records_.push_back(Record{Le64(r + 8), Le64(r + 16), pos, recordSize});
      pos += recordSize;
      continue;
    }
    if (end == kChunkSize && Le32(r) != kRecordSignature)
      break;  // no trustworthy free-space offset: the records simply end here
    recordsTruncated_ = true;
    pos = NextIntactRecord(data_.data(), pos + 8, end);
  }
  return Status::Ok;
}

bool Chunk::RecordsChecksumOk() const noexcept
{
  std::uint8_t state = recordsChecksum_.load(std::memory_order_relaxed);
  if (state == kChecksumUnknown)
  {
    // Threads asking at once compute the same answer from the same bytes.
    const bool good = recordsEnd_ != 0 && Crc32(data_.data() + kChunkHeaderSize, recordsEnd_ - kChunkHeaderSize) ==
                                            header_.recordsChecksum;
    state = good ? kChecksumGood : kChecksumBad;
    recordsChecksum_.store(state, std::memory_order_relaxed);
  }
  return state == kChecksumGood;
}

void Chunk::Impl::Reset(const std::uint8_t* chunkData)
{
  data = chunkData;
  ops.clear();
  text.clear();
  tnodes.clear();
  elementSubsts.clear();
  compiled.clear();
  templateIndex.clear();
  sharedTables.clear();
  recentTemplates.fill(RecentTemplate{});
  names.Clear();
  namesHaveControls = false;
  subsTop = 0;
}

bool Chunk::Impl::Name(std::uint32_t offset, std::string_view& out)
{
  if (names.Find(offset, out))
    return true;
  if (offset > kChunkSize - 8)
    return false;
  const std::uint32_t units = Le16(data + offset + 6);
  if (offset + 8 + 2 * units > kChunkSize)
    return false;
  nameText.clear();
  AppendUtf16(nameText, data + offset + 8, units, TextEscape::None);
  for (const char c : nameText)
    namesHaveControls |= static_cast<unsigned char>(c) < 0x20;
  out = names.Add(offset, nameText);
  return true;
}

const Compiled& Chunk::Impl::Get(std::uint32_t offset, std::uint32_t end, bool anonymous, bool tree)
{
  const std::uint32_t key = anonymous ? (offset | kAnonymousKey) : offset;
  RecentTemplate& recent = recentTemplates[(key * 0x9e3779b1u) >> 28];
  std::uint32_t index = kNone;
  if (recent.key == key)
  {
    index = recent.index;
  }
  else
  {
    const auto found = templateIndex.find(key);
    if (found != templateIndex.end())
    {
      index = found->second;
      recent = {key, index};
    }
  }
  if (index != kNone && (!tree || compiled[index].hasTree))
    return compiled[index];
  Compiled result;
  if (anonymous)
  {
    detail::CompileTemplate(*this, offset, end, true, tree, result);
  }
  else if (offset > kChunkSize - 24)
  {
    result.status = Status::BadData;
  }
  else
  {
    // Definition: next offset (4), GUID (16), data size (4), then the fragment.
    const std::uint32_t dataSize = Le32(data + offset + 20);
    const std::uint32_t begin = offset + 24;
    if (dataSize > kChunkSize - begin)
      result.status = Status::BadData;
    else if (tree || !shared)
      detail::CompileTemplate(*this, begin, begin + dataSize, false, tree, result);
    else if (!shared->Store().Find(*this, offset, result))
    {
      // Rendering only: what another chunk compiled from the same definition serves here.
      detail::TemplateShape shape;
      const auto textBegin = static_cast<std::uint32_t>(text.size());
      const auto substsBegin = static_cast<std::uint32_t>(elementSubsts.size());
      detail::CompileTemplate(*this, begin, begin + dataSize, false, false, result, &shape);
      if (result.status == Status::Ok)
        shared->Store().Add(*this, offset, shape, result, textBegin, substsBegin);
    }
  }
  if (index != kNone)
  {
    compiled[index] = result;
    return compiled[index];
  }
  index = static_cast<std::uint32_t>(compiled.size());
  templateIndex.emplace(key, index);
  compiled.push_back(result);
  recent = {key, index};
  return compiled[index];
}

Status Chunk::Impl::Open(std::uint32_t begin, std::uint32_t end, bool tree, OpenedFragment& out)
{
  std::uint32_t pos = begin;
  while (pos < end && data[pos] == 0x0f)
    pos += 4;
  if (pos >= end)
    return Status::BadData;
  if (data[pos] != 0x0c)
  {
    out.compiled = Get(pos, end, true, tree);
    out.base = subsTop;
    out.count = 0;
    return out.compiled.status;
  }
  // Template instance: token, unknown byte, template id, definition offset.
  if (end - pos < 10)
    return Status::Truncated;
  const std::uint32_t definition = Le32(data + pos + 6);
  pos += 10;
  if (definition == pos)
  {
    // The definition is stored here, at its first use in the chunk: skip it.
    if (end - pos < 24)
      return Status::Truncated;
    const std::uint32_t dataSize = Le32(data + pos + 20);
    if (dataSize > end - pos - 24)
      return Status::Truncated;
    pos += 24 + dataSize;
  }
  out.compiled = Get(definition, 0, false, tree);
  if (out.compiled.status != Status::Ok)
    return out.compiled.status;
  if (end - pos < 4)
    return Status::Truncated;
  const std::uint32_t count = Le32(data + pos);
  pos += 4;
  if (count > (end - pos) / 4)
    return Status::Truncated;
  const std::uint8_t* descriptor = data + pos;
  const std::uint32_t valuesBegin = pos + 4 * count;
  out.descriptors = descriptor;
  out.base = subsTop;
  out.count = count;
  // Each value's offset, checked once at the end: the values fit when their sizes' sum does
  // (at most 16 Ki sizes of 16 bits, so the sum cannot wrap).
  if (subs.size() < std::size_t(subsTop) + count)
    subs.resize(std::size_t(subsTop) + count);
  std::uint32_t* offsets = subs.data() + out.base;
  std::uint32_t used = 0;
  for (std::uint32_t i = 0; i < count; ++i, descriptor += 4)
  {
    offsets[i] = valuesBegin + used;
    used += Le16(descriptor);
  }
  if (used > end - valuesBegin)
    return Status::Truncated;
  subsTop += count;
  return Status::Ok;
}

Status Chunk::Impl::RenderFragment(std::uint32_t begin, std::uint32_t end, detail::TextBuffer& out,
                                   TextEscape escape, int depth)
{
  if (depth > detail::kMaxFragmentDepth)
    return Status::TooDeep;
  std::uint32_t pos = begin;
  while (pos < end && data[pos] == 0x0f)
    pos += 4;
  if (pos < end && data[pos] != 0x0c && templateIndex.count(pos | kAnonymousKey) == 0)
  {
    // A plain fragment (a binary XML value) is mostly used once: render it without compiling.
    const std::size_t start = out.size();
    bool lineBreaks = false;
    bool controls = false;
    if (detail::RenderPlainFragment(*this, pos, end, out, lineBreaks, controls))
    {
      // Compiled, it would be one op of text, or none when empty.
      const std::uint32_t opCount = out.size() > start ? 1 : 0;
      if (budget < opCount)
      {
        out.resize(start);
        return Status::TooDeep;
      }
      budget -= opCount;
      if (escape == TextEscape::XmlOneLine)
        RewriteOneLine(out, start, lineBreaks, controls);
      return Status::Ok;
    }
    out.resize(start);
  }
  OpenedFragment fragment;
  const std::uint32_t mark = subsTop;
  Status status = Open(begin, end, false, fragment);
  if (status == Status::Ok)
    status = Run(fragment, out, escape, depth);
  subsTop = mark;
  return status;
}

Status Chunk::Impl::Run(const OpenedFragment& fragment, detail::TextBuffer& out, TextEscape escape,
                        int depth)
{
  const std::size_t renderStart = out.size();
  const std::uint32_t opCount = fragment.compiled.opEnd - fragment.compiled.opBegin;
  if (budget < opCount)
    return Status::TooDeep;
  budget -= opCount;
  const Status status = RunOps<false>(fragment, fragment.compiled.opBegin, fragment.compiled.opEnd, out,
                               escape, depth, Item{});
  if (status != Status::Ok)
    return status;
  if (escape == TextEscape::XmlOneLine && (fragment.compiled.lineBreaks || fragment.compiled.controls))
    RewriteOneLine(out, renderStart, fragment.compiled.lineBreaks, fragment.compiled.controls);
  return Status::Ok;
}

void Chunk::Impl::RewriteOneLine(detail::TextBuffer& buffer, std::size_t from, bool lineBreaks,
                                 bool controls)
{
  if (!controls && !lineBreaks)
    return;
  std::string& out = buffer.Commit();
  if (controls)
    ReplaceForbiddenControls(out, from);
  if (lineBreaks)
  {
    // Literal template text with line breaks: rewrite them as character references.
    std::string rest = out.substr(from);
    out.resize(from);
    for (const char c : rest)
    {
      if (c == '\r')
        out += "&#13;";
      else if (c == '\n')
        out += "&#10;";
      else
        out += c;
    }
  }
  buffer.Sync();
}

Status Chunk::Impl::AppendSubstitution(const Value& value, detail::TextBuffer& out,
                                       TextEscape escape, int depth)
{
  if (value.IsNull())
    return Status::Ok;
  if (value.BaseType() == ValueType::BinXml && !value.IsArray())
    return AppendFragmentValue(value, out, escape, depth);
  detail::AppendValueText(out, value, escape);
  return out.size() > outputLimit ? Status::TooDeep : Status::Ok;
}

Status Chunk::Impl::AppendContent(const std::string& closeText, std::uint32_t closeOff,
                                  std::uint32_t closeLen, const Value& value, detail::TextBuffer& out,
                                  TextEscape escape, int depth)
{
  const std::size_t start = out.size();
  const Status status = AppendSubstitution(value, out, escape, depth);
  if (status != Status::Ok)
    return status;
  if (out.size() == start)
  {
    out.back() = '/';
    out += '>';
  }
  else
  {
    out.AppendPadded(closeText.data() + closeOff, closeLen);
  }
  return Status::Ok;
}

Status Chunk::Impl::RepeatElement(const OpenedFragment& fragment, std::uint32_t first,
                                  std::uint32_t count, std::uint32_t arraySubst, const Value& array,
                                  detail::TextBuffer& out, TextEscape escape, int depth)
{
  std::uint32_t pos = 0;
  Item repeat{arraySubst, {}};
  while (NextArrayItem(array, pos, repeat.value))
  {
    if (budget < count)
      return Status::TooDeep;
    budget -= count;
    const Status status = RunOps<true>(fragment, first, first + count, out, escape, depth, repeat);
    if (status != Status::Ok)
      return status;
  }
  return Status::Ok;
}

Status Chunk::Impl::AppendFragmentValue(const Value& value, detail::TextBuffer& out,
                                        TextEscape escape, int depth)
{
  const auto offset = static_cast<std::uint32_t>(value.data - data);
  const Status status = RenderFragment(offset, offset + value.size, out, escape, depth + 1);
  if (status != Status::Ok)
    return status;
  return out.size() > outputLimit ? Status::TooDeep : Status::Ok;
}

template <bool Repeating>
Status Chunk::Impl::RunOps(const OpenedFragment& fragment, std::uint32_t begin, std::uint32_t end,
                           detail::TextBuffer& out, TextEscape escape, int depth, const Item& item)
{
  const detail::TemplateTables& tables = *fragment.compiled.tables;
  const std::vector<detail::Op>& opTable = tables.ops;
  const std::string& textTable = tables.text;
  const std::vector<std::uint32_t>& substTable = tables.elementSubsts;
  std::size_t contentStart[detail::kMaxElementDepth + 2];
  int open = 0;
  std::size_t attributeStart = 0;
  bool attributeHasValue = false;
  for (std::uint32_t i = begin; i < end; ++i)
  {
    // Valid until a value renders: a nested fragment compiled meanwhile may move the ops, so
    // what is needed after a value is read before it.
    const detail::Op& op = opTable[i];
    if (op.preLen != 0)
      out.AppendPadded(textTable.data() + op.pre, op.preLen);
    switch (op.kind)
    {
    case OpKind::Text:
      break;
    case OpKind::OpenContent:
      out += '>';
      contentStart[open++] = out.size();
      break;
    case OpKind::Close:
      if (open > 0 && contentStart[--open] == out.size())
      {
        out.back() = '/';
        out += '>';
      }
      else
      {
        out.AppendPadded(textTable.data() + op.off, op.len);
      }
      break;
    case OpKind::AttrStart:
      attributeStart = out.size();
      attributeHasValue = false;
      out.AppendPadded(textTable.data() + op.off, op.len);
      break;
    case OpKind::AttrEnd:
      if (op.optional && !attributeHasValue)
        out.resize(attributeStart);
      else
        out += '\'';
      break;
    case OpKind::Subst:
    {
      const Value value = Substitution<Repeating>(fragment, op.subst, item);
      const Status status = AppendSubstitution(value, out, escape, depth);
      if (status != Status::Ok)
        return status;
      attributeHasValue |= !IsNullType(value);
      break;
    }
    case OpKind::ContentSubst:
    {
      const Status status = AppendContent(textTable, op.off, op.len,
                                          Substitution<Repeating>(fragment, op.subst, item), out, escape, depth);
      if (status != Status::Ok)
        return status;
      break;
    }
    case OpKind::AttrSubst:
    {
      const std::size_t start = out.size();
      out.AppendPadded(textTable.data() + op.off, op.len);
      const Value value = Substitution<Repeating>(fragment, op.subst, item);
      const Status status = AppendSubstitution(value, out, escape, depth);
      if (status != Status::Ok)
        return status;
      if (!IsNullType(value))
        out += '\'';
      else
        out.resize(start);
      break;
    }
    case OpKind::ElementSubst:
    {
      // ElementStart and the ContentSubst after it in one step (see OpKind).
      const std::uint32_t entry = substTable[op.off];
      const Value value = Substitution<Repeating>(fragment, entry & 0xffffu, item);
      if (depth != 0 || open != 0 || Repeating)
      {
        if ((entry & detail::kOptionalSubst) != 0 && IsNullType(value))
        {
          i += op.len;
          break;
        }
        if (value.IsArray())
        {
          const std::uint32_t count = op.len;
          const Status status = RepeatElement(fragment, i + 1, count, entry & 0xffffu, value, out,
                                              escape, depth);
          if (status != Status::Ok)
            return status;
          i += count;
          break;
        }
      }
      const detail::Op& content = opTable[++i];
      if (content.preLen != 0)
        out.AppendPadded(textTable.data() + content.pre, content.preLen);
      const Status status = AppendContent(textTable, content.off, content.len, value, out, escape, depth);
      if (status != Status::Ok)
        return status;
      break;
    }
    case OpKind::ElementStart:
    {
      // An optional substitution that is null removes its element; an array value in the
      // content repeats the element once per item (none for an empty array). A record's
      // outermost element always stays: without it the record would vanish from the output.
      if (depth == 0 && open == 0 && !Repeating)
        break;
      std::uint32_t arraySubst = kNone;
      Value array;
      bool omit = false;
      for (std::uint32_t k = op.off; k < op.off + op.subst; ++k)
      {
        const std::uint32_t entry = substTable[k];
        const std::uint32_t index = entry & 0xffffu;
        const Value value = Substitution<Repeating>(fragment, index, item);
        if ((entry & detail::kOptionalSubst) != 0 && IsNullType(value))
        {
          omit = true;
          break;
        }
        if (arraySubst == kNone && value.IsArray())
        {
          arraySubst = index;
          array = value;
        }
      }
      if (omit)
      {
        i += op.len;
        break;
      }
      if (arraySubst == kNone)
        break;
      const std::uint32_t count = op.len;
      const Status status = RepeatElement(fragment, i + 1, count, arraySubst, array, out, escape, depth);
      if (status != Status::Ok)
        return status;
      i += count;
      break;
    }
    }
  }
  return Status::Ok;
}

Status Chunk::Impl::DecodeFragment(std::uint32_t begin, std::uint32_t end, EventTree& tree,
                                   std::uint32_t parent, int depth)
{
  if (depth > detail::kMaxFragmentDepth)
    return Status::TooDeep;
  OpenedFragment fragment;
  const std::uint32_t mark = subsTop;
  Status status = Open(begin, end, true, fragment);
  for (std::uint32_t child = status == Status::Ok ? tnodes[fragment.compiled.root].firstChild : kNone;
       child != kNone && status == Status::Ok; child = tnodes[child].nextSibling)
  {
    // The record's outermost element always stays, as in the compiled renderer.
    const detail::TNode top = tnodes[child];
    if (depth == 0 && top.kind == NodeKind::Element && budget > 0)
    {
      --budget;
      status = InstantiateElement(top, fragment, tree, parent, depth, Item{});
    }
    else
    {
      status = Instantiate(child, fragment, tree, parent, depth, Item{});
    }
  }
  subsTop = mark;
  return status;
}

Status Chunk::Impl::Instantiate(std::uint32_t index, const OpenedFragment& fragment,
                                EventTree& tree, std::uint32_t parent, int depth,
                                const Item& item)
{
  if (budget == 0)
    return Status::TooDeep;
  --budget;
  const detail::TNode tnode = tnodes[index];
  if (tnode.isSubst)
  {
    const Value value = Substitution(fragment, tnode.subst, item);
    if (value.IsNull())
      return Status::Ok;
    Node node;
    node.kind = tnode.kind;
    node.value = value;
    node.substituted = true;
    const std::uint32_t added = tree.Add(node, parent);
    if (value.BaseType() == ValueType::BinXml && !value.IsArray())
    {
      const auto offset = static_cast<std::uint32_t>(value.data - data);
      return DecodeFragment(offset, offset + value.size, tree, added, depth + 1);
    }
    return Status::Ok;
  }
  if (tnode.kind != NodeKind::Element)
  {
    Node node;
    node.kind = tnode.kind;
    node.name = tnode.name;
    node.charRef = tnode.charRef;
    node.value = tnode.value;
    tree.Add(node, parent);
    return Status::Ok;
  }
  // The same rules as the compiled renderer: an optional substitution in the content that is
  // null removes the element; an array value there repeats it once per item.
  std::uint32_t arraySubst = kNone;
  Value array;
  for (std::uint32_t c = tnode.firstChild; c != kNone; c = tnodes[c].nextSibling)
  {
    const detail::TNode& child = tnodes[c];
    if (!child.isSubst)
      continue;
    const Value value = Substitution(fragment, child.subst, item);
    if (child.optional && IsNullType(value))
      return Status::Ok;
    if (arraySubst == kNone && value.IsArray())
    {
      arraySubst = child.subst;
      array = value;
    }
  }
  if (arraySubst == kNone)
    return InstantiateElement(tnode, fragment, tree, parent, depth, item);
  std::uint32_t pos = 0;
  Item repeat{arraySubst, {}};
  while (NextArrayItem(array, pos, repeat.value))
  {
    if (budget == 0)
      return Status::TooDeep;
    --budget;
    const Status status = InstantiateElement(tnode, fragment, tree, parent, depth, repeat);
    if (status != Status::Ok)
      return status;
  }
  return Status::Ok;
}

Status Chunk::Impl::InstantiateElement(const detail::TNode& tnode,
                                       const OpenedFragment& fragment, EventTree& tree,
                                       std::uint32_t parent, int depth, const Item& item)
{
  Node node;
  node.kind = NodeKind::Element;
  node.name = tnode.name;
  const std::uint32_t added = tree.Add(node, parent);
  for (std::uint32_t a = tnode.firstAttribute; a != kNone; a = tnodes[a].nextSibling)
  {
    const detail::TNode attribute = tnodes[a];
    if (attribute.optional)
    {
      // Omitted when every substitution in it is NULL, as Windows does.
      bool anyValue = false;
      for (std::uint32_t p = attribute.firstChild; p != kNone; p = tnodes[p].nextSibling)
        if (!IsNullType(Substitution(fragment, tnodes[p].subst, item)))
          anyValue = true;
      if (!anyValue)
        continue;
    }
    Node attributeNode;
    attributeNode.kind = NodeKind::Attribute;
    attributeNode.name = attribute.name;
    const std::uint32_t addedAttribute = tree.AddAttribute(attributeNode, added);
    for (std::uint32_t p = attribute.firstChild; p != kNone; p = tnodes[p].nextSibling)
    {
      const Status status = Instantiate(p, fragment, tree, addedAttribute, depth, item);
      if (status != Status::Ok)
        return status;
    }
  }
  for (std::uint32_t c = tnode.firstChild; c != kNone; c = tnodes[c].nextSibling)
  {
    const Status status = Instantiate(c, fragment, tree, added, depth, item);
    if (status != Status::Ok)
      return status;
  }
  return Status::Ok;
}

namespace
{
bool RecordBelongs(const std::vector<std::uint8_t>& data, const Record& record)
{
  return record.offset >= kChunkHeaderSize && record.size >= kRecordHeaderSize + 4 &&
         record.offset + std::size_t(record.size) <= data.size();
}

TextEscape EscapeOf(const RenderOptions& options)
{
  return options.escapeLineBreaks ? TextEscape::XmlOneLine : TextEscape::Xml;
}

// Appends one record's XML; on failure `out` may hold part of it.
Status RenderRecord(Chunk::Impl& impl, const std::vector<std::uint8_t>& data, const Record& record,
                    detail::TextBuffer& out, TextEscape escape)
{
  if (!RecordBelongs(data, record))
    return Status::BadData;
  impl.budget = detail::kRecordBudget;
  impl.outputLimit = out.size() + detail::kRecordOutputLimit;
  return impl.RenderFragment(record.offset + kRecordHeaderSize, record.offset + record.size - 4, out,
                             escape, 0);
}
} // namespace

Status Chunk::Decode(const Record& record, EventTree& tree)
{
  tree.Clear();
  if (!RecordBelongs(data_, record))
    return Status::BadData;
  impl_->budget = detail::kRecordBudget;
  return impl_->DecodeFragment(record.offset + kRecordHeaderSize, record.offset + record.size - 4,
                               tree, kNoNode, 0);
}

Status Chunk::RenderXml(const Record& record, std::string& out, const RenderOptions& options)
{
  const std::size_t mark = out.size();
  Status status = Status::Ok;
  {
    detail::TextBuffer buffer(out);
    status = RenderRecord(*impl_, data_, record, buffer, EscapeOf(options));
  }
  if (status != Status::Ok)
    out.resize(mark);
  return status;
}

void Chunk::RenderXmlLines(std::string& out, const RenderOptions& options,
                           std::vector<std::pair<Record, Status>>& failed)
{
  // One buffer for the whole chunk: its room is made once, not again for every record.
  detail::TextBuffer buffer(out);
  for (const Record& record : records_)
  {
    const std::size_t mark = buffer.size();
    const Status status = RenderRecord(*impl_, data_, record, buffer, EscapeOf(options));
    if (status != Status::Ok)
    {
      buffer.resize(mark);
      failed.emplace_back(record, status);
      continue;
    }
    buffer += '\n';
  }
}

} // namespace evtx
