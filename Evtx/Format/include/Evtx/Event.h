// The decoded event of one record as a tree of nodes, with template instances expanded and
// substitution values kept typed (raw type code and bytes). Built by Chunk::Decode without
// rendering any XML; nodes live in one vector that is reused from record to record.
//
//   evtx::EventTree tree;                 // keep it and reuse it
//   chunk->Decode(record, tree);
//   evtx::SystemValues sys; tree.System(sys);
//   for (std::uint32_t d = tree.FirstChild(tree.EventData()); d != evtx::kNoNode;
//        d = tree[d].nextSibling) { ... tree.Attribute(d, "Name") ... tree.TextValue(d) ... }
//
// Names and values point into the chunk: keep the chunk alive while the tree is used.
#pragma once

#include "Evtx/Types.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace evtx
{
inline constexpr std::uint32_t kNoNode = 0xffffffffu;

enum class NodeKind : std::uint8_t
{
  Element,    // name; attributes via firstAttribute; content via firstChild
  Attribute,  // name; its value parts are its children (Value, CharRef, EntityRef)
  Value,      // value: literal text (String) or a substitution of any type; a BinXml value has
              // the elements of the nested fragment as children
  CData,      // value: UTF-16 text
  CharRef,    // charRef
  EntityRef,  // name
  PI,         // name = target, value = data (UTF-16)
};

struct Node
{
  NodeKind kind = NodeKind::Element;
  bool substituted = false;      // the value came from a substitution
  std::uint16_t charRef = 0;
  std::uint32_t parent = kNoNode;
  std::uint32_t firstChild = kNoNode;
  std::uint32_t lastChild = kNoNode;
  std::uint32_t nextSibling = kNoNode;
  std::uint32_t firstAttribute = kNoNode;
  std::string_view name;         // UTF-8
  Value value;
};

// The usual System values, found without rendering. Text values stay typed views.
struct SystemValues
{
  Value providerName;             // Provider/@Name
  Value providerGuid;             // Provider/@Guid
  Value eventSourceName;          // Provider/@EventSourceName
  std::optional<std::uint32_t> eventId;
  std::optional<std::uint32_t> qualifiers;  // EventID/@Qualifiers
  std::optional<std::uint32_t> version;
  std::optional<std::uint32_t> level;
  std::optional<std::uint32_t> task;
  std::optional<std::uint32_t> opcode;
  std::optional<std::uint64_t> keywords;
  std::optional<std::uint64_t> timeCreated;  // TimeCreated/@SystemTime as FILETIME
  std::optional<std::uint64_t> recordId;     // EventRecordID
  Value activityId;               // Correlation/@ActivityID
  Value relatedActivityId;        // Correlation/@RelatedActivityID
  std::optional<std::uint32_t> processId;    // Execution/@ProcessID
  std::optional<std::uint32_t> threadId;     // Execution/@ThreadID
  Value channel;
  Value computer;
  Value userId;                   // Security/@UserID (a Sid value, or text)
};

class EventTree
{
public:
  void Clear() noexcept { nodes_.clear(); }
  bool Empty() const noexcept { return nodes_.empty(); }
  std::size_t Size() const noexcept { return nodes_.size(); }
  const Node& operator[](std::uint32_t index) const noexcept { return nodes_[index]; }

  // The document element ("Event"), or kNoNode.
  std::uint32_t Root() const noexcept;
  // First child of any kind, or kNoNode.
  std::uint32_t FirstChild(std::uint32_t node) const noexcept;
  // First element child named `name`, or kNoNode.
  std::uint32_t Child(std::uint32_t element, std::string_view name) const noexcept;
  // Attribute named `name`, or kNoNode.
  std::uint32_t Attribute(std::uint32_t element, std::string_view name) const noexcept;
  // The single typed value of an element's content or an attribute, when it has exactly one
  // Value part; otherwise a null Value (use Text for mixed content).
  Value TextValue(std::uint32_t node) const noexcept;
  // The text content (element: all descendants' text; attribute: its value), UTF-8, unescaped.
  std::string Text(std::uint32_t node) const;
  void AppendText(std::uint32_t node, std::string& out) const;

  // Event/System, Event/EventData, Event/UserData; kNoNode when absent.
  std::uint32_t System() const noexcept;
  std::uint32_t EventData() const noexcept;
  std::uint32_t UserData() const noexcept;
  // Fills the usual System values.
  void System(SystemValues& out) const;

  // Building (used by the decoder).
  std::uint32_t Add(const Node& node, std::uint32_t parent);
  std::uint32_t AddAttribute(const Node& node, std::uint32_t element);
  Node& At(std::uint32_t index) noexcept { return nodes_[index]; }

private:
  std::vector<Node> nodes_;
};
} // namespace evtx
