// Human-readable names of read and decode results, for messages and logs.
#include "Evtx/Types.h"

namespace evtx
{
const char* StatusText(Status status) noexcept
{
  switch (status)
  {
  case Status::Ok: return "ok";
  case Status::IoError: return "read error";
  case Status::NotEvtx: return "not an .evtx file (bad file signature)";
  case Status::Truncated: return "truncated data";
  case Status::Empty: return "unused chunk";
  case Status::BadSignature: return "bad chunk or record signature";
  case Status::BadHeaderChecksum: return "bad chunk header checksum";
  case Status::BadData: return "undecodable binary XML";
  case Status::TooDeep: return "binary XML nested too deeply";
  }
  return "unknown status";
}
} // namespace evtx
