// Compiles one binary XML fragment (a template definition or a record's plain element tree)
// into pre-rendered text with substitution slots, and into a node tree, in one pass.
#include "Bytes.h"
#include "ChunkImpl.h"
#include "TemplateStore.h"

#include <algorithm>
#include <charconv>
#include <type_traits>
#include <vector>

namespace evtx::detail
{
static_assert(NameTable::kReadSlack >= kCopySlack);

namespace
{
TNode MakeNode(NodeKind kind, std::string_view name = {}, Value value = {})
{
  TNode node;
  node.kind = kind;
  node.name = name;
  node.value = value;
  return node;
}

// Text is std::string when compiling (into the chunk's text table) and the renderer's
// TextBuffer when a plain fragment is rendered as read.
template <class Text>
class Compiler
{
public:
  Compiler(Chunk::Impl& impl, std::uint32_t end) : impl_(impl), d_(impl.data), end_(end), text_(impl.text) {}
  // The text goes to `direct` and no ops are made (RenderPlainFragment).
  Compiler(Chunk::Impl& impl, std::uint32_t end, Text& direct)
    : impl_(impl), d_(impl.data), end_(end), text_(direct)
  {
  }

  Status status = Status::Ok;
  bool lineBreaks = false;
  bool controls = false;
  bool anonymous = false;
  // Builds the node tree as well as the ops (a chunk that is only rendered needs no tree).
  bool tree = true;
  // When set, notes what the compile read outside the fragment's bytes (for TemplateCache).
  TemplateShape* shape = nullptr;

  // Whether this compile makes nodes: never when rendering straight into the output.
  bool BuildsTree() const { return !direct_ && tree; }

  std::uint32_t NewNode(const TNode& node) const
  {
    if (!BuildsTree())
      return kNone;
    impl_.tnodes.push_back(node);
    return static_cast<std::uint32_t>(impl_.tnodes.size() - 1);
  }

  void Link(std::uint32_t parent, std::uint32_t child) const
  {
    if (parent == kNone)
      return;
    TNode& p = impl_.tnodes[parent];
    if (p.lastChild == kNone)
      p.firstChild = child;
    else
      impl_.tnodes[p.lastChild].nextSibling = child;
    p.lastChild = child;
  }

  void Fragment(std::uint32_t pos, std::uint32_t root)
  {
    while (status == Status::Ok && pos < end_)
    {
      const std::uint8_t token = d_[pos];
      if (token == 0x0f)
        pos += 4;
      else if (token == 0x00)
        break;
      else if ((token & 0xbf) == 0x01)
        Element(pos, root, 0);
      else if (token == 0x0a)
        Pi(pos, root);
      else
        status = Status::BadData;
    }
  }

private:
  bool Need(std::uint32_t pos, std::uint32_t size)
  {
    if (pos <= end_ && size <= end_ - pos)
      return true;
    status = Status::Truncated;
    return false;
  }

  // A name's tag; rendering straight into the output, a padded copy (the name table leaves
  // room to read after each tag).
  void AppendTag(std::string_view tag)
  {
    if constexpr (std::is_same_v<Text, TextBuffer>)
      text_.AppendPadded(tag.data(), tag.size());
    else
      text_.append(tag);
  }

  void Emit(std::string_view piece)
  {
    const auto size = static_cast<std::uint32_t>(text_.size());
    text_.append(piece);
    EmitAppended(size);
  }

  // Turns text appended since `from` into a Text op, merging it with a preceding Text op.
  void EmitAppended(std::uint32_t from)
  {
    if (direct_)
      return;
    const auto size = static_cast<std::uint32_t>(text_.size());
    if (size == from)
      return;
    if (!impl_.ops.empty() && opsBegun_ < impl_.ops.size())
    {
      Op& last = impl_.ops.back();
      if (last.kind == OpKind::Text && last.off + last.len == from)
      {
        last.len += size - from;
        return;
      }
    }
    impl_.ops.push_back(Op{OpKind::Text, false, 0, from, size - from});
  }

  bool ReadName(std::uint32_t& pos, std::string_view& name)
  {
    if (!Need(pos, 4))
      return false;
    const std::uint32_t offset = Le32(d_ + pos);
    if (!direct_ && shape != nullptr)
      shape->names.push_back({pos, offset == pos + 4});
    pos += 4;
    if (offset == pos)
    {
      // The name is stored right here: skip it (next offset, hash, count, chars, NUL).
      if (!Need(pos, 8))
        return false;
      const std::uint32_t count = Le16(d_ + pos + 6);
      if (!Need(pos, 8 + 2 * count + 2))
        return false;
      pos += 8 + 2 * count + 2;
    }
    // A name met before is found here, without the call that decodes a new one.
    if (!impl_.names.Find(offset, name) && !impl_.Name(offset, name))
    {
      status = Status::BadData;
      return false;
    }
    if (impl_.namesHaveControls)
      NoteControls(name);
    return true;
  }

