// Fuzzes the .evtx reader: the input is a file image (file header, then 64 KiB chunks, the last
// one padded with zeros) or, without the file signature, a single chunk. A file image is read
// twice: chunk by chunk from memory, and through the file reader (header, chunk order, chunk
// loads) from an in-memory file. Every record is decoded, rendered both ways and its System
// values read.
#include "Evtx/Event.h"
#include "Evtx/File.h"
#include "Evtx/Render.h"
#include "Evtx/ValueText.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace
{
void Exercise(evtx::Chunk& chunk)
{
  evtx::EventTree tree;
  std::string xml;
  std::string slow;
  std::wstring wide;
  evtx::RenderOptions oneLine;
  oneLine.escapeLineBreaks = true;
  for (const evtx::Record& record : chunk.Records())
  {
    xml.clear();
    slow.clear();
    const evtx::Status rendered = chunk.RenderXml(record, xml);
    const evtx::Status decoded = chunk.Decode(record, tree);
    if (decoded == evtx::Status::Ok)
    {
      evtx::RenderTree(tree, slow);
      // The two renderers must agree whenever both succeed.
      if (rendered == evtx::Status::Ok && slow != xml)
        __builtin_trap();
      evtx::SystemValues sys;
      tree.System(sys);
      for (std::uint32_t c = tree.FirstChild(tree.EventData()); c != evtx::kNoNode; c = tree[c].nextSibling)
        (void)tree.Text(c);
      (void)evtx::ValueText(sys.userId);
    }
    xml.clear();
    (void)chunk.RenderXml(record, xml, oneLine);
    // Widened as EvtRender does it: the counted size must hold what is written.
    wide.assign(evtx::WideLengthOfUtf8(xml), L'\0');
    if (evtx::WidenUtf8(xml, wide.data()) != wide.size())
      __builtin_trap();
  }
}
// The whole file path: what a query over a log file does, from an in-memory file.
void ExerciseFile(const std::uint8_t* data, std::size_t size)
{
  const int fd = memfd_create("fuzz.evtx", 0);
  if (fd < 0)
    return;
  if (write(fd, data, size) == static_cast<ssize_t>(size))
  {
    evtx::File file;
    if (file.Open("/proc/self/fd/" + std::to_string(fd)) == evtx::Status::Ok)
    {
      for (const std::uint32_t index : evtx::ChunksInLogOrder(file))
      {
        evtx::ChunkHeader header;
        (void)file.ReadChunkHeader(index, header);
        std::shared_ptr<evtx::Chunk> chunk;
        if (file.LoadChunk(index, chunk) == evtx::Status::Ok && chunk)
          Exercise(*chunk);
      }
      (void)file.Refresh();
    }
  }
  close(fd);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  std::vector<std::uint8_t> padded(evtx::kChunkSize, 0);
  evtx::Chunk chunk;
  if (size >= 8 && std::memcmp(data, "ElfFile\0", 8) == 0)
  {
    evtx::FileHeader header;
    (void)evtx::ParseFileHeader(data, size, header);
    for (std::size_t offset = evtx::kFileHeaderSize; offset < size; offset += evtx::kChunkSize)
    {
      const std::size_t n = std::min(evtx::kChunkSize, size - offset);
      std::fill(padded.begin(), padded.end(), 0);
      std::memcpy(padded.data(), data + offset, n);
      if (chunk.Load(padded.data(), padded.size()) == evtx::Status::Ok)
        Exercise(chunk);
    }
    ExerciseFile(data, size);
    return 0;
  }
  std::memcpy(padded.data(), data, std::min(size, evtx::kChunkSize));
  if (chunk.Load(padded.data(), padded.size()) == evtx::Status::Ok)
    Exercise(chunk);
  return 0;
}
