// One 64 KiB chunk of an .evtx file: its header, its records, its string and template tables.
// A Chunk decodes a record into an EventTree (no XML) or renders it to Windows' event XML.
// Templates are compiled once per chunk on first use and reused by every record that names them,
// or taken from a TemplateCache shared with the reader's other chunks.
//
// Thread safety: a Chunk (and the File that loaded it) is used by one thread at a time; decoding
// and rendering update its template cache. Trees and values point into the chunk: keep the chunk
// (its shared_ptr) alive while you use them.
#pragma once

#include "Evtx/Types.h"

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace evtx
{
class EventTree;
class TemplateCache;

struct RenderOptions
{
  // Writes CR and LF inside values as "&#13;" and "&#10;" so that an event stays on one line,
  // and the controls XML forbids as their control pictures (TextEscape::XmlOneLine).
  bool escapeLineBreaks = false;
};

class Chunk
{
public:
  Chunk();
  ~Chunk();
  Chunk(const Chunk&) = delete;
  Chunk& operator=(const Chunk&) = delete;

  // Takes a copy of one chunk's bytes and checks it: signature, header CRC, then the records
  // in [512, freeSpaceOffset) one by one (signature, size, trailing size copy). Only a bad
  // signature (BadSignature, or Empty for an unused slot) fails the load: Windows leaves stale
  // CRCs in logs that were not closed cleanly, so CRC mismatches are reported by
  // HeaderChecksumOk/RecordsChecksumOk and the records that pass their own checks are read.
  // The first bad record ends the record list (RecordsTruncated).
  Status Load(const std::uint8_t* bytes, std::size_t size, std::uint32_t index = 0);
  // The same check on bytes already written into Buffer() (64 KiB): a reader fills the chunk's
  // own storage directly, so a load copies nothing.
  std::uint8_t* Buffer();
  Status LoadBuffer(std::uint32_t index);
  // Takes compiled templates from, and gives them to, the other chunks that share `cache`
  // (File does this for the chunks it loads); kept across loads.
  void ShareTemplates(std::shared_ptr<TemplateCache> cache);

  const ChunkHeader& Header() const noexcept { return header_; }
  std::uint32_t Index() const noexcept { return index_; }
  // False when the header CRC32 does not match (the header may be stale or damaged).
  bool HeaderChecksumOk() const noexcept { return headerChecksumOk_; }
  // False when the CRC32 of the record area differs from the header's (records are still read).
  // Computed at the first call after a load: reading the records does not need it.
  bool RecordsChecksumOk() const noexcept;
  // True when a record failed its checks and the walk stopped before freeSpaceOffset.
  bool RecordsTruncated() const noexcept { return recordsTruncated_; }
  // The records that passed their checks, in chunk order.
  const std::vector<Record>& Records() const noexcept { return records_; }
  const std::uint8_t* Data() const noexcept { return data_.data(); }

  // Decodes a record's event into tree (cleared first), template instances expanded.
  Status Decode(const Record& record, EventTree& tree);
  // Appends the record's event XML, as Windows renders it, in UTF-8.
  Status RenderXml(const Record& record, std::string& out, const RenderOptions& options = {});
  // Appends every record's XML followed by '\n', as RenderXml one record after another would;
  // a record that fails adds nothing and is listed in `failed`, in chunk order.
  void RenderXmlLines(std::string& out, const RenderOptions& options,
                      std::vector<std::pair<Record, Status>>& failed);

  struct Impl;

private:
  // Drops what the previous load found (records, header, caches) before a new one.
  void Forget(std::uint32_t index);

  std::vector<std::uint8_t> data_;
  ChunkHeader header_;
  std::uint32_t index_ = 0;
  bool headerChecksumOk_ = false;
  // End of the record area the header's CRC32 covers; 0 when its free-space offset makes no sense.
  std::uint32_t recordsEnd_ = 0;
  // RecordsChecksumOk once computed (0 until then, 1 bad, 2 good); atomic, as threads that share
  // a loaded chunk for reading may ask at once.
  mutable std::atomic<std::uint8_t> recordsChecksum_{0};
  bool recordsTruncated_ = false;
  std::vector<Record> records_;
  std::unique_ptr<Impl> impl_;
};
} // namespace evtx
