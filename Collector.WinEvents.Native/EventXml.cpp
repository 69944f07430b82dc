#include "EventXml.h"

#include "EventNumbers.h"
#include "EventValues.h"

#include "KeldaKernel/Exceptions.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>

#if defined(__SSE2__)
#  include <emmintrin.h>
#endif

namespace collector::ni::impl
{
namespace
{
// Element and attribute names, made once per process (static storage) and reused by every
// lookup.
namespace node_names
{
constexpr char Provider[] = "Provider";
constexpr char Name[] = "Name";
constexpr char TimeCreated[] = "TimeCreated";
constexpr char SystemTime[] = "SystemTime";
constexpr char EventRecordID[] = "EventRecordID";
constexpr char Channel[] = "Channel";
constexpr char Level[] = "Level";
constexpr char EventID[] = "EventID";
constexpr char Qualifiers[] = "Qualifiers";
constexpr char Security[] = "Security";
constexpr char UserID[] = "UserID";
constexpr char EventData[] = "EventData";
constexpr char System[] = "System";
} // namespace node_names

// Whether a node's name is `expected`: inline, stopping at the first differing byte (a name
// shorter than `expected` differs at its terminating zero), where a strcmp call costs more than
// the few bytes it compares.
template <std::size_t Size>
bool NameIs(const char* name, const char (&expected)[Size]) noexcept
{
  for (std::size_t i = 0; i < Size; ++i)
  {
    if (name[i] != expected[i])
      return false;
  }
  return true;
}

constexpr char32_t replacement = 0xFFFD;

// Writes one code point as wide units (a surrogate pair where wchar_t is 16 bits; a 4-byte UTF-8
// sequence then gives two units for its four bytes, so the worst-case size still holds).
wchar_t* PutCodePoint(wchar_t* out, char32_t c)
{
  if constexpr (sizeof(wchar_t) == 2)
  {
    if (c >= 0x10000)
    {
      c -= 0x10000;
      *out++ = static_cast<wchar_t>(0xD800 + (c >> 10));
      *out++ = static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
      return out;
    }
  }
  *out++ = static_cast<wchar_t>(c);
  return out;
}

char* PutUtf8(char* out, char32_t c)
{
  if (c < 0x800)
  {
    *out++ = static_cast<char>(0xC0 | (c >> 6));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  else if (c < 0x10000)
  {
    *out++ = static_cast<char>(0xE0 | (c >> 12));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  else
  {
    *out++ = static_cast<char>(0xF0 | (c >> 18));
    *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return out;
}

bool IsText(pugi::xml_node_type type) noexcept
{
  return type == pugi::node_pcdata || type == pugi::node_cdata;
}

// Turns the values of the parsed document into wide text. A document of ASCII only, which the
// parse left in place (no reference expanded, no line end normalised), holds each value at the
// byte offset that is its place in the rendered text: the value is copied from the rendered
// text, rather than converted back from its UTF-8 copy. Any other value is converted.
class CValueSource
{
public:
  // `wide` is the rendered text when the document holds the values where it does, else null.
  CValueSource(const char* utf8, std::size_t length, const wchar_t* wide) noexcept
    : m_utf8(utf8), m_end(utf8 + length), m_wide(wide)
  {
  }

  void Append(const char* value, tstring& out) const
  {
    if (*value == '\0')
      return;
    // A value that is not in the document (a missing attribute's empty text) is converted.
    const std::less<const char*> before;
    if (m_wide != nullptr && !before(value, m_utf8) && before(value, m_end))
      out.append(m_wide + (value - m_utf8), std::strlen(value));
    else
      AppendUtf8(out, value);
  }

private:
  const char* m_utf8;
  const char* m_end;
  const wchar_t* m_wide;
};

// All the text below a node, in document order (the DOM's "text" of an element). The document
// is parsed with parse_embed_pcdata: an element's first text, when it comes before any child, is
// the element's own value rather than a child node.
void AppendText(const CValueSource& source, const pugi::xml_node& node, tstring& out)
{
  source.Append(node.value(), out);
  if (IsText(node.type()))
    return;
  for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling())
    AppendText(source, child, out);
}

void AssignText(const CValueSource& source, const pugi::xml_node& node, tstring& out)
{
  out.clear();
  if (node)
    AppendText(source, node, out);
}

void AssignAttribute(const CValueSource& source, const pugi::xml_node& node, const char* name, tstring& out)
{
  out.clear();
  if (node)
    source.Append(node.attribute(name).value(), out);
}

struct SFoundNodes
{
  pugi::xml_node Provider;
  pugi::xml_node TimeCreated;
  pugi::xml_node EventRecordID;
  pugi::xml_node Channel;
  pugi::xml_node Level;
  pugi::xml_node EventID;
  pugi::xml_node Security;
  pugi::xml_node EventData;
};

// The System elements a record reads, by name; the first of each name wins.
void FindSystemNodes(const pugi::xml_node& system, SFoundNodes& found)
{
  std::size_t missing = 7;
  for (pugi::xml_node node = system.first_child(); node && missing > 0; node = node.next_sibling())
  {
    if (node.type() != pugi::node_element)
      continue;
    const char* name = node.name();
    pugi::xml_node* slot = nullptr;
    // The first letter tells the candidates apart without comparing every name.
    switch (name[0])
    {
    case 'P':
      slot = NameIs(name, node_names::Provider) ? &found.Provider : nullptr;
      break;
    case 'T':
      slot = NameIs(name, node_names::TimeCreated) ? &found.TimeCreated : nullptr;
      break;
    case 'E':
      slot = NameIs(name, node_names::EventID)         ? &found.EventID
             : NameIs(name, node_names::EventRecordID) ? &found.EventRecordID
                                                                 : nullptr;
      break;
    case 'C':
      slot = NameIs(name, node_names::Channel) ? &found.Channel : nullptr;
      break;
    case 'L':
      slot = NameIs(name, node_names::Level) ? &found.Level : nullptr;
      break;
    case 'S':
      slot = NameIs(name, node_names::Security) ? &found.Security : nullptr;
      break;
    default:
      break;
    }
    if (slot != nullptr && !*slot)
    {
      *slot = node;
      --missing;
    }
  }
}

// An event is <Event><System>...</System><EventData>...</EventData></Event> (or UserData in
// place of EventData): the System values are children of System, the data is the EventData
// child of the root. Looking there, rather than through the whole tree, keeps events with
// large UserData as cheap as the others.
SFoundNodes FindNodes(const pugi::xml_document& document)
{
  SFoundNodes found;
  const pugi::xml_node root = document.document_element();
  for (pugi::xml_node node = root.first_child(); node; node = node.next_sibling())
  {
    if (node.type() != pugi::node_element)
      continue;
    const char* name = node.name();
    if (NameIs(name, node_names::System))
    {
      if (!found.Provider && !found.EventID && !found.Channel)
        FindSystemNodes(node, found);
    }
    else if (!found.EventData && NameIs(name, node_names::EventData))
    {
      found.EventData = node;
    }
  }
  return found;
}
} // namespace

void AppendUtf8(tstring& out, std::string_view utf8)
{
  // A code point never takes more wide units than UTF-8 bytes: size once for the worst case,
  // write in place, then trim.
  const std::size_t start = out.size();
  out.resize(start + utf8.size());
  wchar_t* target = out.data() + start;
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  const auto* const end = p + utf8.size();
  while (p < end)
  {
#if defined(__SSE2__)
    if constexpr (sizeof(wchar_t) == 4)
    {
      // Runs of ASCII, by far the most common text in events, are widened sixteen at a time.
      const __m128i zero = _mm_setzero_si128();
      while (end - p >= 16)
      {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        if (_mm_movemask_epi8(bytes) != 0)
          break;
        const __m128i low = _mm_unpacklo_epi8(bytes, zero);
        const __m128i high = _mm_unpackhi_epi8(bytes, zero);
        auto* to = reinterpret_cast<__m128i*>(target);
        _mm_storeu_si128(to, _mm_unpacklo_epi16(low, zero));
        _mm_storeu_si128(to + 1, _mm_unpackhi_epi16(low, zero));
        _mm_storeu_si128(to + 2, _mm_unpacklo_epi16(high, zero));
        _mm_storeu_si128(to + 3, _mm_unpackhi_epi16(high, zero));
        target += 16;
        p += 16;
      }
    }
#endif
    // Runs of ASCII, by far the most common text in events, are widened eight at a time.
    while (end - p >= 8)
    {
      std::uint64_t bytes = 0;
      std::memcpy(&bytes, p, sizeof(bytes));
      if ((bytes & 0x8080808080808080ull) != 0)
        break;
      for (int k = 0; k < 8; ++k)
        target[k] = static_cast<wchar_t>(p[k]);
      target += 8;
      p += 8;
    }
    // The ASCII before the next other byte (within the block that stopped the runs above), or up
    // to the end of a short text, in one loop.
    while (p < end && *p < 0x80)
      *target++ = static_cast<wchar_t>(*p++);
    if (p == end)
      break;
    const unsigned char lead = *p;
    int length = 0;
    char32_t c = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0)
    {
      length = 2;
      c = lead & 0x1F;
      minimum = 0x80;
    }
    else if ((lead & 0xF0) == 0xE0)
    {
      length = 3;
      c = lead & 0x0F;
      minimum = 0x800;
    }
    else if ((lead & 0xF8) == 0xF0)
    {
      length = 4;
      c = lead & 0x07;
      minimum = 0x10000;
    }
    bool ok = length > 0 && end - p >= length;
    for (int i = 1; ok && i < length; ++i)
    {
      ok = (p[i] & 0xC0) == 0x80;
      c = (c << 6) | (p[i] & 0x3F);
    }
    if (!ok || c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
    {
      c = replacement;
      length = 1;
    }
    target = PutCodePoint(target, c);
    p += length;
  }
  out.resize(static_cast<std::size_t>(target - out.data()));
}

std::size_t WideToUtf8(std::wstring_view wide, std::vector<char>& buffer)
{
  // Four bytes per character at most; the buffer only grows, so a warm reader writes in place.
  const std::size_t worst = wide.size() * 4 + 1;
  if (buffer.size() < worst)
    buffer.resize(worst);
  char* out = buffer.data();
  const std::size_t size = wide.size();
  for (std::size_t i = 0; i < size; ++i)
  {
#if defined(__SSE2__)
    if constexpr (sizeof(wchar_t) == 4)
    {
      // Sixteen ASCII characters at a time: most of an event's XML is markup and ASCII text.
      const __m128i high = _mm_set1_epi32(~0x7F);
      const auto isAscii = [&high](__m128i bits) {
        return _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(bits, high), _mm_setzero_si128())) == 0xFFFF;
      };
      const auto narrow = [](__m128i a, __m128i b, __m128i c, __m128i d) {
        return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
      };
      // Thirty-two while the text stays ASCII, with one test per block.
      while (i + 32 <= size)
      {
        const auto* from = reinterpret_cast<const __m128i*>(wide.data() + i);
        const __m128i a = _mm_loadu_si128(from);
        const __m128i b = _mm_loadu_si128(from + 1);
        const __m128i c = _mm_loadu_si128(from + 2);
        const __m128i d = _mm_loadu_si128(from + 3);
        const __m128i e = _mm_loadu_si128(from + 4);
        const __m128i f = _mm_loadu_si128(from + 5);
        const __m128i g = _mm_loadu_si128(from + 6);
        const __m128i h = _mm_loadu_si128(from + 7);
        if (!isAscii(_mm_or_si128(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d)),
                                  _mm_or_si128(_mm_or_si128(e, f), _mm_or_si128(g, h)))))
          break;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), narrow(a, b, c, d));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), narrow(e, f, g, h));
        out += 32;
        i += 32;
      }
      while (i + 16 <= size)
      {
        const auto* from = reinterpret_cast<const __m128i*>(wide.data() + i);
        const __m128i a = _mm_loadu_si128(from);
        const __m128i b = _mm_loadu_si128(from + 1);
        const __m128i c = _mm_loadu_si128(from + 2);
        const __m128i d = _mm_loadu_si128(from + 3);
        if (!isAscii(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))))
          break;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), narrow(a, b, c, d));
        out += 16;
        i += 16;
      }
    }