  void Element(std::uint32_t& pos, std::uint32_t parent, int depth)
  {
    if (depth > kMaxElementDepth)
    {
      status = Status::TooDeep;
      return;
    }
    if (!Need(pos, 9))
      return;
    const bool hasAttributes = (d_[pos] & 0x40) != 0;
    // Elements in template definitions carry a 16-bit dependency id after the token; those in
    // plain fragments (nested binary XML values) usually do not. Take the layout whose name
    // offset makes sense: the name right here, or one stored earlier in the chunk.
    auto plausible = [&](std::uint32_t at) {
      if (at + 4 > end_)
        return false;
      const std::uint32_t offset = Le32(d_ + at);
      return offset == at + 4 || offset + 8 <= pos;
    };
    const bool withId = plausible(pos + 7);
    const bool withoutId = plausible(pos + 5);
    const bool hasId = anonymous ? (withId && !withoutId) : (withId || !withoutId);
    if (!direct_ && shape != nullptr)
      shape->elements.push_back({pos, withId, withoutId});
    pos += hasId ? 7 : 5;  // token, [dependency id], data size
    std::string_view name;
    if (!ReadName(pos, name))
      return;
    if (hasAttributes)
    {
      if (!Need(pos, 4))
        return;
      pos += 4;
    }
    const std::uint32_t element = NewNode(MakeNode(NodeKind::Element, name));
    Link(parent, element);
    const auto opStart = static_cast<std::uint32_t>(impl_.ops.size());
    const auto textStart = static_cast<std::uint32_t>(text_.size());
    {
      const auto from = static_cast<std::uint32_t>(text_.size());
      AppendTag(NameTable::OpenTag(name));
      EmitAppended(from);
    }
    if (hasAttributes)
    {
      std::uint32_t lastAttribute = kNone;
      while (status == Status::Ok && Need(pos, 1) && (d_[pos] & 0xbf) == 0x06)
      {
        ++pos;
        std::string_view attributeName;
        if (!ReadName(pos, attributeName))
          return;
        const std::uint32_t attribute =
          NewNode(MakeNode(NodeKind::Attribute, attributeName));
        if (BuildsTree() && lastAttribute == kNone)
          impl_.tnodes[element].firstAttribute = attribute;
        else if (BuildsTree())
          impl_.tnodes[lastAttribute].nextSibling = attribute;
        lastAttribute = attribute;
        const auto from = static_cast<std::uint32_t>(text_.size());
        AppendTag(NameTable::AttributeTag(attributeName));
        const auto startOp = static_cast<std::uint32_t>(impl_.ops.size());
        if (!direct_)
          impl_.ops.push_back(Op{OpKind::AttrStart, false, 0, from,
                                 static_cast<std::uint32_t>(text_.size()) - from});
        bool onlySubstitutions = true;
        bool anyOptional = false;
        while (status == Status::Ok && Need(pos, 1) && IsValueToken(d_[pos]))
        {
          const std::uint8_t token = d_[pos];
          if (token == 0x0d || token == 0x0e)
            anyOptional |= token == 0x0e;
          else
            onlySubstitutions = false;
          ValuePart(pos, attribute);
        }
        if (status != Status::Ok)
          return;
        const bool optional = onlySubstitutions && anyOptional;
        if (BuildsTree())
          impl_.tnodes[attribute].optional = optional;
        // An attribute that always shows is plain text around its values.
        if (optional)
        {
          impl_.ops[startOp].optional = true;
          impl_.ops.push_back(Op{OpKind::AttrEnd, true, 0, 0, 0});
        }
        else
        {
          if (!direct_)
            impl_.ops[startOp].kind = OpKind::Text;
          Emit("'");
        }
      }
      if (status != Status::Ok)
        return;
    }
    if (!Need(pos, 1))
      return;
    const std::uint8_t close = d_[pos++];
    if (close == 0x03)
    {
      Emit("/>");
      return;
    }
    if (close != 0x02)
    {
      status = Status::BadData;
      return;
    }
    // The '>' is written into the text too: when the content turns out to be fixed, the op
    // becomes that text, adjoining the text around it.
    if (!direct_)
      impl_.ops.push_back(Op{OpKind::OpenContent, false, 0, static_cast<std::uint32_t>(text_.size()), 1});
    text_ += '>';
    const std::size_t contentStart = text_.size();
    // Substitutions directly in the content decide whether the element is shown, and how often.
    // This element's content substitutions: substs_[substsBegin, end) (nested elements push
    // theirs above and take them off again).
    const std::size_t substsBegin = substs_.size();
    while (status == Status::Ok && Need(pos, 1))
    {
      const std::uint8_t token = d_[pos];
      const std::uint8_t base = token & 0xbf;
      if (token == 0x04)
      {
        ++pos;
        if (direct_ && text_.size() == contentStart)
        {
          // Nothing inside: "<name/>", as the fused form gives.
          text_.back() = '/';
          text_ += '>';
          return;
        }
        if (direct_)
        {
          AppendTag(NameTable::CloseTag(name));
          return;
        }
        const auto from = static_cast<std::uint32_t>(text_.size());
        AppendTag(NameTable::CloseTag(name));
        impl_.ops.push_back(Op{OpKind::Close, false, 0, from,
                               static_cast<std::uint32_t>(text_.size()) - from});
        if (substs_.size() > substsBegin)
        {
          const auto begin = static_cast<std::uint32_t>(impl_.elementSubsts.size());
          impl_.elementSubsts.insert(impl_.elementSubsts.end(),
                                     substs_.begin() + static_cast<std::ptrdiff_t>(substsBegin), substs_.end());
          substs_.resize(substsBegin);
          InsertElementStart(opStart, textStart, begin);
        }
        return;
      }
      if (base == 0x01)
        Element(pos, element, depth + 1);
      else if (IsValueToken(token))
      {
        if ((token == 0x0d || token == 0x0e) && pos <= end_ && end_ - pos >= 4)
          substs_.push_back(Le16(d_ + pos + 1) | (token == 0x0e ? kOptionalSubst : 0u));
        ValuePart(pos, element);
      }
      else if (base == 0x07)
        CData(pos, element);
      else if (token == 0x0a)
        Pi(pos, element);
      else
        status = Status::BadData;
    }
  }

