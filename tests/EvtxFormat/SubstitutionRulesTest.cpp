// Optional substitutions and array values in element content, on hand-built binary XML: one
// chunk holding one record whose template and values each test spells out. Both renderers
// (compiled template and decoded tree) and the decoded tree itself must follow the rules.
#include "Evtx/Chunk.h"
#include "Evtx/Event.h"
#include "Evtx/Render.h"
#include "Evtx/ValueText.h"
#include "Evtx/Writer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{
using evtx::BinXmlBuilder;
using evtx::ValueType;
using evtx::WriterValue;

constexpr std::uint32_t kRecordAt = 512;
constexpr std::uint32_t kInstanceHeader = 24 + 4 + 10;  // record header, fragment header, 0x0c
constexpr std::uint32_t kBodyAt = kRecordAt + kInstanceHeader + 24;  // after the definition header

void Put(std::vector<std::uint8_t>& out, std::size_t at, std::uint64_t v, int bytes)
{
  for (int i = 0; i < bytes; ++i)
    out[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

WriterValue Typed(ValueType type, std::vector<std::uint8_t> bytes)
{
  return WriterValue{static_cast<std::uint8_t>(type), std::move(bytes)};
}

WriterValue Raw(std::uint8_t type, std::vector<std::uint8_t> bytes)
{
  return WriterValue{type, std::move(bytes)};
}

// A chunk with one record: a template instance whose definition (built by `body` for its
// chunk offset) is stored inline, and `values` as its substitutions.
class OneRecord
{
public:
  OneRecord(const std::function<void(BinXmlBuilder&)>& body, const std::vector<WriterValue>& values)
  {
    BinXmlBuilder b(kBodyAt);
    b.FragmentHeader();
    body(b);
    b.End();
    const std::vector<std::uint8_t>& template_ = b.Bytes();

    std::vector<std::uint8_t> record(kInstanceHeader + 24, 0);
    Put(record, 0, 0x2a2a, 4);
    Put(record, 8, 1, 8);  // record id
    record[24] = 0x0f, record[25] = 0x01, record[26] = 0x01;
    record[28] = 0x0c, record[29] = 0x01;
    Put(record, 30, 1, 4);                         // template id
    Put(record, 34, kRecordAt + kInstanceHeader, 4);  // definition right here
    Put(record, kInstanceHeader + 4, 1, 4);        // "GUID"
    Put(record, kInstanceHeader + 20, template_.size(), 4);
    record.insert(record.end(), template_.begin(), template_.end());
    const std::size_t countAt = record.size();
    record.resize(countAt + 4 + 4 * values.size(), 0);
    Put(record, countAt, values.size(), 4);
    for (std::size_t i = 0; i < values.size(); ++i)
    {
      Put(record, countAt + 4 + 4 * i, values[i].bytes.size(), 2);
      record[countAt + 4 + 4 * i + 2] = values[i].type;
      record.insert(record.end(), values[i].bytes.begin(), values[i].bytes.end());
    }
    record.resize((record.size() + 4 + 7) / 8 * 8, 0);
    Put(record, 4, record.size(), 4);
    Put(record, record.size() - 4, record.size(), 4);

    std::vector<std::uint8_t> chunk(evtx::kChunkSize, 0);
    std::memcpy(chunk.data(), "ElfChnk", 8);
    Put(chunk, 40, 128, 4);
    Put(chunk, 48, kRecordAt + record.size(), 4);  // free space offset
    std::memcpy(chunk.data() + kRecordAt, record.data(), record.size());
    loaded_ = chunk_.Load(chunk.data(), chunk.size());
  }

  ::testing::AssertionResult Loaded() const
  {
    if (loaded_ != evtx::Status::Ok || chunk_.Records().size() != 1)
      return ::testing::AssertionFailure() << "chunk did not load one record";
    return ::testing::AssertionSuccess();
  }

  // The compiled rendering, checked to be equal to the rendering of the decoded tree.
  std::string Xml()
  {
    std::string fast;
    EXPECT_EQ(chunk_.RenderXml(chunk_.Records()[0], fast), evtx::Status::Ok);
    EXPECT_EQ(chunk_.Decode(chunk_.Records()[0], tree), evtx::Status::Ok);
    std::string slow;
    evtx::RenderTree(tree, slow);
    EXPECT_EQ(fast, slow);
    return fast;
  }

  // Names and texts of the root's element children in the decoded tree.
  std::vector<std::string> Children()
  {
    Xml();
    std::vector<std::string> out;
    for (std::uint32_t c = tree.FirstChild(tree.Root()); c != evtx::kNoNode; c = tree[c].nextSibling)
      if (tree[c].kind == evtx::NodeKind::Element)
        out.push_back(std::string(tree[c].name) + "=" + tree.Text(c));
    return out;
  }

  evtx::EventTree tree;

private:
  evtx::Chunk chunk_;
  evtx::Status loaded_ = evtx::Status::BadData;
};

using Strings = std::vector<std::string>;

TEST(OptionalSubstitution, NullValueOmitsTheEnclosingElement)
{
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("A", false).CloseStart().Substitution(0, ValueType::String, true).EndElement();
    b.OpenElement("B", false).CloseStart().Substitution(1, ValueType::UInt8, true).EndElement();
    b.EndElement();
  }, {WriterValue::Null(), WriterValue::Int(ValueType::UInt8, 5)});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><B>5</B></E>");
  EXPECT_EQ(r.tree.Child(r.tree.Root(), "A"), evtx::kNoNode);
  EXPECT_EQ(r.Children(), (Strings{"B=5"}));
}

