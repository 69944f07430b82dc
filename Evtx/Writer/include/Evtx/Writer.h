// A small .evtx writer for tests, benchmarks and fuzz seeds. It writes events as a Windows
// log does: one template per event shape and chunk, substitution values of any type, many
// chunks, and appending in place to a file that readers may be reading.
//
//   evtx::Writer writer;
//   writer.Create("x.evtx");                 // or Open() to append to an existing file
//   evtx::WriterEvent e; e.provider = "P"; e.eventId = 1; e.data.push_back({"Name", evtx::WriterValue::Text("v")});
//   writer.Append(e);                        // committed on return: readers see all of it or none
//
// Commit order of one append: the record bytes past the chunk's free space, then the chunk
// header (free space, last record id, both CRCs) in one write, then the file header. A reader
// trusts only records below a chunk header whose CRC holds, so it never sees a torn record.
#pragma once

#include "Evtx/Types.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace evtx
{
// A substitution value: type code (array flag allowed) and its little-endian bytes.
struct WriterValue
{
  std::uint8_t type = 0;
  std::vector<std::uint8_t> bytes;

  static WriterValue Null();
  static WriterValue Text(const std::string& utf8);         // String (UTF-16LE)
  static WriterValue Ansi(const std::string& text);         // AnsiString
  static WriterValue Int(ValueType type, std::int64_t v);   // any integer, hex, size_t, bool type
  static WriterValue Real32(float v);
  static WriterValue Real64(double v);
  static WriterValue Bool(bool v);
  static WriterValue Binary(std::vector<std::uint8_t> bytes);
  static WriterValue Guid(const std::uint8_t (&bytes)[16]);  // Windows GUID layout
  static WriterValue FileTime(std::uint64_t filetime);
  static WriterValue SystemTime(std::uint16_t year, std::uint16_t month, std::uint16_t day,
                                std::uint16_t hour, std::uint16_t minute, std::uint16_t second,
                                std::uint16_t milliseconds);
  static WriterValue Sid(const std::string& text);          // "S-1-5-21-..."
  static WriterValue TextArray(const std::vector<std::string>& items);
  static WriterValue IntArray(ValueType type, const std::vector<std::int64_t>& items);
};

struct EventData
{
  std::string name;   // the Data element's Name attribute ("" for none)
  WriterValue value;
};

struct WriterEvent
{
  std::string provider = "Test-Provider";
  std::string providerGuid;             // "{...}" or empty for none
  std::uint16_t eventId = 0;
  std::optional<std::uint16_t> qualifiers;
  std::uint8_t version = 0;
  std::uint8_t level = 4;
  std::uint16_t task = 0;
  std::uint8_t opcode = 0;
  std::uint64_t keywords = 0x8000000000000000ull;
  std::uint64_t timeCreated = 0;       // FILETIME; 0 = now
  // The EventRecordID the event shows; unset, the log's own number for the record. A forwarded
  // event keeps the number of its source host while the log numbers its record in order.
  std::optional<std::uint64_t> eventRecordId;
  std::uint32_t processId = 0;
  std::uint32_t threadId = 0;
  std::string channel = "Application";
  std::string computer = "test-host";
  std::string userSid;                 // empty for none
  std::vector<EventData> data;         // EventData/Data children
  // When set, the event carries UserData instead of EventData: a nested binary XML fragment
  // (a BinXml substitution value) made by this function for the chunk offset where it will be
  // stored (use BinXmlBuilder(base)). Lets tests exercise any token.
  std::function<std::vector<std::uint8_t>(std::uint32_t base)> userData;
};

class Writer
{
public:
  Writer();
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // Creates (truncates) a log file. Returns false with a message in error on failure.
  bool Create(const std::string& path, std::string* error = nullptr);
  // Opens an existing log written by this writer and appends after its last record.
  bool Open(const std::string& path, std::string* error = nullptr);
  void Close();

  // Appends one event and commits it; returns the record's number in the log (0 on failure).
  std::uint64_t Append(const WriterEvent& event);
  std::uint64_t NextRecordId() const noexcept;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Builds binary XML fragments token by token (for tests and fuzz seeds). Names are written
// inline each time (valid: a reader follows the name offset).
class BinXmlBuilder
{
public:
  // `base` is the chunk offset where the bytes will be placed (names are chunk offsets).
  explicit BinXmlBuilder(std::uint32_t base = 0) : base_(base) {}
  BinXmlBuilder& FragmentHeader();
  BinXmlBuilder& OpenElement(const std::string& name, bool hasAttributes);
  BinXmlBuilder& Attribute(const std::string& name, bool more = false);
  BinXmlBuilder& CloseStart();
  BinXmlBuilder& CloseEmpty();
  BinXmlBuilder& EndElement();
  BinXmlBuilder& Text(const std::string& utf8);
  BinXmlBuilder& CData(const std::string& utf8);
  BinXmlBuilder& CharRef(std::uint16_t code);
  BinXmlBuilder& EntityRef(const std::string& name);
  BinXmlBuilder& PI(const std::string& target, const std::string& data);
  BinXmlBuilder& Substitution(std::uint16_t index, ValueType type, bool optional);
  BinXmlBuilder& End();
  const std::vector<std::uint8_t>& Bytes() const noexcept { return bytes_; }

private:
  struct Open
  {
    std::size_t sizeAt;
    std::size_t attributeSizeAt;
  };
  void Name(const std::string& name);
  void EndAttributes();
  void EndElementSize();
  std::uint32_t base_;
  std::vector<std::uint8_t> bytes_;
  std::vector<Open> elements_;
};
} // namespace evtx
