// Internals of Chunk: the per-chunk name and template caches, the compiled template form, and
// the two interpreters over it (rendering to XML text, instantiating into an EventTree).
//
// A template is compiled once per chunk into
//   - ops: pre-rendered XML text (names, literal text, quotes, brackets) interleaved with
//     substitution slots, so rendering a record is mostly memcpy plus value formatting;
//   - tnodes: the template's node tree, copied into an EventTree with values filled in.
// Everything is indexed by offsets, never pointers, because nested templates may be compiled
// (and the vectors grow) in the middle of a render.
#pragma once

#include "Evtx/Chunk.h"
#include "Evtx/Event.h"
#include "Evtx/TemplateCache.h"
#include "Evtx/ValueText.h"
#include "Bytes.h"
#include "NameTable.h"
#include "TextBuffer.h"

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace evtx::detail
{
inline constexpr int kMaxElementDepth = 64;
inline constexpr int kMaxFragmentDepth = 12;
// Output operations allowed per record (far above any real event).
inline constexpr std::uint64_t kRecordBudget = 1u << 20;
// Rendered bytes allowed per record, for the same reason.
inline constexpr std::size_t kRecordOutputLimit = 32u << 20;
inline constexpr std::uint32_t kNone = 0xffffffffu;

// Every op first appends its literal prefix text[pre, pre+preLen) (the template text before
// it), then does its own part; a template's ops are fused so, after static parts are folded
// into text, to take one dispatch per dynamic step rather than one per piece of text.
enum class OpKind : std::uint8_t
{
  Text,         // nothing beyond the prefix (while compiling: append text[off, off+len))
  OpenContent,  // append '>' and remember where the content starts
  Close,        // "</name>" from text, or turn the '>' into "/>" when the content is empty
  // An attribute made only of optional substitutions, omitted when all of them are NULL (an
  // attribute that always shows is plain text):
  AttrStart,    // append " name='" from text
  AttrEnd,      // append the closing quote, or drop the attribute
  Subst,        // append substitution `subst`
  // Start of an element with substitutions in its content; the element's ops are the next
  // `len`. Its substitutions are elementSubsts[off, off+subst) (index, kOptionalSubst when
  // optional). An optional one that is null drops the element; an array value repeats it once
  // per item.
  ElementStart,
  // An element's whole content, one substitution: Subst `subst`, Close (text), after the '>'
  // that ends the prefix.
  ContentSubst,
  // An optional attribute made of one substitution: AttrStart (text), Subst `subst`, AttrEnd.
  AttrSubst,
  // An ElementStart whose element is the next op alone, a ContentSubst of its one substitution:
  // the most common element by far, rendered with that op in one dispatch.
  ElementSubst,
};
inline constexpr std::uint32_t kOptionalSubst = 0x80000000u;

struct Op
{
  OpKind kind = OpKind::Text;
  bool optional = false;
  std::uint16_t subst = 0;
  std::uint32_t off = 0;
  std::uint32_t len = 0;
  std::uint32_t pre = 0;
  std::uint32_t preLen = 0;
};

struct TNode
{
  NodeKind kind = NodeKind::Element;
  bool isSubst = false;
  bool optional = false;     // optional substitution; on an attribute: omit when all parts null
  std::uint16_t subst = 0;
  std::uint16_t charRef = 0;
  std::uint32_t firstChild = kNone;
  std::uint32_t lastChild = kNone;
  std::uint32_t nextSibling = kNone;
  std::uint32_t firstAttribute = kNone;
  std::string_view name;
  Value value;
};

// A compiled template's tables, never changed once made: the template cache hands the same
// ones to chunks decoding on several threads.
struct TemplateTables
{
  std::vector<Op> ops;
  std::string text;
  std::vector<std::uint32_t> elementSubsts;
};

struct Compiled
{
  Status status = Status::Ok;
  // The tables the ops are in: the chunk's own, or the template cache's (held by the chunk).
  const TemplateTables* tables = nullptr;
  std::uint32_t opBegin = 0;
  std::uint32_t opEnd = 0;
  std::uint32_t root = kNone;  // a nameless element whose children are the fragment's nodes
  bool lineBreaks = false;     // literal text holds CR or LF
  bool controls = false;       // literal text holds controls that XmlOneLine rewrites
  bool hasTree = false;        // root is set: compiled for decoding too
};

// A fragment opened for instantiation: its compiled template and its substitution values,
// described by the instance's descriptors (size and type, 4 bytes each) and located by
// subs[base, base+count) of the chunk's offset stack.
struct OpenedFragment
{
  Compiled compiled;
  const std::uint8_t* descriptors = nullptr;
  std::uint32_t base = 0;
  std::uint32_t count = 0;
};
} // namespace evtx::detail