  // Puts an ElementStart op in front of the element whose ops begin at `opStart` and whose
  // text begins at `textStart`; its substitutions are elementSubsts[substsBegin, end).
  void InsertElementStart(std::uint32_t opStart, std::uint32_t textStart,
                          std::uint32_t substsBegin)
  {
    std::vector<Op>& ops = impl_.ops;
    // The element's "<name" may have been merged into the text op before it: split it off.
    if (opStart > opsBegun_ && ops[opStart - 1].kind == OpKind::Text &&
        ops[opStart - 1].off + ops[opStart - 1].len > textStart)
    {
      Op& before = ops[opStart - 1];
      const Op own{OpKind::Text, false, 0, textStart, before.off + before.len - textStart};
      before.len = textStart - before.off;
      ops.insert(ops.begin() + opStart, own);
    }
    const auto count = static_cast<std::uint32_t>(impl_.elementSubsts.size()) - substsBegin;
    if (count > 0xffff)
    {
      status = Status::BadData;
      return;
    }
    const Op start{OpKind::ElementStart, false, static_cast<std::uint16_t>(count), substsBegin,
                   static_cast<std::uint32_t>(ops.size()) - opStart};
    ops.insert(ops.begin() + opStart, start);
  }

  static bool IsValueToken(std::uint8_t token)
  {
    const std::uint8_t base = token & 0xbf;
    return base == 0x05 || token == 0x0d || token == 0x0e || base == 0x08 || base == 0x09;
  }

  // Literal text with line breaks or with controls XML forbids is rewritten after rendering
  // in one-line output (Chunk::Impl::Run).
  // The text is checked as written (UTF-8: a byte below 0x20 is that control), eight bytes at
  // a time, as literal text rarely holds any.
  void NoteLineBreaks(std::size_t from, std::size_t to)
  {
    constexpr std::uint64_t kOnes = 0x0101010101010101ull, kHighs = 0x8080808080808080ull;
    const char* text = text_.data();
    std::size_t at = from;
    for (; at + 8 <= to; at += 8)
    {
      const std::uint64_t block = Le64(reinterpret_cast<const std::uint8_t*>(text) + at);
      if (((block - 0x20 * kOnes) & ~block & kHighs) != 0)
        break;
    }
    for (; at < to; ++at)
    {
      const auto c = static_cast<unsigned char>(text[at]);
      if (c < 0x20 && c != '\t')
      {
        if (c == '\r' || c == '\n')
          lineBreaks = true;
        else
          controls = true;
      }
    }
  }