TEST(OptionalSubstitution, NonNullValueKeepsTheElement)
{
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("A", false).CloseStart().Substitution(0, ValueType::String, true).EndElement();
    b.EndElement();
  }, {WriterValue::Text("here")});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><A>here</A></E>");
}

TEST(OptionalSubstitution, NullOmitsTheElementWithItsAttributesAndLiteralText)
{
  // Follows a self-closed sibling, whose "/>" the element's "<A" text is merged with.
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("X", false).CloseEmpty();
    b.OpenElement("A", true).Attribute("Name").Text("n").CloseStart();
    b.Text("v=").Substitution(0, ValueType::UInt32, true).EndElement();
    b.OpenElement("Z", false).CloseEmpty();
    b.EndElement();
  }, {WriterValue::Null()});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><X/><Z/></E>");
  EXPECT_EQ(r.Children(), (Strings{"X=", "Z="}));
}

TEST(OptionalSubstitution, OnlyNullTypeCountsAsNull)
{
  // A zero-length Binary is an empty value, not NULL: its element stays (empty).
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("Binary", false).CloseStart().Substitution(0, ValueType::Binary, true).EndElement();
    b.EndElement();
  }, {Typed(ValueType::Binary, {})});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><Binary/></E>");
}

TEST(OptionalSubstitution, NormalSubstitutionKeepsItsElementWhenNull)
{
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("A", false).CloseStart().Substitution(0, ValueType::String, false).EndElement();
    b.EndElement();
  }, {WriterValue::Null()});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><A/></E>");
}

TEST(OptionalSubstitution, NullInAnAttributeOmitsOnlyTheAttribute)
{
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("S", true).Attribute("UserID").Substitution(0, ValueType::Sid, true).CloseEmpty();
    b.EndElement();
  }, {WriterValue::Null()});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><S/></E>");
}

TEST(OptionalSubstitution, TheRecordsOutermostElementStays)
{
  // A damaged record whose values are all NULL still renders as an event.
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("Event", false).CloseStart();
    b.OpenElement("System", false).CloseStart().Substitution(0, ValueType::UInt8, true).EndElement();
    b.Substitution(1, ValueType::BinXml, true);
    b.EndElement();
  }, {WriterValue::Null(), WriterValue::Null()});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<Event/>");
  EXPECT_NE(r.tree.Root(), evtx::kNoNode);
}

TEST(ArrayValue, RepeatsTheEnclosingElementPerItem)
{
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("Data", true).Attribute("Name").Text("n").CloseStart();
    b.Substitution(0, static_cast<ValueType>(0x81), true).EndElement();
    b.EndElement();
  }, {WriterValue::TextArray({"10.00.", "", "x<y"})});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><Data Name='n'>10.00.</Data><Data Name='n'/><Data Name='n'>x&lt;y</Data></E>");
  EXPECT_EQ(r.Children(), (Strings{"Data=10.00.", "Data=", "Data=x<y"}));
  // Each repeated element holds one item, typed as the array's base type.
  const std::uint32_t first = r.tree.Child(r.tree.Root(), "Data");
  ASSERT_NE(first, evtx::kNoNode);
  EXPECT_EQ(r.tree.TextValue(first).type, static_cast<std::uint8_t>(ValueType::String));
}

