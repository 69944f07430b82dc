// Fuzzes the query parser (query lists and bare XPath) and the evaluation of what it accepts
// against a fixed event: malformed input must end in QueryError, never in a crash.
#include "Evtx/Query/Query.h"
#include "Evtx/Query/Utf.h"
#include "Evtx/Query/XmlEventView.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace
{
const wchar_t* const kEvent =
  LR"(<Event><System><Provider Name="P"/><EventID Qualifiers="16384">7036</EventID><Level>4</Level>)"
  LR"(<Keywords>0x8080000000000000</Keywords><TimeCreated SystemTime="2024-05-01T10:20:30.1234567Z"/>)"
  LR"(<EventRecordID>42</EventRecordID><Channel>System</Channel></System><EventData><Data Name="a">x</Data>)"
  LR"(<Data>1</Data></EventData><UserData><U><V>y</V></U></UserData></Event>)";
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  static const evtx::query::XmlEventView view(kEvent);
  const std::wstring text =
    evtx::query::FromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
  try
  {
    const auto query = evtx::query::Query::Parse(text, L"System");
    evtx::query::EvalContext context;
    context.nowFileTime = 133590000000000000ull;
    for (std::size_t c = 0; c < query.Channels().size(); ++c)
    {
      (void)query.MinRecordId(c);
      (void)query.SelectsAll(c);
      (void)query.Matches(c, view, context);
    }
  }
  catch (const evtx::query::QueryError&)
  {
  }
  return 0;
}