  void NoteControls(std::string_view name)
  {
    for (const char c : name)
    {
      const auto u = static_cast<unsigned char>(c);
      if (u < 0x20 && u != '\t' && u != '\n' && u != '\r')
        controls = true;
    }
  }

  void ValuePart(std::uint32_t& pos, std::uint32_t parent)
  {
    const std::uint8_t token = d_[pos];
    const std::uint8_t base = token & 0xbf;
    if (base == 0x05)
    {
      if (!Need(pos, 4))
        return;
      if (d_[pos + 1] != static_cast<std::uint8_t>(ValueType::String))
      {
        status = Status::BadData;
        return;
      }
      const std::uint32_t units = Le16(d_ + pos + 2);
      if (!Need(pos + 4, 2 * units))
        return;
      const std::uint8_t* chars = d_ + pos + 4;
      const std::size_t from = text_.size();
      // Trailing NULs are dropped, as for string values.
      std::uint32_t shown = units;
      while (shown > 0 && Le16(chars + 2 * std::size_t(shown - 1)) == 0)
        --shown;
      AppendUtf16(text_, chars, shown, TextEscape::Xml);
      NoteLineBreaks(from, text_.size());
      EmitAppended(static_cast<std::uint32_t>(from));
      Link(parent, NewNode(MakeNode(NodeKind::Value, {},
                                    Value{static_cast<std::uint8_t>(ValueType::String), chars,
                                          2 * units})));
      pos += 4 + 2 * units;
    }
    else if (token == 0x0d || token == 0x0e)
    {
      if (!Need(pos, 4))
        return;
      if (direct_)
      {
        // A substitution needs the compiled form.
        status = Status::BadData;
        return;
      }
      const std::uint16_t index = Le16(d_ + pos + 1);
      const std::uint8_t type = d_[pos + 3];
      impl_.ops.push_back(Op{OpKind::Subst, token == 0x0e, index, 0, 0});
      TNode node = MakeNode(NodeKind::Value, {}, Value{type, nullptr, 0});
      node.isSubst = true;
      node.optional = token == 0x0e;
      node.subst = index;
      Link(parent, NewNode(node));
      pos += 4;
    }
    else if (base == 0x08)
    {
      if (!Need(pos, 3))
        return;
      const std::uint16_t code = Le16(d_ + pos + 1);
      // "&#" and ';' around the code, written in one piece.
      char reference[32] = {'&', '#'};
      char* end = std::to_chars(reference + 2, reference + sizeof reference - 1, code).ptr;
      *end++ = ';';
      const auto from = static_cast<std::uint32_t>(text_.size());
      text_.append(reference, end);
      EmitAppended(from);
      TNode node = MakeNode(NodeKind::CharRef);
      node.charRef = code;
      Link(parent, NewNode(node));
      pos += 3;
    }
    else
    {
      ++pos;
      std::string_view name;
      if (!ReadName(pos, name))
        return;
      const auto from = static_cast<std::uint32_t>(text_.size());
      text_ += '&';
      text_.append(name);
      text_ += ';';
      EmitAppended(from);
      Link(parent, NewNode(MakeNode(NodeKind::EntityRef, name)));
    }
  }

  void CData(std::uint32_t& pos, std::uint32_t parent)
  {
    if (!Need(pos, 3))
      return;
    const std::uint32_t units = Le16(d_ + pos + 1);
    if (!Need(pos + 3, 2 * units))
      return;
    const std::uint8_t* chars = d_ + pos + 3;
    const std::size_t from = text_.size();
    text_ += "<![CDATA[";
    AppendUtf16(text_, chars, units, TextEscape::None);
    NoteLineBreaks(from, text_.size());
    text_ += "]]>";
    EmitAppended(static_cast<std::uint32_t>(from));
    Link(parent, NewNode(MakeNode(NodeKind::CData, {},
                                  Value{static_cast<std::uint8_t>(ValueType::String), chars,
                                        2 * units})));
    pos += 3 + 2 * units;
  }