TEST(ArrayValue, NumberArrayGivesOneElementPerNumber)
{
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("N", false).CloseStart().Text("#").Substitution(0, ValueType::UInt32, false).EndElement();
    b.OpenElement("After", false).CloseEmpty();
    b.EndElement();
  }, {WriterValue::IntArray(ValueType::UInt32, {7, 8, 9})});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><N>#7</N><N>#8</N><N>#9</N><After/></E>");
  EXPECT_EQ(r.Children(), (Strings{"N=#7", "N=#8", "N=#9", "After="}));
}

TEST(ArrayValue, EmptyArrayGivesNoElement)
{
  for (const bool optional : {false, true})
  {
    OneRecord r([optional](BinXmlBuilder& b) {
      b.OpenElement("E", false).CloseStart();
      b.OpenElement("Data", false).CloseStart().Substitution(0, static_cast<ValueType>(0x81), optional).EndElement();
      b.OpenElement("Binary", false).CloseStart().Substitution(1, ValueType::Binary, true).EndElement();
      b.EndElement();
    }, {Raw(0x81, {}), WriterValue::Binary({0xe1, 0x07})});
    ASSERT_TRUE(r.Loaded());
    EXPECT_EQ(r.Xml(), "<E><Binary>E107</Binary></E>") << optional;
    EXPECT_EQ(r.Children(), (Strings{"Binary=E107"}));
  }
}

TEST(ArrayValue, TerminatorOfTheLastStringEndsIt)
{
  // "a\0\0": the items "a" and "" (each string carries its NUL).
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("D", false).CloseStart().Substitution(0, static_cast<ValueType>(0x81), true).EndElement();
    b.EndElement();
  }, {Raw(0x81, {'a', 0, 0, 0, 0, 0})});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><D>a</D><D/></E>");
}

TEST(ArrayValue, InAnAttributeTheItemsAreListedAndTheElementIsNotRepeated)
{
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("A", true).Attribute("List").Substitution(0, static_cast<ValueType>(0x86), false).CloseStart();
    b.Text("t").EndElement();
    b.EndElement();
  }, {WriterValue::IntArray(ValueType::UInt16, {1, 2, 3})});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><A List='1, 2, 3'>t</A></E>");
  EXPECT_EQ(r.Children(), (Strings{"A=t"}));
}

TEST(ArrayValue, NestedElementsAreRepeatedWithTheirParent)
{
  // Only the element directly holding the substitution is repeated; its children come along.
  OneRecord r([](BinXmlBuilder& b) {
    b.OpenElement("E", false).CloseStart();
    b.OpenElement("Item", false).CloseStart();
    b.Substitution(0, static_cast<ValueType>(0x81), false);
    b.OpenElement("Tag", false).CloseStart().Substitution(1, ValueType::UInt8, true).EndElement();
    b.EndElement();
    b.EndElement();
  }, {WriterValue::TextArray({"p", "q"}), WriterValue::Int(ValueType::UInt8, 3)});
  ASSERT_TRUE(r.Loaded());
  EXPECT_EQ(r.Xml(), "<E><Item>p<Tag>3</Tag></Item><Item>q<Tag>3</Tag></Item></E>");
}

TEST(ArrayItems, StepsThroughEachKind)
{
  auto items = [](const WriterValue& w) {
    const evtx::Value v{w.type, w.bytes.data(), static_cast<std::uint32_t>(w.bytes.size())};
    Strings out;
    std::uint32_t pos = 0;
    evtx::Value item;
    while (evtx::NextArrayItem(v, pos, item))
      out.push_back(evtx::ValueText(item));
    return out;
  };
  EXPECT_EQ(items(WriterValue::TextArray({"a", "", "b"})), (Strings{"a", "", "b"}));
  EXPECT_EQ(items(Raw(0x81, {'a', 0, 0, 0, 'b', 0})), (Strings{"a", "b"}));  // last one unterminated
  EXPECT_EQ(items(Raw(0x82, {'x', 0, 0, 'y'})), (Strings{"x", "", "y"}));
  EXPECT_EQ(items(WriterValue::IntArray(ValueType::HexInt32, {10, 255})), (Strings{"0xa", "0xff"}));
  EXPECT_EQ(items(Raw(0x88, {1, 0, 0, 0, 2})), (Strings{"1"}));  // a partial item is dropped
  EXPECT_EQ(items(Raw(0x81, {})), Strings{});
  EXPECT_EQ(items(Raw(0x8e, {0xab, 0xcd})), (Strings{"ABCD"}));  // no item size: one Binary item
}
} // namespace
