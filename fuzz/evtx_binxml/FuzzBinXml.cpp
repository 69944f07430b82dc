// Fuzzes the binary XML decoder: the input becomes the binary XML of the first record of an
// otherwise valid chunk (record at offset 512, its XML at 536, as the seeds were written), then
// the record is decoded and rendered both ways.
#include "Evtx/Chunk.h"
#include "Evtx/Crc32.h"
#include "Evtx/Event.h"
#include "Evtx/Render.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace
{
void Put32(std::uint8_t* p, std::uint32_t v)
{
  std::memcpy(p, &v, 4);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  constexpr std::size_t kMax = evtx::kChunkSize - evtx::kChunkHeaderSize - 32;
  if (size > kMax)
    size = kMax;
  std::vector<std::uint8_t> chunk(evtx::kChunkSize, 0);
  std::uint8_t* h = chunk.data();
  std::copy_n("ElfChnk", 8, h);  // the signature includes its NUL
  const auto recordSize = static_cast<std::uint32_t>((24 + size + 4 + 7) & ~std::size_t(7));
  std::uint8_t* r = h + evtx::kChunkHeaderSize;
  Put32(r, 0x00002a2a);
  Put32(r + 4, recordSize);
  r[8] = 1;
  std::memcpy(r + 24, data, size);
  Put32(r + recordSize - 4, recordSize);
  Put32(h + 48, static_cast<std::uint32_t>(evtx::kChunkHeaderSize + recordSize));
  Put32(h + 124, evtx::Crc32(h + 128, evtx::kChunkHeaderSize - 128, evtx::Crc32(h, 120)));

  evtx::Chunk parsed;
  if (parsed.Load(chunk.data(), chunk.size()) != evtx::Status::Ok || parsed.Records().empty())
    return 0;
  const evtx::Record& record = parsed.Records().front();
  std::string xml;
  std::string slow;
  evtx::EventTree tree;
  const evtx::Status rendered = parsed.RenderXml(record, xml);
  if (parsed.Decode(record, tree) == evtx::Status::Ok)
  {
    evtx::RenderTree(tree, slow);
    if (rendered == evtx::Status::Ok && slow != xml)
      __builtin_trap();
    evtx::SystemValues sys;
    tree.System(sys);
  }
  return 0;
}