  void Pi(std::uint32_t& pos, std::uint32_t parent)
  {
    ++pos;
    std::string_view target;
    if (!ReadName(pos, target))
      return;
    if (!Need(pos, 3))
      return;
    if (d_[pos] != 0x0b)
    {
      status = Status::BadData;
      return;
    }
    const std::uint32_t units = Le16(d_ + pos + 1);
    if (!Need(pos + 3, 2 * units))
      return;
    const std::uint8_t* chars = d_ + pos + 3;
    const auto from = static_cast<std::uint32_t>(text_.size());
    text_ += "<?";
    text_.append(target);
    if (units > 0)
    {
      text_ += ' ';
      const std::size_t data = text_.size();
      AppendUtf16(text_, chars, units, TextEscape::None);
      NoteLineBreaks(data, text_.size());
    }
    text_ += "?>";
    EmitAppended(from);
    Link(parent, NewNode(MakeNode(NodeKind::PI, target,
                                  Value{static_cast<std::uint8_t>(ValueType::String), chars,
                                        2 * units})));
    pos += 3 + 2 * units;
  }

  Chunk::Impl& impl_;
  const std::uint8_t* d_;
  std::uint32_t end_;
  Text& text_;
  // Rendering straight into the output: no ops, no tree, no shape (known when compiling, so
  // that the renderer's copy of this class carries none of their code).
  static constexpr bool direct_ = std::is_same_v<Text, TextBuffer>;
  std::vector<std::uint32_t> substs_;

public:
  std::size_t opsBegun_ = 0;
};
// Rewrites a compiled template's ops for rendering: what needs no decision at render time
// (elements whose content is fixed text) becomes text, and each run of text becomes the
// prefix of the op after it.
class Fuser
{
public:
  explicit Fuser(Chunk::Impl& impl) : impl_(impl), ops_(impl.ops) {}

  void Run(std::uint32_t begin)
  {
    FoldStatic(begin);
    JoinSubstitutions(begin);
    std::vector<Op> fused;
    fused.reserve(ops_.size() - begin);
    Fuse(begin, static_cast<std::uint32_t>(ops_.size()), fused);
    ops_.resize(begin);
    ops_.insert(ops_.end(), fused.begin(), fused.end());
  }

private:
  Op TextOp(std::string_view piece) const
  {
    Op op;
    op.off = static_cast<std::uint32_t>(impl_.text.size());
    op.len = static_cast<std::uint32_t>(piece.size());
    impl_.text.append(piece);
    return op;
  }

  void FoldStatic(std::uint32_t begin)
  {
    // Per open element: its OpenContent op, whether its content holds an op that is not text,
    // and whether it holds any text.
    struct Open
    {
      std::uint32_t op;
      bool dynamic;
      bool text;
    };
    std::vector<Open> opened;
    for (auto i = begin; i < ops_.size(); ++i)
    {
      const Op& op = ops_[i];
      if (op.kind == OpKind::OpenContent)
      {
        opened.push_back({i, false, false});
      }
      else if (op.kind == OpKind::Close && !opened.empty())
      {
        const Open element = opened.back();
        opened.pop_back();
        // A child that keeps its ops makes its parent's content dynamic too.
        if (element.dynamic && !opened.empty())
          opened.back().dynamic = true;
        if (element.dynamic)
          continue;
        // Fixed content: "<name>text</name>"; none at all: "<name/>".
        if (!element.text)
        {
          ops_[element.op] = TextOp({});
          ops_[i] = TextOp("/>");
        }
        else
        {
          ops_[element.op].kind = OpKind::Text;
          ops_[i].kind = OpKind::Text;
        }
      }
      else if (!opened.empty())
      {
        if (op.kind != OpKind::Text)
          opened.back().dynamic = true;
        else if (op.len != 0)
          opened.back().text = true;
      }
    }
  }

  // One op for the two common shapes around a substitution: an element whose content is
  // only it, and an optional attribute that is only it. The ops joined become empty text.
  void JoinSubstitutions(std::uint32_t begin)
  {
    for (auto i = begin; i + 2 < ops_.size(); ++i)
    {
      Op& first = ops_[i];
      const Op& subst = ops_[i + 1];
      const Op& last = ops_[i + 2];
      if (subst.kind != OpKind::Subst)
        continue;
      if (first.kind == OpKind::OpenContent && last.kind == OpKind::Close)
      {
        // The OpenContent's '>' stays as text, and so becomes the end of the prefix.
        first.kind = OpKind::Text;
        ops_[i + 1] = Op{OpKind::ContentSubst, subst.optional, subst.subst, last.off, last.len};
        ops_[i + 2] = Op{};
        i += 2;
        continue;
      }
      else if (first.kind == OpKind::AttrStart && first.optional && last.kind == OpKind::AttrEnd)
      {
        first.kind = OpKind::AttrSubst;
        first.subst = subst.subst;
      }
      else
      {
        continue;
      }
      ops_[i + 1] = Op{};
      ops_[i + 2] = Op{};
      i += 2;
    }
  }