#endif
    // Sixteen ASCII characters at a time, in fixed-size loops the compiler turns into vector
    // code: most of an event's XML is markup and ASCII text.
    while (i + 16 <= size)
    {
      // A local copy: the output cannot alias it, so both loops vectorise.
      wchar_t block[16];
      std::memcpy(block, wide.data() + i, sizeof(block));
      std::uint32_t any = 0;
      for (const wchar_t c : block)
        any |= static_cast<std::uint32_t>(c);
      if ((any & ~0x7Fu) != 0)
        break;
      char narrow[16];
      for (std::size_t k = 0; k < 16; ++k)
        narrow[k] = static_cast<char>(block[k]);
      std::memcpy(out, narrow, sizeof(narrow));
      out += 16;
      i += 16;
    }
    // The ASCII before the next other character (within the block that stopped the runs above),
    // or up to the end of a short text, in one loop.
    while (i < size && static_cast<char32_t>(wide[i]) < 0x80)
      *out++ = static_cast<char>(wide[i++]);
    if (i >= size)
      break;
    auto c = static_cast<char32_t>(wide[i]);
    if constexpr (sizeof(wchar_t) == 2)
    {
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < size && wide[i + 1] >= 0xDC00 && wide[i + 1] <= 0xDFFF)
      {
        c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(wide[i + 1]) - 0xDC00);
        ++i;
      }
    }
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
      c = replacement;
    out = PutUtf8(out, c);
  }
  return static_cast<std::size_t>(out - buffer.data());
}

