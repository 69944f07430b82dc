// Writer: appends events to an .evtx file chunk by chunk, committing each record in an order
// that lets a concurrent reader see it whole or not at all.
#include "Evtx/Writer.h"

#include "Evtx/Crc32.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>

namespace evtx
{
namespace
{
constexpr std::uint32_t kRecordHeader = 24;
// Substitution slots of the System part of every template; data items follow.
enum Slot : std::uint16_t
{
  kLevel, kOpcode, kTask, kEventId, kQualifiers, kKeywords, kTimeCreated, kProcessId, kThreadId,
  kRecordId, kVersion, kUserId, kUnused, kFirstData
};

void Put16(std::uint8_t* p, std::uint32_t v)
{
  p[0] = static_cast<std::uint8_t>(v);
  p[1] = static_cast<std::uint8_t>(v >> 8);
}
void Put32(std::uint8_t* p, std::uint32_t v)
{
  Put16(p, v & 0xffff);
  Put16(p + 2, v >> 16);
}
void Put64(std::uint8_t* p, std::uint64_t v)
{
  Put32(p, static_cast<std::uint32_t>(v));
  Put32(p + 4, static_cast<std::uint32_t>(v >> 32));
}
std::uint32_t Get32(const std::uint8_t* p)
{
  return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24;
}
std::uint64_t Get64(const std::uint8_t* p)
{
  return Get32(p) | std::uint64_t(Get32(p + 4)) << 32;
}

std::uint64_t NowFileTime()
{
  const auto since1970 = std::chrono::duration_cast<std::chrono::nanoseconds>(
    std::chrono::system_clock::now().time_since_epoch());
  return static_cast<std::uint64_t>(since1970.count() / 100) + 116444736000000000ull;
}

WriterValue Typed(ValueType type, std::int64_t v)
{
  return WriterValue::Int(type, v);
}

// The template text of an event shape, for a definition stored at chunk offset `base`.
std::vector<std::uint8_t> BuildTemplate(const WriterEvent& e, std::uint32_t base)
{
  BinXmlBuilder b(base);
  b.FragmentHeader();
  b.OpenElement("Event", true).Attribute("xmlns").Text("http://schemas.microsoft.com/win/2004/08/events/event").CloseStart();
  b.OpenElement("System", false).CloseStart();
  b.OpenElement("Provider", true).Attribute("Name", !e.providerGuid.empty()).Text(e.provider);
  if (!e.providerGuid.empty())
    b.Attribute("Guid").Text(e.providerGuid);
  b.CloseEmpty();
  b.OpenElement("EventID", true).Attribute("Qualifiers").Substitution(kQualifiers, ValueType::UInt16, true).CloseStart();
  b.Substitution(kEventId, ValueType::UInt16, false).EndElement();
  b.OpenElement("Version", false).CloseStart().Substitution(kVersion, ValueType::UInt8, true).EndElement();
  b.OpenElement("Level", false).CloseStart().Substitution(kLevel, ValueType::UInt8, true).EndElement();
  b.OpenElement("Task", false).CloseStart().Substitution(kTask, ValueType::UInt16, true).EndElement();
  b.OpenElement("Opcode", false).CloseStart().Substitution(kOpcode, ValueType::UInt8, true).EndElement();
  b.OpenElement("Keywords", false).CloseStart().Substitution(kKeywords, ValueType::HexInt64, true).EndElement();
  b.OpenElement("TimeCreated", true).Attribute("SystemTime").Substitution(kTimeCreated, ValueType::FileTime, true).CloseEmpty();
  b.OpenElement("EventRecordID", false).CloseStart().Substitution(kRecordId, ValueType::UInt64, true).EndElement();
  b.OpenElement("Correlation", false).CloseEmpty();
  b.OpenElement("Execution", true).Attribute("ProcessID", true).Substitution(kProcessId, ValueType::UInt32, true);
  b.Attribute("ThreadID").Substitution(kThreadId, ValueType::UInt32, true).CloseEmpty();
  b.OpenElement("Channel", false).CloseStart().Text(e.channel).EndElement();
  b.OpenElement("Computer", false).CloseStart().Text(e.computer).EndElement();
  b.OpenElement("Security", true).Attribute("UserID").Substitution(kUserId, ValueType::Sid, true).CloseEmpty();
  b.EndElement();  // System
  if (e.userData)
  {
    b.OpenElement("UserData", false).CloseStart();
    b.Substitution(kFirstData, ValueType::BinXml, true);
    b.EndElement();
  }
  else
  {
    b.OpenElement("EventData", false).CloseStart();
    for (std::size_t i = 0; i < e.data.size(); ++i)
    {
      const bool named = !e.data[i].name.empty();
      b.OpenElement("Data", named);
      if (named)
        b.Attribute("Name").Text(e.data[i].name);
      b.CloseStart();
      b.Substitution(static_cast<std::uint16_t>(kFirstData + i), static_cast<ValueType>(e.data[i].value.type), false);
      b.EndElement();
    }
    b.EndElement();
  }
  b.EndElement();  // Event
  b.End();
  return b.Bytes();
}

// What makes two events share a template: everything literal in it.
std::string ShapeKey(const WriterEvent& e)
{
  std::string key = e.provider + '\x1f' + e.providerGuid + '\x1f' + e.channel + '\x1f' + e.computer;
  key += e.userData ? "\x1fU" : "\x1f" "E";
  if (!e.userData)
    for (const auto& d : e.data)
    {
      key += '\x1f';
      key += d.name;
      key += '\x1e';
      key += static_cast<char>(d.value.type);
    }
  return key;
}
} // namespace

struct Writer::Impl
{
  int fd = -1;
  std::uint8_t fileHeader[kFileHeaderSize] = {};
  std::vector<std::uint8_t> chunk = std::vector<std::uint8_t>(kChunkSize, 0);
  std::uint32_t chunkIndex = 0;
  bool chunkStarted = false;
  std::uint32_t freeOffset = kChunkHeaderSize;
  std::uint64_t nextRecordId = 1;
  std::map<std::string, std::uint32_t> templates;  // shape -> definition offset in this chunk
  // A shape keeps its template id (and GUID) in every chunk, as an event's template does in a
  // Windows log, where each chunk repeats the definitions it uses.
  std::map<std::string, std::uint32_t> templateIds;
  std::uint32_t nextTemplateId = 1;
  std::uint64_t fileSize = 0;

