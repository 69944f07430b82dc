// Files made by our writer read back through our reader: every value type, optional
// substitutions, nested binary XML with every token, many chunks, damaged chunks.
#include "Evtx/Event.h"
#include "Evtx/File.h"
#include "Evtx/Render.h"
#include "Evtx/ValueText.h"
#include "Evtx/Writer.h"
#include "TestLog.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace
{
using evtx::ValueType;
using evtx::WriterValue;
using evtx::test::ReadAll;
using evtx::test::TempLog;

constexpr std::uint64_t kTime = 131124751716816408ull;  // 2016-07-08T18:12:51.6816408Z

evtx::WriterEvent BaseEvent()
{
  evtx::WriterEvent e;
  e.provider = "Test-Provider";
  e.providerGuid = "{54849625-5478-4994-A5BA-3E3B0328C30D}";
  e.eventId = 4624;
  e.level = 2;
  e.task = 12544;
  e.keywords = 0x8020000000000000ull;
  e.timeCreated = kTime;
  e.processId = 456;
  e.threadId = 460;
  e.channel = "Security";
  e.computer = "host-1";
  return e;
}

std::vector<evtx::EventData> AllTypes()
{
  const std::uint8_t g[16] = {0x25, 0x96, 0x84, 0x54, 0x78, 0x54, 0x94, 0x49,
                              0xa5, 0xba, 0x3e, 0x3b, 0x03, 0x28, 0xc3, 0x0d};
  return {
    {"s", WriterValue::Text("a<b&'c'\"")},
    {"ansi", WriterValue::Ansi("plain")},
    {"i8", WriterValue::Int(ValueType::Int8, -5)},
    {"u8", WriterValue::Int(ValueType::UInt8, 250)},
    {"i16", WriterValue::Int(ValueType::Int16, -300)},
    {"u16", WriterValue::Int(ValueType::UInt16, 65535)},
    {"i32", WriterValue::Int(ValueType::Int32, -70000)},
    {"u32", WriterValue::Int(ValueType::UInt32, 4000000000)},
    {"i64", WriterValue::Int(ValueType::Int64, -5000000000)},
    {"u64", WriterValue::Int(ValueType::UInt64, 5000000000)},
    {"r32", WriterValue::Real32(1.5f)},
    {"r64", WriterValue::Real64(-0.25)},
    {"bool", WriterValue::Bool(true)},
    {"bin", WriterValue::Binary({1, 2, 0xab})},
    {"guid", WriterValue::Guid(g)},
    {"size", WriterValue::Int(ValueType::SizeT, 588)},
    {"ft", WriterValue::FileTime(kTime)},
    {"st", WriterValue::SystemTime(2024, 5, 1, 10, 20, 30, 123)},
    {"sid", WriterValue::Sid("S-1-5-32-544")},
    {"h32", WriterValue::Int(ValueType::HexInt32, 0x3e7)},
    {"h64", WriterValue::Int(ValueType::HexInt64, 0x1234567890)},
    {"strs", WriterValue::TextArray({"x", "y"})},
    {"ints", WriterValue::IntArray(ValueType::Int32, {-1, 2})},
    {"null", WriterValue::Null()},
  };
}

TEST(WriterRoundTrip, EveryValueTypeRendersAsWindowsDoes)
{
  TempLog log;
  evtx::Writer writer;
  ASSERT_TRUE(writer.Create(log.Path()));
  auto e = BaseEvent();
  e.data = AllTypes();
  ASSERT_EQ(writer.Append(e), 1u);
  writer.Close();

  const auto records = ReadAll(log.Path());
  ASSERT_EQ(records.size(), 1u);
  const std::string expected =
    "<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>"
    "<Provider Name='Test-Provider' Guid='{54849625-5478-4994-A5BA-3E3B0328C30D}'/>"
    "<EventID>4624</EventID><Version>0</Version><Level>2</Level><Task>12544</Task><Opcode>0</Opcode>"
    "<Keywords>0x8020000000000000</Keywords><TimeCreated SystemTime='2016-07-08T18:12:51.6816408Z'/>"
    "<EventRecordID>1</EventRecordID><Correlation/><Execution ProcessID='456' ThreadID='460'/>"
    "<Channel>Security</Channel><Computer>host-1</Computer><Security/></System><EventData>"
    "<Data Name='s'>a&lt;b&amp;&apos;c&apos;&quot;</Data><Data Name='ansi'>plain</Data>"
    "<Data Name='i8'>-5</Data><Data Name='u8'>250</Data><Data Name='i16'>-300</Data>"
    "<Data Name='u16'>65535</Data><Data Name='i32'>-70000</Data><Data Name='u32'>4000000000</Data>"
    "<Data Name='i64'>-5000000000</Data><Data Name='u64'>5000000000</Data><Data Name='r32'>1.5</Data>"
    "<Data Name='r64'>-0.25</Data><Data Name='bool'>true</Data><Data Name='bin'>0102AB</Data>"
    "<Data Name='guid'>{54849625-5478-4994-A5BA-3E3B0328C30D}</Data><Data Name='size'>0x24c</Data>"
    "<Data Name='ft'>2016-07-08T18:12:51.6816408Z</Data><Data Name='st'>2024-05-01T10:20:30.1230000Z</Data>"
    "<Data Name='sid'>S-1-5-32-544</Data><Data Name='h32'>0x3e7</Data><Data Name='h64'>0x1234567890</Data>"
    // An array value repeats its element once per item.
    "<Data Name='strs'>x</Data><Data Name='strs'>y</Data><Data Name='ints'>-1</Data>"
    "<Data Name='ints'>2</Data><Data Name='null'/>"
    "</EventData></Event>";
  EXPECT_EQ(records[0].xml, expected);
}

// The first chunk of a new log holding only `event` (null when it cannot be written or read).
std::shared_ptr<evtx::Chunk> ChunkOfOneEvent(const TempLog& log, const evtx::WriterEvent& event)
{
  evtx::Writer writer;
  if (!writer.Create(log.Path()) || writer.Append(event) != 1u)
    return nullptr;
  writer.Close();
  evtx::File file;
  std::shared_ptr<evtx::Chunk> chunk;
  if (file.Open(log.Path()) != evtx::Status::Ok || file.LoadChunk(0, chunk) != evtx::Status::Ok)
    return nullptr;
  return chunk;
}

TEST(WriterRoundTrip, TreeGivesSystemValuesAndTypedData)
{
  TempLog log;
  auto e = BaseEvent();
  e.eventId = 7036;
  e.qualifiers = 16384;
  e.userSid = "S-1-5-18";
  e.data = AllTypes();
  const auto chunk = ChunkOfOneEvent(log, e);
  ASSERT_NE(chunk, nullptr);
  ASSERT_EQ(chunk->Records().size(), 1u);
  evtx::EventTree tree;
  ASSERT_EQ(chunk->Decode(chunk->Records()[0], tree), evtx::Status::Ok);
  evtx::SystemValues sys;
  tree.System(sys);
  EXPECT_TRUE(evtx::ValueEquals(sys.providerName, "Test-Provider"));
  EXPECT_EQ(sys.eventId, 7036u);
  EXPECT_EQ(sys.qualifiers, 16384u);
  EXPECT_EQ(sys.level, 2u);
  EXPECT_EQ(sys.task, 12544u);
  EXPECT_EQ(sys.keywords, 0x8020000000000000ull);
  EXPECT_EQ(sys.timeCreated, kTime);
  EXPECT_EQ(sys.recordId, 1u);
  EXPECT_EQ(sys.processId, 456u);
  EXPECT_EQ(sys.threadId, 460u);
  EXPECT_TRUE(evtx::ValueEquals(sys.channel, "Security"));
  EXPECT_TRUE(evtx::ValueEquals(sys.computer, "host-1"));
  EXPECT_EQ(sys.userId.BaseType(), ValueType::Sid);
  EXPECT_EQ(evtx::ValueText(sys.userId), "S-1-5-18");

  // EventData children keep their raw types; the null one has no value node. Each array
  // item has its own element, typed as the array's base type.
  const std::uint32_t data = tree.EventData();
  ASSERT_NE(data, evtx::kNoNode);
  std::vector<std::pair<std::string, std::uint8_t>> seen;
  for (std::uint32_t c = tree.FirstChild(data); c != evtx::kNoNode; c = tree[c].nextSibling)
    seen.emplace_back(tree.Text(tree.Attribute(c, "Name")), tree.TextValue(c).type);
  ASSERT_EQ(seen.size(), AllTypes().size() + 2);
  EXPECT_EQ(seen[2], (std::pair<std::string, std::uint8_t>{"i8", 0x03}));
  EXPECT_EQ(seen[18], (std::pair<std::string, std::uint8_t>{"sid", 0x13}));
  EXPECT_EQ(seen[21], (std::pair<std::string, std::uint8_t>{"strs", 0x01}));
  EXPECT_EQ(seen[22], (std::pair<std::string, std::uint8_t>{"strs", 0x01}));
  EXPECT_EQ(seen[24], (std::pair<std::string, std::uint8_t>{"ints", 0x07}));
  EXPECT_EQ(seen.back(), (std::pair<std::string, std::uint8_t>{"null", 0x00}));

  std::string xml;
  ASSERT_EQ(chunk->RenderXml(chunk->Records()[0], xml), evtx::Status::Ok);
  EXPECT_NE(xml.find("<EventID Qualifiers='16384'>7036</EventID>"), std::string::npos);
  EXPECT_NE(xml.find("<Security UserID='S-1-5-18'/>"), std::string::npos);
  // Widened as EvtRender does it: sized first, then written in place.
  std::wstring wide(evtx::WideLengthOfUtf8(xml), L'\0');
  wide.resize(evtx::WidenUtf8(xml, wide.data()));
  EXPECT_EQ(wide, evtx::Utf8ToWide(xml));
}

TEST(WriterRoundTrip, OptionalAttributeWithNullValueIsOmitted)
{
  TempLog log;
  evtx::Writer writer;
  ASSERT_TRUE(writer.Create(log.Path()));
  auto e = BaseEvent();
  ASSERT_EQ(writer.Append(e), 1u);
  e.qualifiers = 0;
  ASSERT_EQ(writer.Append(e), 2u);
  writer.Close();
  const auto records = ReadAll(log.Path());
  ASSERT_EQ(records.size(), 2u);
  EXPECT_NE(records[0].xml.find("<EventID>4624</EventID>"), std::string::npos);
  EXPECT_NE(records[0].xml.find("<Security/>"), std::string::npos);
  EXPECT_NE(records[1].xml.find("<EventID Qualifiers='0'>4624</EventID>"), std::string::npos);
}

// UserData as nested binary XML with every token kind.
std::vector<std::uint8_t> UserData(std::uint32_t base)
{
  evtx::BinXmlBuilder b(base);
  b.FragmentHeader();
  b.OpenElement("Info", true).Attribute("xmlns", true).Text("urn:test").Attribute("Kind").Text("a").CharRef(38).Text("b").CloseStart();
  b.OpenElement("Text", false).CloseStart().Text("x ").EntityRef("lt").Text(" y").EndElement();
  b.OpenElement("Raw", false).CloseStart().CData("<not markup>").EndElement();
  b.PI("proc", "do it");
  b.OpenElement("Empty", false).CloseEmpty();
  b.OpenElement("Multi", false).CloseStart().Text("line1\nline2").EndElement();
  b.EndElement();
  b.End();
  return b.Bytes();
}

TEST(WriterRoundTrip, NestedBinaryXmlWithEveryToken)
{
  TempLog log;
  evtx::Writer writer;
  ASSERT_TRUE(writer.Create(log.Path()));
  auto e = BaseEvent();
  e.userData = &UserData;
  ASSERT_EQ(writer.Append(e), 1u);
  ASSERT_EQ(writer.Append(e), 2u);  // second instance reuses the template
  writer.Close();
  const auto records = ReadAll(log.Path());
  ASSERT_EQ(records.size(), 2u);
  const std::string expected =
    "</System><UserData><Info xmlns='urn:test' Kind='a&#38;b'><Text>x &lt; y</Text>"
    "<Raw><![CDATA[<not markup>]]></Raw><?proc do it?><Empty/><Multi>line1\nline2</Multi></Info></UserData></Event>";
  EXPECT_NE(records[0].xml.find(expected), std::string::npos) << records[0].xml;

  evtx::File file;
  ASSERT_EQ(file.Open(log.Path()), evtx::Status::Ok);
  std::shared_ptr<evtx::Chunk> chunk;
  ASSERT_EQ(file.LoadChunk(0, chunk), evtx::Status::Ok);
  std::string oneLine;
  evtx::RenderOptions options;
  options.escapeLineBreaks = true;
  ASSERT_EQ(chunk->RenderXml(chunk->Records()[1], oneLine, options), evtx::Status::Ok);
  EXPECT_NE(oneLine.find("<Multi>line1&#10;line2</Multi>"), std::string::npos);
  EXPECT_EQ(oneLine.find('\n'), std::string::npos);

  evtx::EventTree tree;
  ASSERT_EQ(chunk->Decode(chunk->Records()[1], tree), evtx::Status::Ok);
  const std::uint32_t userData = tree.UserData();
  ASSERT_NE(userData, evtx::kNoNode);
  const std::uint32_t info = tree.Child(userData, "Info");
  ASSERT_NE(info, evtx::kNoNode);
  EXPECT_EQ(tree.Text(tree.Attribute(info, "Kind")), "a&b");
  EXPECT_EQ(tree.Text(tree.Child(info, "Text")), "x < y");
  EXPECT_EQ(tree.Text(tree.Child(info, "Raw")), "<not markup>");
  EXPECT_EQ(tree.EventData(), evtx::kNoNode);
}

// A plain fragment that holds substitutions (with no values to fill them) cannot be rendered
// as it is read; its compiled form gives what the tree renderer gives, and an element that
// held only content renders empty.
std::vector<std::uint8_t> UserDataWithSubstitutions(std::uint32_t base)
{
  evtx::BinXmlBuilder b(base);
  b.FragmentHeader();
  b.OpenElement("Info", false).CloseStart();
  b.OpenElement("Optional", false).CloseStart().Substitution(0, ValueType::String, true).EndElement();
  b.OpenElement("Plain", false).CloseStart().Substitution(1, ValueType::String, false).EndElement();
  b.OpenElement("Fixed", false).CloseStart().Text("t").EndElement();
  b.OpenElement("Nothing", false).CloseStart().EndElement();
  b.EndElement();
  b.End();
  return b.Bytes();
}

TEST(WriterRoundTrip, PlainFragmentWithSubstitutionsRendersAsTheTree)
{
  TempLog log;
  auto e = BaseEvent();
  e.userData = &UserDataWithSubstitutions;
  const auto chunk = ChunkOfOneEvent(log, e);
  ASSERT_NE(chunk, nullptr);
  for (const bool oneLine : {false, true})
  {
    evtx::RenderOptions options;
    options.escapeLineBreaks = oneLine;
    std::string compiled, fromTree;
    ASSERT_EQ(chunk->RenderXml(chunk->Records()[0], compiled, options), evtx::Status::Ok);
    evtx::EventTree tree;
    ASSERT_EQ(chunk->Decode(chunk->Records()[0], tree), evtx::Status::Ok);
    evtx::RenderTree(tree, fromTree, options);
    EXPECT_EQ(compiled, fromTree);
    EXPECT_NE(compiled.find("<UserData><Info><Plain/><Fixed>t</Fixed><Nothing/></Info></UserData>"),
              std::string::npos)
      << compiled;
  }
}

// One-line rendering writes forbidden controls as control pictures wherever they are: in
// template text (the provider's name) and in values; both renderers agree.
TEST(WriterRoundTrip, OneLineRenderingWritesControlsAsPictures)
{
  TempLog log;
  auto e = BaseEvent();
  e.provider = std::string("P") + '\x01';
  e.data = {{"Text", WriterValue::Text(std::string("a") + '\x02' + "\tb")},
            {"Ansi", WriterValue::Ansi(std::string("c") + '\x1f')}};
  const auto chunk = ChunkOfOneEvent(log, e);
  ASSERT_NE(chunk, nullptr);
  evtx::RenderOptions options;
  options.escapeLineBreaks = true;
  std::string compiled, fromTree;
  ASSERT_EQ(chunk->RenderXml(chunk->Records()[0], compiled, options), evtx::Status::Ok);
  evtx::EventTree tree;
  ASSERT_EQ(chunk->Decode(chunk->Records()[0], tree), evtx::Status::Ok);
  evtx::RenderTree(tree, fromTree, options);
  EXPECT_EQ(compiled, fromTree);
  EXPECT_NE(compiled.find("Name='P\xe2\x90\x81'"), std::string::npos) << compiled;
  EXPECT_NE(compiled.find(">a\xe2\x90\x82\tb<"), std::string::npos) << compiled;
  EXPECT_NE(compiled.find(">c\xe2\x90\x9f<"), std::string::npos) << compiled;
  std::string plain;
  ASSERT_EQ(chunk->RenderXml(chunk->Records()[0], plain), evtx::Status::Ok);
  EXPECT_NE(plain.find(std::string("Name='P") + '\x01' + "'"), std::string::npos) << plain;
}

TEST(WriterRoundTrip, ManyChunksKeepOrderAndRanges)
{
  TempLog log;
  evtx::Writer writer;
  ASSERT_TRUE(writer.Create(log.Path()));
  constexpr int kEvents = 3000;
  for (int i = 0; i < kEvents; ++i)
  {
    auto e = BaseEvent();
    e.eventId = static_cast<std::uint16_t>(i % 7);
    e.data = {{"n", WriterValue::Int(ValueType::UInt32, i)}, {"text", WriterValue::Text(std::string(40 + i % 50, 'x'))}};
    if (i % 3 == 0)
      e.data.push_back({"extra", WriterValue::Bool(i % 2 == 0)});
    ASSERT_EQ(writer.Append(e), static_cast<std::uint64_t>(i + 1));
  }
  writer.Close();

  evtx::File file;
  ASSERT_EQ(file.Open(log.Path()), evtx::Status::Ok);
  EXPECT_GE(file.ChunkCount(), 3u);
  EXPECT_EQ(file.Header().nextRecordId, static_cast<std::uint64_t>(kEvents + 1));
  EXPECT_TRUE(file.Header().checksumOk);
  std::uint64_t expectedId = 1;
  for (std::uint32_t i = 0; i < file.ChunkCount(); ++i)
  {
    evtx::ChunkHeader h;
    ASSERT_EQ(file.ReadChunkHeader(i, h), evtx::Status::Ok);
    std::shared_ptr<evtx::Chunk> chunk;
    ASSERT_EQ(file.LoadChunk(i, chunk), evtx::Status::Ok);
    EXPECT_TRUE(chunk->HeaderChecksumOk());
    EXPECT_TRUE(chunk->RecordsChecksumOk());
    ASSERT_FALSE(chunk->Records().empty());
    EXPECT_EQ(h.firstRecordId, chunk->Records().front().id);
    EXPECT_EQ(h.lastRecordId, chunk->Records().back().id);
    for (const auto& r : chunk->Records())
      EXPECT_EQ(r.id, expectedId++);
  }
  EXPECT_EQ(expectedId, static_cast<std::uint64_t>(kEvents + 1));
  EXPECT_EQ(ReadAll(file).size(), static_cast<std::size_t>(kEvents));
}

void FlipByte(const std::string& path, std::uint64_t offset)
{
  const int fd = ::open(path.c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  std::uint8_t b = 0;
  ASSERT_EQ(::pread(fd, &b, 1, static_cast<off_t>(offset)), 1);
  b ^= 0x5a;
  ASSERT_EQ(::pwrite(fd, &b, 1, static_cast<off_t>(offset)), 1);
  ::close(fd);
}

std::string WriteChunks(const TempLog& log, int events)
{
  evtx::Writer writer;
  EXPECT_TRUE(writer.Create(log.Path()));
  for (int i = 0; i < events; ++i)
  {
    auto e = BaseEvent();
    e.data = {{"payload", WriterValue::Text(std::string(300, 'p'))}};
    writer.Append(e);
  }
  return log.Path();
}

TEST(DamagedFiles, ChunkWithBadSignatureIsSkippedAndReadingGoesOn)
{
  TempLog log;
  WriteChunks(log, 600);
  evtx::File file;
  ASSERT_EQ(file.Open(log.Path()), evtx::Status::Ok);
  ASSERT_GE(file.ChunkCount(), 3u);
  const auto before = ReadAll(file);
  std::shared_ptr<evtx::Chunk> chunk;
  ASSERT_EQ(file.LoadChunk(1, chunk), evtx::Status::Ok);
  const std::size_t inChunk1 = chunk->Records().size();
  chunk.reset();

  FlipByte(log.Path(), evtx::kFileHeaderSize + evtx::kChunkSize + 2);
  ASSERT_EQ(file.LoadChunk(1, chunk), evtx::Status::BadSignature);
  EXPECT_EQ(chunk, nullptr);
  const auto after = ReadAll(file);
  EXPECT_EQ(after.size(), before.size() - inChunk1);
  EXPECT_EQ(after.back().id, before.back().id);
}

TEST(DamagedFiles, BadChecksumsAreReportedButIntactRecordsAreRead)
{
  TempLog log;
  WriteChunks(log, 20);
  // A byte inside the last record's data: the record area CRC no longer matches.
  evtx::File file;
  ASSERT_EQ(file.Open(log.Path()), evtx::Status::Ok);
  std::shared_ptr<evtx::Chunk> chunk;
  ASSERT_EQ(file.LoadChunk(0, chunk), evtx::Status::Ok);
  // Asked before the damage: the chunk object the file reuses below must check afresh.
  EXPECT_TRUE(chunk->RecordsChecksumOk());
  const evtx::Record last = chunk->Records().back();
  chunk.reset();
  FlipByte(log.Path(), evtx::kFileHeaderSize + last.offset + last.size - 40);
  // And a byte of the chunk header's unused area: the header CRC no longer matches.
  FlipByte(log.Path(), evtx::kFileHeaderSize + 100);
  ASSERT_EQ(file.LoadChunk(0, chunk), evtx::Status::Ok);
  EXPECT_FALSE(chunk->RecordsChecksumOk());
  EXPECT_FALSE(chunk->HeaderChecksumOk());
  EXPECT_EQ(chunk->Records().size(), 20u);
  evtx::ChunkHeader h;
  EXPECT_EQ(file.ReadChunkHeader(0, h), evtx::Status::BadHeaderChecksum);
  EXPECT_EQ(h.lastRecordId, 20u);
}

TEST(DamagedFiles, RecordWithBrokenHeaderIsSkippedAndLaterRecordsFound)
{
  TempLog log;
  WriteChunks(log, 10);
  evtx::File file;
  ASSERT_EQ(file.Open(log.Path()), evtx::Status::Ok);
  std::shared_ptr<evtx::Chunk> chunk;
  ASSERT_EQ(file.LoadChunk(0, chunk), evtx::Status::Ok);
  const evtx::Record third = chunk->Records()[2];
  chunk.reset();
  FlipByte(log.Path(), evtx::kFileHeaderSize + third.offset);  // its signature
  ASSERT_EQ(file.LoadChunk(0, chunk), evtx::Status::Ok);
  EXPECT_TRUE(chunk->RecordsTruncated());
  ASSERT_EQ(chunk->Records().size(), 9u);
  EXPECT_EQ(chunk->Records()[2].id, 4u);
}

TEST(DamagedFiles, GarbageBinaryXmlFailsOnlyThatRecord)
{
  TempLog log;
  WriteChunks(log, 3);
  evtx::File file;
  ASSERT_EQ(file.Open(log.Path()), evtx::Status::Ok);
  std::shared_ptr<evtx::Chunk> chunk;
  ASSERT_EQ(file.LoadChunk(0, chunk), evtx::Status::Ok);
  const evtx::Record second = chunk->Records()[1];
  chunk.reset();
  // The template instance token of record 2.
  FlipByte(log.Path(), evtx::kFileHeaderSize + second.offset + 28);
  ASSERT_EQ(file.LoadChunk(0, chunk), evtx::Status::Ok);
  std::string xml;
  evtx::EventTree tree;
  EXPECT_NE(chunk->RenderXml(chunk->Records()[1], xml), evtx::Status::Ok);
  EXPECT_TRUE(xml.empty());
  EXPECT_NE(chunk->Decode(chunk->Records()[1], tree), evtx::Status::Ok);
  EXPECT_EQ(chunk->RenderXml(chunk->Records()[2], xml), evtx::Status::Ok);
  EXPECT_NE(xml.find("<EventRecordID>3</EventRecordID>"), std::string::npos);
}
} // namespace