  // Appends the fused form of ops [begin, end) to out; an element's range is fused on its own,
  // so that its ElementStart still covers exactly its ops.
  void Fuse(std::uint32_t begin, std::uint32_t end, std::vector<Op>& out)
  {
    Pending pending;
    for (std::uint32_t i = begin; i < end; ++i)
    {
      Op op = ops_[i];
      if (op.kind == OpKind::Text)
      {
        Add(pending, op);
        continue;
      }
      SetPrefix(op, pending);
      out.push_back(op);
      if (op.kind == OpKind::ElementStart)
      {
        const std::size_t at = out.size() - 1;
        const std::uint32_t last = std::min(end, i + 1 + op.len);
        Fuse(i + 1, last, out);
        out[at].len = static_cast<std::uint32_t>(out.size() - at - 1);
        MarkElementSubst(out, at);
        i = last - 1;
      }
    }
    if (pending.len != 0)
    {
      Op text;
      SetPrefix(text, pending);
      out.push_back(text);
    }
  }

  // An element that is only its one content substitution (no text after it either) renders
  // in one dispatch: ElementStart becomes ElementSubst.
  void MarkElementSubst(std::vector<Op>& out, std::size_t at) const
  {
    Op& start = out[at];
    if (start.subst != 1 || start.len != 1)
      return;
    const Op& content = out[at + 1];
    if (content.kind == OpKind::ContentSubst &&
        content.subst == (impl_.elementSubsts[start.off] & 0xffffu))
      start.kind = OpKind::ElementSubst;
  }

  // Text gathered for the next op's prefix: a piece of impl_.text. Pieces that do not adjoin
  // there are gathered at its end.
  struct Pending
  {
    std::uint32_t off = 0;
    std::uint32_t len = 0;
  };

  void Add(Pending& pending, const Op& piece) const
  {
    if (piece.len == 0)
      return;
    if (pending.len == 0)
    {
      pending = {piece.off, piece.len};
      return;
    }
    if (pending.off + pending.len == piece.off)
    {
      pending.len += piece.len;
      return;
    }
    std::string& text = impl_.text;
    if (pending.off + pending.len != text.size())
    {
      const auto moved = static_cast<std::uint32_t>(text.size());
      text.append(text, pending.off, pending.len);
      pending.off = moved;
    }
    text.append(text, piece.off, piece.len);
    pending.len += piece.len;
  }

  static void SetPrefix(Op& op, Pending& pending)
  {
    op.pre = pending.off;
    op.preLen = pending.len;
    pending = {};
  }

  Chunk::Impl& impl_;
  std::vector<Op>& ops_;
};
} // namespace

void CompileTemplate(Chunk::Impl& impl, std::uint32_t begin, std::uint32_t end, bool anonymous,
                     bool tree, Compiled& out, TemplateShape* shape)
{
  Compiler<std::string> compiler(impl, end);
  compiler.anonymous = anonymous;
  compiler.tree = tree;
  compiler.shape = shape;
  out.hasTree = tree;
  out.tables = &impl.own;
  compiler.opsBegun_ = impl.ops.size();
  out.opBegin = static_cast<std::uint32_t>(impl.ops.size());
  out.root = compiler.NewNode(TNode{});
  compiler.Fragment(begin, out.root);
  Fuser(impl).Run(out.opBegin);
  out.opEnd = static_cast<std::uint32_t>(impl.ops.size());
  // The renderer's padded appends read this far past any piece of the text.
  impl.text.append(kCopySlack, '\0');
  out.status = compiler.status;
  out.lineBreaks = compiler.lineBreaks;
  out.controls = compiler.controls;
}

bool RenderPlainFragment(Chunk::Impl& impl, std::uint32_t begin, std::uint32_t end,
                         TextBuffer& out, bool& lineBreaks, bool& controls)
{
  Compiler<TextBuffer> compiler(impl, end, out);
  compiler.anonymous = true;
  compiler.tree = false;
  compiler.Fragment(begin, kNone);
  lineBreaks = compiler.lineBreaks;
  controls = compiler.controls;
  return compiler.status == Status::Ok;
}
} // namespace evtx::detail