  ~Impl()
  {
    if (fd >= 0)
      ::close(fd);
  }

  bool WriteAt(std::uint64_t offset, const void* data, std::size_t size) const
  {
    const auto* p = static_cast<const std::uint8_t*>(data);
    while (size > 0)
    {
      const ssize_t n = ::pwrite(fd, p, size, static_cast<off_t>(offset));
      if (n <= 0)
        return false;
      p += n;
      size -= static_cast<std::size_t>(n);
      offset += static_cast<std::uint64_t>(n);
    }
    return true;
  }

  std::uint64_t ChunkOffset() const { return kFileHeaderSize + std::uint64_t(chunkIndex) * kChunkSize; }

  void StartChunk(std::uint32_t index)
  {
    std::fill(chunk.begin(), chunk.end(), 0);
    std::memcpy(chunk.data(), "ElfChnk\0", 8);
    Put32(chunk.data() + 40, 128);
    chunkIndex = index;
    chunkStarted = false;
    freeOffset = kChunkHeaderSize;
    templates.clear();
  }

  bool CommitChunkHeader(std::uint64_t lastRecordId, std::uint32_t lastRecordOffset)
  {
    std::uint8_t* h = chunk.data();
    if (!chunkStarted)
    {
      Put64(h + 8, lastRecordId);
      Put64(h + 24, lastRecordId);
      chunkStarted = true;
    }
    Put64(h + 16, lastRecordId);
    Put64(h + 32, lastRecordId);
    Put32(h + 44, lastRecordOffset);
    Put32(h + 48, freeOffset);
    Put32(h + 52, Crc32(h + kChunkHeaderSize, freeOffset - kChunkHeaderSize));
    Put32(h + 124, Crc32(h + 128, kChunkHeaderSize - 128, Crc32(h, 120)));
    return WriteAt(ChunkOffset(), h, kChunkHeaderSize);
  }