namespace evtx
{
struct Chunk::Impl
{
  const std::uint8_t* data = nullptr;
  // Templates compiled by other chunks of the same reader (none: compile every one here).
  std::shared_ptr<TemplateCache> shared;
  // The templates compiled here; a template's ops find their tables through Compiled::tables.
  detail::TemplateTables own;
  std::vector<detail::Op>& ops = own.ops;
  std::string& text = own.text;
  std::vector<std::uint32_t>& elementSubsts = own.elementSubsts;
  std::vector<detail::TNode> tnodes;
  std::vector<detail::Compiled> compiled;
  std::unordered_map<std::uint32_t, std::uint32_t> templateIndex;
  // The template cache's tables this chunk's templates use, kept while the chunk is loaded.
  std::vector<std::shared_ptr<const detail::TemplateTables>> sharedTables;
  // The templates looked up last, by key, in front of templateIndex: a chunk's records use
  // few templates, and every record looks its own up.
  struct RecentTemplate
  {
    std::uint32_t key = detail::kNone;
    std::uint32_t index = 0;
  };
  std::array<RecentTemplate, 16> recentTemplates;
  detail::NameTable names;
  // Where a name is decoded before the table keeps it.
  std::string nameText;
  // Some name holds a control that one-line XML rewrites (rare: templates check only then).
  bool namesHaveControls = false;
  // Chunk offsets of the open fragments' substitution values: only these are worked out when
  // a fragment opens; a value is made from its descriptor when it is used.
  std::vector<std::uint32_t> subs;
  // The stack's top: subs only grows, so that opening a fragment writes no zeros.
  std::uint32_t subsTop = 0;
  // Work left for the record being decoded: a template may use a nested fragment many times,
  // so nesting alone does not bound the work on hostile input.
  std::uint64_t budget = 0;
  std::size_t outputLimit = 0;

  void Reset(const std::uint8_t* chunkData);

  // Name at a chunk offset (UTF-8), decoded once; false when it lies outside the chunk. Its
  // tags are NameTable's.
  bool Name(std::uint32_t offset, std::string_view& out);
  // Compiled template for a definition offset, or for an element fragment starting at `offset`
  // (anonymous = true, ending at `end`). Compiles on first use, and again with its node tree
  // the first time `tree` asks for it. The reference is valid until the next call.
  const detail::Compiled& Get(std::uint32_t offset, std::uint32_t end, bool anonymous, bool tree);
  Status Open(std::uint32_t begin, std::uint32_t end, bool tree, detail::OpenedFragment& out);

