// Basic .evtx types shared by the reader, the renderer and the writer: header layouts,
// value type codes, typed value views and status codes. Everything here is plain data.
#pragma once

#include <cstddef>
#include <cstdint>

namespace evtx
{
inline constexpr std::size_t kFileHeaderSize = 4096;
inline constexpr std::size_t kChunkSize = 65536;
inline constexpr std::size_t kChunkHeaderSize = 512;

// Result of a read or decode step. Reading never throws for bad data: it reports one of these.
enum class Status : std::uint8_t
{
  Ok,
  IoError,            // the OS refused a read or an open
  NotEvtx,            // the file header signature is wrong
  Truncated,          // fewer bytes than the structure needs
  Empty,              // an unused (all-zero) chunk slot
  BadSignature,       // a chunk or record signature is wrong
  BadHeaderChecksum,  // the chunk header CRC32 does not match
  BadData,            // binary XML or a value cannot be decoded
  TooDeep,            // nesting beyond the decoder's limit
};
const char* StatusText(Status status) noexcept;

// Substitution and value type codes as stored in binary XML. kArrayFlag marks an array.
enum class ValueType : std::uint8_t
{
  Null = 0x00,
  String = 0x01,      // UTF-16LE
  AnsiString = 0x02,  // 8-bit text
  Int8 = 0x03,
  UInt8 = 0x04,
  Int16 = 0x05,
  UInt16 = 0x06,
  Int32 = 0x07,
  UInt32 = 0x08,
  Int64 = 0x09,
  UInt64 = 0x0a,
  Real32 = 0x0b,
  Real64 = 0x0c,
  Bool = 0x0d,        // 32-bit
  Binary = 0x0e,
  Guid = 0x0f,
  SizeT = 0x10,       // 4 or 8 bytes
  FileTime = 0x11,
  SystemTime = 0x12,
  Sid = 0x13,
  HexInt32 = 0x14,
  HexInt64 = 0x15,
  EvtHandle = 0x20,
  BinXml = 0x21,      // nested binary XML fragment
  EvtXml = 0x23,
};
inline constexpr std::uint8_t kArrayFlag = 0x80;

// A typed value: the raw type code (array flag included) and a view of its little-endian bytes.
// The bytes live in the chunk the value came from; the view is valid while that chunk is.
struct Value
{
  std::uint8_t type = 0;
  const std::uint8_t* data = nullptr;
  std::uint32_t size = 0;

  ValueType BaseType() const noexcept { return static_cast<ValueType>(type & 0x7f); }
  bool IsArray() const noexcept { return (type & kArrayFlag) != 0; }
  bool IsNull() const noexcept { return type == 0 || size == 0; }
};

// The 4 KiB file header (only its first 128 bytes carry data).
struct FileHeader
{
  std::uint64_t firstChunk = 0;     // number of the oldest chunk
  std::uint64_t lastChunk = 0;      // number of the newest chunk
  std::uint64_t nextRecordId = 0;   // identifier the next written record will get
  std::uint32_t headerSize = 0;     // 128
  std::uint16_t minorVersion = 0;   // 1 or 2
  std::uint16_t majorVersion = 0;   // 3
  std::uint16_t headerBlockSize = 0; // 4096
  std::uint16_t chunkCount = 0;     // chunks in use
  std::uint32_t flags = 0;          // 1 dirty, 2 full
  std::uint32_t checksum = 0;       // CRC32 of the first 120 bytes
  bool checksumOk = false;
};

// The 512-byte chunk header.
struct ChunkHeader
{
  std::uint64_t firstRecordNumber = 0;
  std::uint64_t lastRecordNumber = 0;
  std::uint64_t firstRecordId = 0;    // EventRecordID of the first record
  std::uint64_t lastRecordId = 0;     // EventRecordID of the last record
  std::uint32_t headerSize = 0;       // 128
  std::uint32_t lastRecordOffset = 0; // chunk offset of the last record
  std::uint32_t freeSpaceOffset = 0;  // end of the records, chunk offset
  std::uint32_t recordsChecksum = 0;  // CRC32 of bytes [512, freeSpaceOffset)
  std::uint32_t flags = 0;
  std::uint32_t headerChecksum = 0;   // CRC32 of bytes [0,120) and [128,512)
};

// One event record of a chunk, located but not decoded.
struct Record
{
  std::uint64_t id = 0;           // EventRecordID
  std::uint64_t writtenTime = 0;  // FILETIME (100 ns since 1601, UTC)
  std::uint32_t offset = 0;       // chunk offset of the record
  std::uint32_t size = 0;         // whole record size
};
} // namespace evtx