void WideToUtf8(std::wstring_view wide, std::string& out)
{
  std::vector<char> buffer;
  out.assign(buffer.data(), WideToUtf8(wide, buffer));
}

void CEventXmlReader::Read(std::wstring_view xml, SEventXmlText& text)
{
  const std::size_t converted = WideToUtf8(xml, m_utf8);
  std::size_t length = converted;
  // The rendered text may carry its terminating zero; the document ends before it. Only a zero
  // character becomes a zero byte, and the UTF-8 form (a byte per ASCII character) is quicker to
  // search than the wide one.
  if (const void* zero = std::memchr(m_utf8.data(), '\0', length); zero != nullptr)
    length = static_cast<std::size_t>(static_cast<const char*>(zero) - m_utf8.data());
  // A data value of white space only is a value: keep lone white-space text. Attribute values
  // are not white-space normalised: the attributes read here (names, times, numbers, SIDs)
  // hold none, and the parse is cheaper without.
  // An element's leading text is kept as its value (parse_embed_pcdata): one node fewer for
  // every element holding a value, and AppendText reads it first, where it stands.
  unsigned options =
    pugi::parse_minimal | pugi::parse_cdata | pugi::parse_ws_pcdata_single | pugi::parse_embed_pcdata;
  // Line ends are normalised and references expanded only in a text that has them: without a
  // carriage return or an ampersand both passes leave the document as it is, and cost time.
  if (std::memchr(m_utf8.data(), '\r', length) != nullptr)
    options |= pugi::parse_eol;
  if (std::memchr(m_utf8.data(), '&', length) != nullptr)
    options |= pugi::parse_escapes;
  const pugi::xml_parse_result parsed =
    m_document.load_buffer_inplace(m_utf8.data(), length, options, pugi::encoding_utf8);
  if (!parsed)
    KELDA_THROW(CHResultException(E_FAIL, L"The event XML is not well-formed"));

  // One byte per character: every character is ASCII.
  const bool inPlace = converted == xml.size() && (options & (pugi::parse_eol | pugi::parse_escapes)) == 0;
  const CValueSource source(m_utf8.data(), length, inPlace ? xml.data() : nullptr);

  const SFoundNodes found = FindNodes(m_document);
  AssignAttribute(source, found.Provider, node_names::Name, text.Provider);
  AssignAttribute(source, found.TimeCreated, node_names::SystemTime, text.SystemTime);
  AssignText(source, found.EventRecordID, text.EventRecordId);
  AssignText(source, found.Channel, text.Channel);
  AssignText(source, found.Level, text.Level);
  AssignText(source, found.EventID, text.EventId);
  AssignAttribute(source, found.EventID, node_names::Qualifiers, text.Qualifiers);
  AssignAttribute(source, found.Security, node_names::UserID, text.UserId);
  // A list moved out with the values comes back empty: sized as the last one, it grows once.
  if (text.Data.capacity() < m_lastDataCount)
    text.Data.reserve(m_lastDataCount);
  // Strings already in the list, or left over from a longer list, are written over in place.
  std::size_t count = 0;
  const auto nextItem = [&]() -> tstring&
  {
    if (count == text.Data.size())
    {
      if (m_spareData.empty())
        text.Data.emplace_back();
      else
      {
        text.Data.push_back(std::move(m_spareData.back()));
        m_spareData.pop_back();
      }
    }
    tstring& item = text.Data[count++];
    item.clear();
    return item;
  };
  // Text before EventData's first child is the element's own value (parse_embed_pcdata): the
  // first item, as its text node would have been.
  if (const char* leading = found.EventData.value(); *leading != '\0')
    source.Append(leading, nextItem());
  for (pugi::xml_node child = found.EventData.first_child(); child; child = child.next_sibling())
  {
    if (const pugi::xml_node_type type = child.type(); type == pugi::node_element || IsText(type))
      AppendText(source, child, nextItem());
  }
  while (text.Data.size() > count)
  {
    if (m_spareData.size() < maxSpareData)
      m_spareData.push_back(std::move(text.Data.back()));
    text.Data.pop_back();
  }
  m_lastDataCount = count;
}

SEventValues MakeEventValues(SEventXmlText& text)
{
  SEventValues values;
  values.SourceName = std::move(text.Provider);
  values.CreatedTime = ParseEventTime(text.SystemTime);
  values.EventType = EventTypeFromLevel(WToI(text.Level));
  values.Data = std::move(text.Data);
  // The identifier is read once for both values.
  const __int64 eventId = WToI64(text.EventId);
  values.EventCode = SaturateToInt(eventId);
  values.InternalId = MakeInternalId(WToI64(text.Qualifiers), eventId);
  values.RecordId = WToI(text.EventRecordId);
  text.Provider.clear();
  text.Data.clear();
  return values;
}
} // namespace collector::ni::impl