  bool CommitFileHeader()
  {
    std::uint8_t* h = fileHeader;
    std::copy_n("ElfFile", 8, h);  // the signature includes its NUL
    Put64(h + 8, 0);
    Put64(h + 16, chunkIndex);
    Put64(h + 24, nextRecordId);
    Put32(h + 32, 128);
    Put16(h + 36, 1);
    Put16(h + 38, 3);
    Put16(h + 40, kFileHeaderSize);
    Put16(h + 42, chunkIndex + 1);
    Put32(h + 120, 0);
    Put32(h + 124, Crc32(h, 120));
    return WriteAt(0, h, 128);
  }
};

Writer::Writer() = default;
Writer::~Writer() = default;

bool Writer::Create(const std::string& path, std::string* error)
{
  Close();
  auto impl = std::make_unique<Impl>();
  impl->fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (impl->fd < 0)
  {
    if (error)
      *error = "cannot create " + path;
    return false;
  }
  impl->StartChunk(0);
  impl->fileSize = kFileHeaderSize;
  if (!impl->WriteAt(0, impl->fileHeader, kFileHeaderSize) || !impl->CommitFileHeader())
  {
    if (error)
      *error = "cannot write " + path;
    return false;
  }
  impl_ = std::move(impl);
  return true;
}

bool Writer::Open(const std::string& path, std::string* error)
{
  Close();
  auto impl = std::make_unique<Impl>();
  impl->fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  auto fail = [&](const char* what) {
    if (error)
      *error = path + ": " + what;
    return false;
  };
  if (impl->fd < 0)
    return fail("cannot open");
  if (::pread(impl->fd, impl->fileHeader, kFileHeaderSize, 0) != static_cast<ssize_t>(kFileHeaderSize) ||
      std::memcmp(impl->fileHeader, "ElfFile\0", 8) != 0)
    return fail("not an .evtx file");
  impl->nextRecordId = Get64(impl->fileHeader + 24);
  const off_t size = ::lseek(impl->fd, 0, SEEK_END);
  impl->fileSize = size > 0 ? static_cast<std::uint64_t>(size) : 0;
  const auto last = static_cast<std::uint32_t>(Get64(impl->fileHeader + 16));
  impl->StartChunk(last);
  if (::pread(impl->fd, impl->chunk.data(), kChunkSize, static_cast<off_t>(impl->ChunkOffset())) ==
        static_cast<ssize_t>(kChunkSize) &&
      std::memcmp(impl->chunk.data(), "ElfChnk\0", 8) == 0)
  {
    impl->chunkStarted = true;
    impl->freeOffset = Get32(impl->chunk.data() + 48);
    if (impl->freeOffset < kChunkHeaderSize || impl->freeOffset > kChunkSize)
      return fail("bad free-space offset in the last chunk");
  }
  else
  {
    impl->StartChunk(last);
  }
  impl_ = std::move(impl);
  return true;
}

void Writer::Close()
{
  impl_.reset();
}

std::uint64_t Writer::NextRecordId() const noexcept
{
  return impl_ ? impl_->nextRecordId : 0;
}

std::uint64_t Writer::Append(const WriterEvent& event)
{
  if (!impl_)
    return 0;
  Impl& w = *impl_;
  const std::uint64_t id = w.nextRecordId;
  const std::uint64_t time = event.timeCreated != 0 ? event.timeCreated : NowFileTime();

  for (int attempt = 0; attempt < 2; ++attempt)
  {
    const std::uint32_t recordOffset = w.freeOffset;
    // Record header, fragment header, template instance header.
    std::vector<std::uint8_t> record(kRecordHeader + 4 + 10, 0);
    const std::string shape = ShapeKey(event);
    const auto known = w.templates.find(shape);
    std::uint32_t definition;
    const std::uint32_t instanceEnd = recordOffset + kRecordHeader + 4 + 10;
    std::uint32_t templateId;
    if (known != w.templates.end())
    {
      definition = known->second;
      templateId = Get32(w.chunk.data() + definition + 4);
    }
    else
    {
      // First use in this chunk: the definition follows the instance header.
      definition = instanceEnd;
      templateId = w.templateIds.emplace(shape, w.nextTemplateId).first->second;
      if (templateId == w.nextTemplateId)
        ++w.nextTemplateId;
      const auto body = BuildTemplate(event, definition + 24);
      record.resize(record.size() + 24, 0);
      std::uint8_t* def = record.data() + record.size() - 24;
      // Chained into the chunk's template table by its bucket.
      Put32(def, Get32(w.chunk.data() + 384 + 4 * std::size_t(templateId % 32)));
      Put32(def + 4, templateId);  // GUID: the id, then zeros
      Put32(def + 20, static_cast<std::uint32_t>(body.size()));
      record.insert(record.end(), body.begin(), body.end());
    }
    std::uint8_t* r = record.data();
    Put32(r, 0x00002a2a);
    Put64(r + 8, id);
    Put64(r + 16, time);
    r[24] = 0x0f, r[25] = 0x01, r[26] = 0x01, r[27] = 0x00;
    r[28] = 0x0c;
    r[29] = 0x01;
    Put32(r + 30, templateId);
    Put32(r + 34, definition);

    std::vector<WriterValue> values(kFirstData);
    values[kLevel] = Typed(ValueType::UInt8, event.level);
    values[kOpcode] = Typed(ValueType::UInt8, event.opcode);
    values[kTask] = Typed(ValueType::UInt16, event.task);
    values[kEventId] = Typed(ValueType::UInt16, event.eventId);
    if (event.qualifiers)
      values[kQualifiers] = Typed(ValueType::UInt16, *event.qualifiers);
    values[kKeywords] = Typed(ValueType::HexInt64, static_cast<std::int64_t>(event.keywords));
    values[kTimeCreated] = WriterValue::FileTime(time);
    values[kProcessId] = Typed(ValueType::UInt32, event.processId);
    values[kThreadId] = Typed(ValueType::UInt32, event.threadId);
    values[kRecordId] = Typed(ValueType::UInt64, static_cast<std::int64_t>(event.eventRecordId.value_or(id)));
    values[kVersion] = Typed(ValueType::UInt8, event.version);
    if (!event.userSid.empty())
      values[kUserId] = WriterValue::Sid(event.userSid);
    if (!event.userData)
      for (const auto& d : event.data)
        values.push_back(d.value);

    const std::size_t count = values.size() + (event.userData ? 1 : 0);
    std::vector<std::uint8_t> tail(4 + 4 * count, 0);
    Put32(tail.data(), static_cast<std::uint32_t>(count));
    for (std::size_t i = 0; i < values.size(); ++i)
    {
      Put16(tail.data() + 4 + 4 * i, static_cast<std::uint32_t>(values[i].bytes.size()));
      tail[4 + 4 * i + 2] = values[i].type;
    }
    for (const auto& v : values)
      tail.insert(tail.end(), v.bytes.begin(), v.bytes.end());
    if (event.userData)
    {
      const auto base = static_cast<std::uint32_t>(recordOffset + record.size() + tail.size());
      const std::vector<std::uint8_t> fragment = event.userData(base);
      Put16(tail.data() + 4 + 4 * values.size(), static_cast<std::uint32_t>(fragment.size()));
      tail[4 + 4 * values.size() + 2] = static_cast<std::uint8_t>(ValueType::BinXml);
      tail.insert(tail.end(), fragment.begin(), fragment.end());
    }
    record.insert(record.end(), tail.begin(), tail.end());
    // The fragment ends with an end-of-stream token, as Windows writes it: readers that go on
    // reading tokens after the values (libevtx) would otherwise read the size copy as one.
    record.push_back(0x00);
    record.resize((record.size() + 4 + 7) & ~std::size_t(7), 0);
    const auto size = static_cast<std::uint32_t>(record.size());
    Put32(record.data() + 4, size);
    Put32(record.data() + size - 4, size);

    if (recordOffset + size > kChunkSize)
    {
      if (w.freeOffset == kChunkHeaderSize || attempt > 0)
        return 0;  // does not fit even in an empty chunk
      w.StartChunk(w.chunkIndex + 1);
      continue;
    }
    // A new chunk slot is first added as zeros (readers take it as unused), so that readers
    // counting chunks by the file size never meet a partly written slot.
    const std::uint64_t slotEnd = w.ChunkOffset() + kChunkSize;
    if (w.fileSize < slotEnd)
    {
      if (::ftruncate(w.fd, static_cast<off_t>(slotEnd)) != 0)
        return 0;
      w.fileSize = slotEnd;
    }
    // Commit: record bytes, then the chunk header that covers them, then the file header.
    std::memcpy(w.chunk.data() + recordOffset, record.data(), size);
    if (!w.WriteAt(w.ChunkOffset() + recordOffset, record.data(), size))
      return 0;
    if (known == w.templates.end())
    {
      w.templates.emplace(shape, definition);
      Put32(w.chunk.data() + 384 + 4 * std::size_t(templateId % 32), definition);
    }
    w.freeOffset = recordOffset + size;
    w.nextRecordId = id + 1;
    if (!w.CommitChunkHeader(id, recordOffset))
      return 0;
    if (!w.CommitFileHeader())
      return 0;
    return id;
  }
  return 0;
}
} // namespace evtx