  Status RenderFragment(std::uint32_t begin, std::uint32_t end, detail::TextBuffer& out,
                        TextEscape escape, int depth);
  Status DecodeFragment(std::uint32_t begin, std::uint32_t end, EventTree& tree,
                        std::uint32_t parent, int depth);

private:
  // While an element is repeated for the items of an array, substitution `subst` stands for
  // the current item.
  struct Item
  {
    std::uint32_t subst = detail::kNone;
    Value value;
  };
  // Repeating: an element is being repeated, so `item` may stand for the substitution.
  template <bool Repeating = true>
  Value Substitution(const detail::OpenedFragment& fragment, std::uint32_t index,
                     const Item& item) const noexcept
  {
    if (Repeating && index == item.subst)
      return item.value;
    if (index >= fragment.count)
      return Value{};
    const std::uint8_t* descriptor = fragment.descriptors + 4 * std::size_t(index);
    return Value{descriptor[2], data + subs[fragment.base + index], detail::Le16(descriptor)};
  }
  Status Run(const detail::OpenedFragment& fragment, detail::TextBuffer& out, TextEscape escape,
             int depth);
  // One-line output: rewrites what was rendered from `from` on when its literal text holds
  // line breaks or controls XML forbids.
  static void RewriteOneLine(detail::TextBuffer& out, std::size_t from, bool lineBreaks, bool controls);
  // Appends a substitution's value (nothing for a NULL one). Inlined, so that a value costs the
  // renderer one call, into the formatter.
  [[gnu::always_inline]] inline Status AppendSubstitution(const Value& value, detail::TextBuffer& out,
                                                          TextEscape escape, int depth);
  // The part of a ContentSubst op after its prefix (which ends with the start tag's '>'): the
  // value, and the closing text closeText[closeOff, closeOff+closeLen) (or "/>" when the value shows
  // nothing). Inlined: it runs for most values of a record.
  [[gnu::always_inline]] inline Status AppendContent(const std::string& closeText, std::uint32_t closeOff,
                                                     std::uint32_t closeLen, const Value& value,
                                                     detail::TextBuffer& out,
                                                     TextEscape escape, int depth);
  // Runs ops [first, first+count), an element, once per item of an array substitution.
  Status RepeatElement(const detail::OpenedFragment& fragment, std::uint32_t first,
                       std::uint32_t count, std::uint32_t arraySubst, const Value& array,
                       detail::TextBuffer& out, TextEscape escape, int depth);
  // A nested binary XML value, rendered in place; out of line so that plain values, by far
  // the most, do not pay for the register saves of a nested render.
  [[gnu::noinline]] Status AppendFragmentValue(const Value& value, detail::TextBuffer& out,
                                               TextEscape escape, int depth);
  // Repeating: run for one item of an array (item is set), else for the fragment itself.
  template <bool Repeating>
  Status RunOps(const detail::OpenedFragment& fragment, std::uint32_t begin, std::uint32_t end,
                detail::TextBuffer& out, TextEscape escape, int depth, const Item& item);
  Status Instantiate(std::uint32_t tnode, const detail::OpenedFragment& fragment,
                     EventTree& tree, std::uint32_t parent, int depth, const Item& item);
  Status InstantiateElement(const detail::TNode& tnode, const detail::OpenedFragment& fragment,
                            EventTree& tree, std::uint32_t parent, int depth, const Item& item);
};

namespace detail
{
struct TemplateShape;
// Compiles the binary XML in [begin, end) of the chunk into impl's ops/tnodes.
// anonymous: a plain fragment rather than a template definition (element layout differs).
// tree: build the node tree too (for decoding), not only the ops (for rendering).
// shape: when set, receives what the compile read beyond [begin, end) (see TemplateCache).
void CompileTemplate(Chunk::Impl& impl, std::uint32_t begin, std::uint32_t end, bool anonymous,
                     bool tree, Compiled& out, TemplateShape* shape = nullptr);
// Appends a plain fragment (no substitutions) as Run would after compiling it, before the
// one-line rewrite, which lineBreaks and controls call for; false (with some text appended)
// when the fragment needs the compiled form or does not parse.
bool RenderPlainFragment(Chunk::Impl& impl, std::uint32_t begin, std::uint32_t end,
                         TextBuffer& out, bool& lineBreaks, bool& controls);
} // namespace detail
} // namespace evtx
