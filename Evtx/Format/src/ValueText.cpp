// Text forms of substitution values as they appear in Windows' rendered event XML (the README's
// "Event text forms on Windows" gives the Windows-rendered source of each).
//
// | Type (code)         | Text form                                                       |
// |---------------------|-----------------------------------------------------------------|
// | Null (0x00)         | empty                                                           |
// | String (0x01)       | the UTF-16 text, trailing NULs dropped                          |
// | AnsiString (0x02)   | the bytes as Latin-1 text, trailing NULs dropped                |
// | Int8..Int64         | signed decimal: -5                                              |
// | UInt8..UInt64       | unsigned decimal: 4624                                          |
// | Real32, Real64      | shortest decimal that reads back the same value: 1.5, 1e+20     |
// | Bool (0x0d)         | true / false (any nonzero 32-bit value is true)                 |
// | Binary (0x0e)       | upper-case hex digits, two per byte, no separator: 0A1BFF       |
// | Guid (0x0f)         | {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}, upper case              |
// | SizeT (0x10)        | 0x + lower-case hex, no padding (4 or 8 bytes): 0x44c           |
// | FileTime (0x11)     | YYYY-MM-DDTHH:MM:SS.fffffffZ (UTC, 100 ns digits)               |
// | SystemTime (0x12)   | YYYY-MM-DDTHH:MM:SS.mmm0000Z (milliseconds, same layout)        |
// | Sid (0x13)          | S-1-5-21-...; an authority of 2^32 or more in 0x hex            |
// | HexInt32, HexInt64  | 0x + lower-case hex, no padding: 0x3e7                          |
// | EvtHandle (0x20)    | unsigned decimal                                                |
// | BinXml (0x21)       | the nested fragment as XML (the renderer handles it)            |
// | EvtXml (0x23)       | the UTF-16 text                                                 |
// | arrays (0x80 flag)  | the items' text forms joined by ", " (in element content the    |
// |                     | renderer repeats the element per item instead); string arrays   |
// |                     | hold NUL-terminated items                                       |
// | other codes         | as Binary                                                       |
//
// Escaping (renderer): & < > " ' become &amp; &lt; &gt; &quot; &apos; in text and in
// attribute values (attributes are single-quoted). One-line output also writes CR and LF as
// &#13; and &#10;, and the other C0 controls but tab as their control pictures.
//
// XML 1.0 forbids those controls even as character references, and Windows' EvtRender writes
// them unescaped (U+0003 in 4739 events breaks .NET's XML reader:
// https://github.com/BeanBagKing/EventFinder2/issues/5); U+2400 + code keeps the code readable.
#include "Evtx/ValueText.h"
#include "Evtx/WidenAscii.h"

#include "Bytes.h"
#include "HexDigits.h"
#include "TextBuffer.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <type_traits>

#ifdef __SSE2__
#  include <emmintrin.h>
#endif

namespace evtx
{
using detail::Le16;
using detail::Le32;
using detail::Le64;

// The formatters are written once for both outputs: std::string (the public functions) and
// the renderer's TextBuffer.
template <class Out>
void WriteUtf16(Out& out, const std::uint8_t* utf16, std::size_t units, TextEscape escape);
template <class Out>
void WriteFileTime(Out& out, std::uint64_t filetime);

namespace
{
constexpr char kHexUpper[] = "0123456789ABCDEF";

bool ForbiddenInXml(char c)
{
  const auto u = static_cast<unsigned char>(c);
  return u < 0x20 && u != '\t' && u != '\n' && u != '\r';
}

// U+2400 + code in UTF-8: E2 90 (80 + code).
template <class Out>
void AppendControlPicture(Out& out, char c)
{
  const char picture[] = {'\xe2', '\x90', static_cast<char>(0x80 + static_cast<unsigned char>(c))};
  out.append(picture, sizeof picture);
}

// Inlined: text with markup in it calls it every few bytes.
template <class Out>
[[gnu::always_inline]] inline void AppendEscapedAscii(Out& out, char c, TextEscape escape)
{
  if (escape == TextEscape::None)
  {
    out += c;
    return;
  }
  switch (c)
  {
  case '&': out += "&amp;"; return;
  case '<': out += "&lt;"; return;
  case '>': out += "&gt;"; return;
  case '"': out += "&quot;"; return;
  case '\'': out += "&apos;"; return;
  case '\r':
    if (escape == TextEscape::XmlOneLine)
    {
      out += "&#13;";
      return;
    }
    break;
  case '\n':
    if (escape == TextEscape::XmlOneLine)
    {
      out += "&#10;";
      return;
    }
    break;
  default:
    if (escape == TextEscape::XmlOneLine && ForbiddenInXml(c))
    {
      AppendControlPicture(out, c);
      return;
    }
    break;
  }
  out += c;
}

// Characters an escaping mode may rewrite (controls other than tab only under XmlOneLine).
constexpr bool NeedsEscape(std::uint32_t c)
{
  return c == '&' || c == '<' || c == '>' || c == '"' || c == '\'' || (c < 0x20 && c != '\t');
}

// ASCII characters that text copies as they are under escaping: one table lookup per character
// on the hot path of string values.
constexpr std::array<bool, 128> MakePlainAscii()
{
  std::array<bool, 128> plain{};
  for (std::uint32_t c = 0; c < 128; ++c)
    plain[c] = !NeedsEscape(c);
  return plain;
}
constexpr std::array<bool, 128> kPlainAscii = MakePlainAscii();

// The formatters below build each piece in a small local buffer and append it in one step:
// appending character by character costs a capacity check and a call per character.
template <class Out>
void AppendCodePoint(Out& out, std::uint32_t cp)
{
  char bytes[4];
  std::size_t n = 0;
  if (cp < 0x80)
  {
    bytes[n++] = static_cast<char>(cp);
  }
  else if (cp < 0x800)
  {
    bytes[n++] = static_cast<char>(0xc0 | (cp >> 6));
    bytes[n++] = static_cast<char>(0x80 | (cp & 0x3f));
  }
  else if (cp < 0x10000)
  {
    bytes[n++] = static_cast<char>(0xe0 | (cp >> 12));
    bytes[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
    bytes[n++] = static_cast<char>(0x80 | (cp & 0x3f));
  }
  else
  {
    bytes[n++] = static_cast<char>(0xf0 | (cp >> 18));
    bytes[n++] = static_cast<char>(0x80 | ((cp >> 12) & 0x3f));
    bytes[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
    bytes[n++] = static_cast<char>(0x80 | (cp & 0x3f));
  }
  out.append(bytes, n);
}

// "00" to "99": a date takes its digits two at a time.
constexpr std::array<char, 200> MakeDigitPairs()
{
  std::array<char, 200> pairs{};
  for (std::size_t v = 0; v < 100; ++v)
  {
    pairs[2 * v] = static_cast<char>('0' + v / 10);
    pairs[2 * v + 1] = static_cast<char>('0' + v % 10);
  }
  return pairs;
}
constexpr std::array<char, 200> kDigitPairs = MakeDigitPairs();

template <class Out, class T>
void AppendNumber(Out& out, T value)
{
  if constexpr (std::is_unsigned_v<T>)
  {
    // Single digits (levels, versions, opcodes) are among the most common numbers of an event.
    if (value < 10)
    {
      out += static_cast<char>('0' + value);
      return;
    }
    // Two digits at a time from the end (record numbers, process and thread ids are the rest).
    using Wide = std::conditional_t<(sizeof(T) > 4), std::uint64_t, std::uint32_t>;
    Wide rest = value;
    char digits[20];
    char* first = digits + sizeof digits;
    while (rest >= 100)
    {
      first -= 2;
      std::memcpy(first, kDigitPairs.data() + 2 * std::size_t(rest % 100), 2);
      rest /= 100;
    }
    if (rest >= 10)
    {
      first -= 2;
      std::memcpy(first, kDigitPairs.data() + 2 * std::size_t(rest), 2);
    }
    else
    {
      *--first = static_cast<char>('0' + rest);
    }
    out.append(first, static_cast<std::size_t>(digits + sizeof digits - first));
  }
  else
  {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.append(digits, end);
  }
}

template <class Out>
void AppendHex(Out& out, std::uint64_t value, int minDigits)
{
  // All sixteen digits at once, then the leading zeros beyond minDigits are left out.
  std::uint8_t bigEndian[8];
  for (int i = 0; i < 8; ++i)
    bigEndian[i] = static_cast<std::uint8_t>(value >> (56 - 8 * i));
  char text[2 + 16];
  detail::HexDigits8(bigEndian, text + 2, detail::HexCase::Lower);
  const int significant = (64 - std::countl_zero(value | 1) + 3) / 4;
  const int digits = significant > minDigits ? significant : minDigits;
  char* const first = text + 16 - digits;
  first[0] = '0';
  first[1] = 'x';
  out.append(first, text + sizeof text);
}

// Two decimal digits of v (mod 100) at `to`.
void Put2(char* to, unsigned v)
{
  std::memcpy(to, kDigitPairs.data() + 2 * std::size_t(v % 100), 2);
}

// Days since 1970-01-01 to a civil date (proleptic Gregorian).
void CivilFromDays(std::int64_t z, int& year, unsigned& month, unsigned& day)
{
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const std::int64_t y = static_cast<std::int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  day = doy - (153 * mp + 2) / 5 + 1;
  month = mp < 10 ? mp + 3 : mp - 9;
  year = static_cast<int>(y + (month <= 2));
}

std::int64_t DaysFromCivil(int y, unsigned m, unsigned d)
{
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

constexpr std::int64_t kFileTimeEpochDays = 134774;  // 1601-01-01 to 1970-01-01

template <class Out>
void AppendDateTime(Out& out, int year, unsigned month, unsigned day, unsigned hour,
                    unsigned minute, unsigned second, std::uint32_t fraction7)
{
  // yyyy-mm-ddThh:mm:ss.fffffffZ
  const unsigned y = static_cast<unsigned>(year < 0 ? 0 : year);
  char text[28];
  Put2(text, y / 100);
  Put2(text + 2, y % 100);
  text[4] = '-';
  Put2(text + 5, month);
  text[7] = '-';
  Put2(text + 8, day);
  text[10] = 'T';
  Put2(text + 11, hour);
  text[13] = ':';
  Put2(text + 14, minute);
  text[16] = ':';
  Put2(text + 17, second);
  text[19] = '.';
  const std::uint32_t rest = fraction7 % 100000;
  Put2(text + 20, fraction7 / 100000);
  Put2(text + 22, rest / 1000);
  Put2(text + 24, rest / 10);
  text[26] = static_cast<char>('0' + rest % 10);
  text[27] = 'Z';
  out.append(text, sizeof text);
}

template <class Out>
[[gnu::noinline]] void AppendGuid(Out& out, const std::uint8_t* g)
{
  // {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}: the first three groups are little-endian.
  const std::uint8_t ordered[16] = {g[3], g[2], g[1], g[0], g[5], g[4], g[7], g[6],
                                    g[8], g[9], g[10], g[11], g[12], g[13], g[14], g[15]};
  char hex[32];
  detail::HexDigits8(ordered, hex, detail::HexCase::Upper);
  detail::HexDigits8(ordered + 8, hex + 16, detail::HexCase::Upper);
  char text[38];
  text[0] = '{';
  std::memcpy(text + 1, hex, 8);
  text[9] = '-';
  std::memcpy(text + 10, hex + 8, 4);
  text[14] = '-';
  std::memcpy(text + 15, hex + 12, 4);
  text[19] = '-';
  std::memcpy(text + 20, hex + 16, 4);
  text[24] = '-';
  std::memcpy(text + 25, hex + 20, 12);
  text[37] = '}';
  out.append(text, sizeof text);
}

// Size of one SID at p (at most `size` bytes), or 0 when it does not fit.
std::uint32_t SidSize(const std::uint8_t* p, std::uint32_t size)
{
  if (size < 8)
    return 0;
  const std::uint32_t total = 8 + 4u * p[1];
  return total <= size ? total : 0;
}

template <class Out>
[[gnu::noinline]] void AppendSid(Out& out, const std::uint8_t* p, std::uint32_t size)
{
  // Each piece ("S-1-5", then "-" with each sub-authority) is put together in a local buffer
  // and appended in one step.
  std::uint64_t authority = 0;
  for (int i = 2; i < 8; ++i)
    authority = (authority << 8) | p[i];
  char text[32] = {'S', '-'};
  char* end = std::to_chars(text + 2, text + sizeof text, static_cast<unsigned>(p[0])).ptr;
  *end++ = '-';
  if (authority >= (1ull << 32))
  {
    out.append(text, end);
    AppendHex(out, authority, 12);
  }
  else
  {
    out.append(text, std::to_chars(end, text + sizeof text, authority).ptr);
  }
  for (std::uint32_t i = 0; i < p[1] && 8 + 4 * i + 4 <= size; ++i)
  {
    text[0] = '-';
    out.append(text, std::to_chars(text + 1, text + sizeof text, Le32(p + 8 + 4 * std::size_t(i))).ptr);
  }
}

std::uint32_t FixedItemSize(ValueType type, std::uint32_t totalSize)
{
  switch (type)
  {
  case ValueType::Int8:
  case ValueType::UInt8: return 1;
  case ValueType::Int16:
  case ValueType::UInt16: return 2;
  case ValueType::Int32:
  case ValueType::UInt32:
  case ValueType::Real32:
  case ValueType::Bool:
  case ValueType::HexInt32: return 4;
  case ValueType::Int64:
  case ValueType::UInt64:
  case ValueType::Real64:
  case ValueType::FileTime:
  case ValueType::HexInt64: return 8;
  case ValueType::Guid:
  case ValueType::SystemTime: return 16;
  case ValueType::SizeT: return totalSize % 8 == 0 ? 8 : 4;
  default: return 0;
  }
}

template <class Out>
[[gnu::noinline]] void AppendBinary(Out& out, const std::uint8_t* p, std::uint32_t size)
{
  const std::size_t at = out.size();
  out.resize(at + 2 * std::size_t(size));
  char* to = out.data() + at;
  std::uint32_t i = 0;
  for (; i + 8 <= size; i += 8, to += 16)
    detail::HexDigits8(p + i, to, detail::HexCase::Upper);
  for (; i < size; ++i)
  {
    *to++ = kHexUpper[p[i] >> 4];
    *to++ = kHexUpper[p[i] & 0xf];
  }
}

#ifdef __SSE2__
// All ones in the lanes (8- or 16-bit) of v that escaping rewrites: controls but tab, and the
// markup characters.
template <__m128i (*Equal)(__m128i, __m128i), __m128i (*Less)(__m128i, __m128i), __m128i (*Splat)(short)>
__m128i EscapedLanes(__m128i v)
{
  const __m128i control = _mm_andnot_si128(Equal(v, Splat('\t')), Less(v, Splat(0x20)));
  // & and ' are 0x26 and 0x27, < and > 0x3c and 0x3e: one comparison for each pair.
  const __m128i markup =
    _mm_or_si128(_mm_or_si128(Equal(_mm_or_si128(v, Splat(1)), Splat('\'')), Equal(v, Splat('"'))),
                 Equal(_mm_or_si128(v, Splat(2)), Splat('>')));
  return _mm_or_si128(control, markup);
}
inline __m128i Equal8(__m128i a, __m128i b) { return _mm_cmpeq_epi8(a, b); }
inline __m128i Less8(__m128i a, __m128i b) { return _mm_cmplt_epi8(a, b); }
inline __m128i Splat8(short c) { return _mm_set1_epi8(static_cast<char>(c)); }
inline __m128i Equal16(__m128i a, __m128i b) { return _mm_cmpeq_epi16(a, b); }
inline __m128i Less16(__m128i a, __m128i b) { return _mm_cmplt_epi16(a, b); }
inline __m128i Splat16(short c) { return _mm_set1_epi16(c); }
#endif

#ifdef __SSE2__
// One bit per byte of the sixteen at p that Latin-1 text rewrites under `escape`: bytes of
// 0x80 and up (their top bit, which movemask takes as it is), and what escaping rewrites.
unsigned RewrittenBytes16(const std::uint8_t* p, TextEscape escape)
{
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i stop = escape == TextEscape::None ? v : _mm_or_si128(v, EscapedLanes<Equal8, Less8, Splat8>(v));
  return static_cast<unsigned>(_mm_movemask_epi8(stop));
}
#endif

// The number of leading bytes of Latin-1 text that are ASCII and copied as they are under
// `escape`.
std::uint32_t PlainAsciiBytes(const std::uint8_t* p, std::uint32_t size, TextEscape escape)
{
  std::uint32_t run = 0;
  while (run < size && p[run] < 0x80 && (escape == TextEscape::None || kPlainAscii[p[run]]))
    ++run;
  return run;
}

template <class Out>
void AppendLatin1Byte(Out& out, std::uint8_t byte, TextEscape escape)
{
  if (byte < 0x80)
    AppendEscapedAscii(out, static_cast<char>(byte), escape);
  else
    AppendCodePoint(out, byte);
}

template <class Out>
[[gnu::noinline]] void AppendLatin1(Out& out, const std::uint8_t* p, std::uint32_t size,
                                    TextEscape escape)
{
  while (size > 0 && p[size - 1] == 0)
    --size;
  std::uint32_t i = 0;
#ifdef __SSE2__
  // Sixteen bytes at a time: each rewritten byte of a block is found in the block's mask (text
  // with markup in it has one every few bytes), and the plain bytes before it go out in one
  // piece, however many blocks they span.
  std::uint32_t plain = 0;
  for (; i + 16 <= size; i += 16)
  {
    for (unsigned mask = RewrittenBytes16(p + i, escape); mask != 0; mask &= mask - 1)
    {
      const std::uint32_t at = i + static_cast<std::uint32_t>(std::countr_zero(mask));
      out.append(reinterpret_cast<const char*>(p + plain), at - plain);
      AppendLatin1Byte(out, p[at], escape);
      plain = at + 1;
    }
  }
  out.append(reinterpret_cast<const char*>(p + plain), i - plain);
#endif
  while (i < size)
  {
    const std::uint32_t run = i + PlainAsciiBytes(p + i, size - i, escape);
    out.append(reinterpret_cast<const char*>(p + i), run - i);
    if (run < size)
      AppendLatin1Byte(out, p[run], escape);
    i = run + 1;
  }
}

// The helpers that stay out of line above keep this dispatch free of their register saves.
// Inlined into its two callers, so that a value takes one call from the renderer, not two.
template <class Out>
[[gnu::always_inline]] inline void AppendScalar(Out& out, ValueType type, const std::uint8_t* p, std::uint32_t size,
                  TextEscape escape)
{
  switch (type)
  {
  case ValueType::Null: return;
  case ValueType::String:
  case ValueType::EvtXml:
  {
    std::uint32_t units = size / 2;
    while (units > 0 && Le16(p + 2 * std::size_t(units - 1)) == 0)
      --units;
    WriteUtf16(out, p, units, escape);
    return;
  }
  case ValueType::AnsiString: return AppendLatin1(out, p, size, escape);
  case ValueType::Int8:
    if (size >= 1)
      return AppendNumber(out, static_cast<std::int8_t>(p[0]));
    break;
  case ValueType::UInt8:
    if (size >= 1)
      return AppendNumber(out, static_cast<unsigned>(p[0]));
    break;
  case ValueType::Int16:
    if (size >= 2)
      return AppendNumber(out, static_cast<std::int16_t>(Le16(p)));
    break;
  case ValueType::UInt16:
    if (size >= 2)
      return AppendNumber(out, Le16(p));
    break;
  case ValueType::Int32:
    if (size >= 4)
      return AppendNumber(out, static_cast<std::int32_t>(Le32(p)));
    break;
  case ValueType::UInt32:
    if (size >= 4)
      return AppendNumber(out, Le32(p));
    break;
  case ValueType::Int64:
    if (size >= 8)
      return AppendNumber(out, static_cast<std::int64_t>(Le64(p)));
    break;
  case ValueType::UInt64:
  case ValueType::EvtHandle:
    if (size >= 8)
      return AppendNumber(out, Le64(p));
    if (size >= 4)
      return AppendNumber(out, Le32(p));
    break;
  case ValueType::Real32:
    if (size >= 4)
    {
      float f;
      std::memcpy(&f, p, 4);
      return AppendNumber(out, f);
    }
    break;
  case ValueType::Real64:
    if (size >= 8)
    {
      double f;
      std::memcpy(&f, p, 8);
      return AppendNumber(out, f);
    }
    break;
  case ValueType::Bool:
  {
    bool value = false;
    for (std::uint32_t i = 0; i < size; ++i)
      value |= p[i] != 0;
    out += value ? "true" : "false";
    return;
  }
  case ValueType::Guid:
    if (size >= 16)
      return AppendGuid(out, p);
    break;
  case ValueType::SizeT:
    if (size >= 8)
      return AppendHex(out, Le64(p), 1);
    if (size >= 4)
      return AppendHex(out, Le32(p), 1);
    break;
  case ValueType::FileTime:
    if (size >= 8)
      return WriteFileTime(out, Le64(p));
    break;
  case ValueType::SystemTime:
    if (size >= 16)
    {
      AppendDateTime(out, Le16(p), Le16(p + 2) % 100, Le16(p + 6) % 100, Le16(p + 8) % 100,
                     Le16(p + 10) % 100, Le16(p + 12) % 100, (Le16(p + 14) % 1000) * 10000u);
      return;
    }
    break;
  case ValueType::Sid:
    if (SidSize(p, size) != 0)
      return AppendSid(out, p, size);
    break;
  case ValueType::HexInt32:
    if (size >= 4)
      return AppendHex(out, Le32(p), 1);
    break;
  case ValueType::HexInt64:
    if (size >= 8)
      return AppendHex(out, Le64(p), 1);
    break;
  default: break;
  }
  AppendBinary(out, p, size);
}

// Kept out of line: inlined, it makes every scalar value pay for its register saves.
template <class Out>
[[gnu::noinline]] void AppendArray(Out& out, const Value& array, TextEscape escape)
{
  std::uint32_t pos = 0;
  Value item;
  for (bool first = true; NextArrayItem(array, pos, item); first = false)
  {
    if (!first)
      out += ", ";
    if (item.BaseType() == ValueType::String)
      WriteUtf16(out, item.data, item.size / 2, escape);
    else
      AppendScalar(out, item.BaseType(), item.data, item.size, escape);
  }
}

bool ParseDigits(const char*& p, const char* end, int count, unsigned& out)
{
  out = 0;
  for (int i = 0; i < count; ++i, ++p)
  {
    if (p >= end || *p < '0' || *p > '9')
      return false;
    out = out * 10 + static_cast<unsigned>(*p - '0');
  }
  return true;
}
} // namespace

namespace
{
// Narrows the leading units of the UTF-16 text that are ASCII and copied as they are under
// `escape` into `to` (room for `units` bytes), in the same pass that finds them; returns how
// many. With SSE2 (every x86-64), sixteen units at a time when escaping, then eight (four in
// text of four to seven), the last block ending with the text; each block is stored whole, and
// the bytes past the run are left for the caller to overwrite.
// Inlined into WriteUtf16: most texts are short, so a call is a large part of their cost.
[[gnu::always_inline]] inline std::size_t NarrowPlainAscii(const std::uint8_t* utf16, std::size_t units,
                                                           TextEscape escape, char* to)
{
  std::size_t run = 0;
#ifdef __SSE2__
  if (escape != TextEscape::None)
  {
    // Sixteen units at a time, narrowed first: a unit above 0xff saturates to 0xff, one of
    // 0x8000 and up to 0, and both read as controls (bytes of 0x80 and up are negative to the
    // signed test), so one test of the sixteen bytes finds every unit that stops the run.
    for (; run + 16 <= units; run += 16)
    {
      const auto* from = reinterpret_cast<const __m128i*>(utf16 + 2 * run);
      const __m128i narrow = _mm_packus_epi16(_mm_loadu_si128(from), _mm_loadu_si128(from + 1));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to + run), narrow);
      const auto mask = static_cast<unsigned>(_mm_movemask_epi8(EscapedLanes<Equal8, Less8, Splat8>(narrow)));
      if (mask != 0)
        return run + static_cast<std::size_t>(std::countr_zero(mask));
    }
  }
  const std::size_t width = units >= 8 ? 8 : 4;
  // Narrows units [at, at + width) into `to` and returns two bits per unit that stops the run.
  const auto block = [&](std::size_t at) {
    const auto* from = reinterpret_cast<const __m128i*>(utf16 + 2 * at);
    const __m128i v = width == 8 ? _mm_loadu_si128(from) : _mm_loadl_epi64(from);
    const __m128i narrow = _mm_packus_epi16(v, v);
    if (width == 8)
    {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(to + at), narrow);
    }
    else
    {
      const int four = _mm_cvtsi128_si32(narrow);
      std::memcpy(to + at, &four, 4);
    }
    const __m128i nonAscii = _mm_andnot_si128(
      _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xff80))), _mm_setzero_si128()),
      _mm_set1_epi16(-1));
    const __m128i stop =
      escape == TextEscape::None ? nonAscii : _mm_or_si128(nonAscii, EscapedLanes<Equal16, Less16, Splat16>(v));
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(stop));
    return width == 8 ? mask : mask & 0xffu;
  };
  if (units >= width)
  {
    for (; run + width <= units; run += width)
      if (const unsigned mask = block(run); mask != 0)
        return run + static_cast<std::size_t>(std::countr_zero(mask)) / 2;
    if (run == units)
      return run;
    // The last block ends with the text; its units before `run` were found plain already.
    const std::size_t at = units - width;
    const unsigned mask = block(at);
    return mask != 0 ? at + static_cast<std::size_t>(std::countr_zero(mask)) / 2 : units;
  }
#endif
  for (std::uint32_t c = 0; run < units && (c = Le16(utf16 + 2 * run)) < 0x80 &&
                            (escape == TextEscape::None || kPlainAscii[c]);
       ++run)
    to[run] = static_cast<char>(c);
  return run;
}
} // namespace

template <class Out>
void WriteUtf16(Out& out, const std::uint8_t* utf16, std::size_t units, TextEscape escape)
{
  for (std::size_t i = 0; i < units;)
  {
    // Most text is plain ASCII: narrow each run of it in one step, straight into the output.
    const std::size_t at = out.size();
    out.resize(at + (units - i));
    const std::size_t run = NarrowPlainAscii(utf16 + 2 * i, units - i, escape, out.data() + at);
    out.resize(at + run);
    i += run;
    if (i == units)
      break;
    std::uint32_t c = Le16(utf16 + 2 * i);
    ++i;
    if (c < 0x80)
    {
      AppendEscapedAscii(out, static_cast<char>(c), escape);
      continue;
    }
    if (c >= 0xd800 && c < 0xdc00 && i < units)
    {
      const std::uint32_t low = Le16(utf16 + 2 * i);
      if (low >= 0xdc00 && low < 0xe000)
      {
        c = 0x10000 + ((c - 0xd800) << 10) + (low - 0xdc00);
        ++i;
      }
    }
    if (c >= 0xd800 && c < 0xe000)
      c = 0xfffd;  // a lone surrogate cannot be written as UTF-8
    AppendCodePoint(out, c);
  }
}

void ReplaceForbiddenControls(std::string& text, std::size_t from)
{
  // Eight bytes are tested at a time for any byte below 0x20, as nearly all text has none.
  constexpr std::uint64_t kOnes = 0x0101010101010101ull, kHighs = 0x8080808080808080ull;
  std::size_t at = from;
  while (at + 8 <= text.size())
  {
    std::uint64_t block;
    std::memcpy(&block, text.data() + at, 8);
    if (((block - 0x20 * kOnes) & ~block & kHighs) != 0)
      break;
    at += 8;
  }
  while (at < text.size() && !ForbiddenInXml(text[at]))
    ++at;
  if (at == text.size())
    return;
  std::string rest;
  for (std::size_t k = at; k < text.size(); ++k)
  {
    if (ForbiddenInXml(text[k]))
      AppendControlPicture(rest, text[k]);
    else
      rest += text[k];
  }
  text.replace(at, std::string::npos, rest);
}

template <class Out>
void WriteFileTime(Out& out, std::uint64_t filetime)
{
  const std::uint64_t seconds = filetime / 10000000;
  const auto fraction = static_cast<std::uint32_t>(filetime % 10000000);
  const auto days = static_cast<std::int64_t>(seconds / 86400);
  const auto secondOfDay = static_cast<unsigned>(seconds % 86400);
  int year;
  unsigned month, day;
  CivilFromDays(days - kFileTimeEpochDays, year, month, day);
  AppendDateTime(out, year, month, day, secondOfDay / 3600, secondOfDay / 60 % 60,
                 secondOfDay % 60, fraction);
}

bool NextArrayItem(const Value& array, std::uint32_t& pos, Value& item) noexcept
{
  const ValueType type = array.BaseType();
  const std::uint8_t* p = array.data;
  std::uint32_t size = p == nullptr ? 0 : array.size;
  if (type == ValueType::String)
    size &= ~1u;
  if (pos >= size)
    return false;
  if (type == ValueType::String || type == ValueType::AnsiString)
  {
    // Each item ends at a NUL; the last one may also end with the value.
    const std::uint32_t unit = type == ValueType::String ? 2 : 1;
    std::uint32_t end = pos;
    while (end < size && (unit == 2 ? Le16(p + end) : p[end]) != 0)
      end += unit;
    item = Value{static_cast<std::uint8_t>(type), p + pos, end - pos};
    pos = end + unit;
    return true;
  }
  if (type == ValueType::Sid)
  {
    const std::uint32_t n = SidSize(p + pos, size - pos);
    if (n == 0)
      return false;
    item = Value{static_cast<std::uint8_t>(type), p + pos, n};
    pos += n;
    return true;
  }
  const std::uint32_t itemSize = FixedItemSize(type, size);
  if (itemSize == 0)
  {
    // Items of unknown size: the whole value is one item, shown as bytes.
    item = Value{static_cast<std::uint8_t>(ValueType::Binary), p, size};
    pos = size;
    return true;
  }
  if (size - pos < itemSize)
    return false;
  item = Value{static_cast<std::uint8_t>(type), p + pos, itemSize};
  pos += itemSize;
  return true;
}

template <class Out>
void WriteValueText(Out& out, const Value& value, TextEscape escape)
{
  if (value.data == nullptr || value.size == 0)
    return;
  if (value.IsArray())
    AppendArray(out, value, escape);
  else
    AppendScalar(out, value.BaseType(), value.data, value.size, escape);
}

void AppendValueText(std::string& out, const Value& value, TextEscape escape)
{
  WriteValueText(out, value, escape);
}

void AppendUtf16(std::string& out, const std::uint8_t* utf16, std::size_t units,
                 TextEscape escape)
{
  WriteUtf16(out, utf16, units, escape);
}

void AppendFileTime(std::string& out, std::uint64_t filetime)
{
  WriteFileTime(out, filetime);
}

void detail::AppendValueText(TextBuffer& out, const Value& value, TextEscape escape)
{
  WriteValueText(out, value, escape);
}

void detail::AppendUtf16(TextBuffer& out, const std::uint8_t* utf16, std::size_t units,
                         TextEscape escape)
{
  WriteUtf16(out, utf16, units, escape);
}

std::string ValueText(const Value& value)
{
  std::string out;
  AppendValueText(out, value);
  return out;
}

std::wstring ValueTextWide(const Value& value)
{
  return Utf8ToWide(ValueText(value));
}

std::wstring Utf8ToWide(std::string_view text)
{
  std::wstring out;
  AppendUtf8AsWide(out, text);
  return out;
}

namespace
{
// Decodes UTF-8 into wide units. With Write false it only counts them, walking the text exactly
// as the writing pass does, so that a caller can size a buffer to the unit.
template <bool Write>
std::size_t DecodeUtf8(std::string_view text, wchar_t* to)
{
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  std::size_t units = 0;
  for (std::size_t i = 0; i < size;)
  {
    // Sixteen ASCII bytes at a time.
    if constexpr (Write)
    {
      while (i + 16 <= size && WidenAscii16(bytes + i, to + units))
      {
        units += 16;
        i += 16;
      }
    }
    else
    {
      while (i + 16 <= size && IsAscii16(bytes + i))
      {
        units += 16;
        i += 16;
      }
    }
    while (i < size && bytes[i] < 0x80)
    {
      if constexpr (Write)
        to[units] = static_cast<wchar_t>(bytes[i]);
      ++units;
      ++i;
    }
    if (i == size)
      break;
    const unsigned char b = bytes[i];
    std::uint32_t cp = 0xfffd;
    std::size_t n = 1;
    if ((b & 0xe0) == 0xc0 && i + 1 < size)
      cp = (b & 0x1fu) << 6 | (bytes[i + 1] & 0x3fu), n = 2;
    else if ((b & 0xf0) == 0xe0 && i + 2 < size)
      cp = (b & 0x0fu) << 12 | (bytes[i + 1] & 0x3fu) << 6 | (bytes[i + 2] & 0x3fu), n = 3;
    else if ((b & 0xf8) == 0xf0 && i + 3 < size)
      cp = (b & 0x07u) << 18 | (bytes[i + 1] & 0x3fu) << 12 | (bytes[i + 2] & 0x3fu) << 6 | (bytes[i + 3] & 0x3fu),
      n = 4;
    i += n;
    if constexpr (sizeof(wchar_t) == 2)
    {
      if (cp >= 0x10000)
      {
        cp -= 0x10000;
        if constexpr (Write)
        {
          to[units] = static_cast<wchar_t>(0xd800 + (cp >> 10));
          to[units + 1] = static_cast<wchar_t>(0xdc00 + (cp & 0x3ff));
        }
        units += 2;
        continue;
      }
    }
    if constexpr (Write)
      to[units] = static_cast<wchar_t>(cp);
    ++units;
  }
  return units;
}
} // namespace

void AppendUtf8AsWide(std::wstring& out, std::string_view text)
{
  // A code point never takes more wide units than UTF-8 bytes: size for the worst case, write
  // in place, then trim.
  const std::size_t start = out.size();
  out.resize(start + text.size());
  out.resize(start + DecodeUtf8<true>(text, out.data() + start));
}

std::size_t WideLengthOfUtf8(std::string_view text) noexcept
{
  return DecodeUtf8<false>(text, nullptr);
}

std::size_t WidenUtf8(std::string_view text, wchar_t* out) noexcept
{
  return DecodeUtf8<true>(text, out);
}

bool ValueToUInt64(const Value& value, std::uint64_t& out) noexcept
{
  if (value.data == nullptr || value.IsArray())
    return false;
  const std::uint8_t* p = value.data;
  const std::uint32_t size = value.size;
  switch (value.BaseType())
  {
  case ValueType::Int8:
    if (size < 1) return false;
    out = static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int8_t>(p[0])));
    return true;
  case ValueType::UInt8:
    if (size < 1) return false;
    out = p[0];
    return true;
  case ValueType::Int16:
    if (size < 2) return false;
    out = static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int16_t>(Le16(p))));
    return true;
  case ValueType::UInt16:
    if (size < 2) return false;
    out = Le16(p);
    return true;
  case ValueType::Int32:
    if (size < 4) return false;
    out = static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(Le32(p))));
    return true;
  case ValueType::UInt32:
  case ValueType::HexInt32:
  case ValueType::Bool:
    if (size < 4) return false;
    out = Le32(p);
    return true;
  case ValueType::Int64:
  case ValueType::UInt64:
  case ValueType::HexInt64:
  case ValueType::FileTime:
    if (size < 8) return false;
    out = Le64(p);
    return true;
  case ValueType::SizeT:
  case ValueType::EvtHandle:
    if (size >= 8)
      out = Le64(p);
    else if (size >= 4)
      out = Le32(p);
    else
      return false;
    return true;
  case ValueType::String:
  case ValueType::AnsiString:
  {
    std::string text;
    AppendValueText(text, value);
    const char* b = text.data();
    const char* e = b + text.size();
    while (b < e && *b == ' ')
      ++b;
    int base = 10;
    if (e - b > 2 && b[0] == '0' && (b[1] == 'x' || b[1] == 'X'))
    {
      b += 2;
      base = 16;
    }
    if (b == e)
      return false;
    const auto result = std::from_chars(b, e, out, base);
    return result.ec == std::errc() && result.ptr == e;
  }
  default: return false;
  }
}

bool ValueToFileTime(const Value& value, std::uint64_t& out) noexcept
{
  if (value.data == nullptr || value.IsArray())
    return false;
  if (value.BaseType() == ValueType::FileTime)
  {
    if (value.size < 8)
      return false;
    out = Le64(value.data);
    return true;
  }
  int year;
  unsigned month, day, hour, minute, second;
  std::uint64_t fraction = 0;
  if (value.BaseType() == ValueType::SystemTime)
  {
    if (value.size < 16)
      return false;
    const std::uint8_t* p = value.data;
    year = Le16(p);
    month = Le16(p + 2);
    day = Le16(p + 6);
    hour = Le16(p + 8);
    minute = Le16(p + 10);
    second = Le16(p + 12);
    fraction = Le16(p + 14) * 10000ull;
  }
  else if (value.BaseType() == ValueType::String || value.BaseType() == ValueType::AnsiString)
  {
    std::string text;
    AppendValueText(text, value);
    const char* p = text.data();
    const char* e = p + text.size();
    unsigned y;
    if (!ParseDigits(p, e, 4, y) || p >= e || *p++ != '-' || !ParseDigits(p, e, 2, month) ||
        p >= e || *p++ != '-' || !ParseDigits(p, e, 2, day) || p >= e || *p++ != 'T' ||
        !ParseDigits(p, e, 2, hour) || p >= e || *p++ != ':' || !ParseDigits(p, e, 2, minute) ||
        p >= e || *p++ != ':' || !ParseDigits(p, e, 2, second))
      return false;
    year = static_cast<int>(y);
    if (p < e && *p == '.')
    {
      ++p;
      int digits = 0;
      while (p < e && *p >= '0' && *p <= '9')
      {
        if (digits < 7)
          fraction = fraction * 10 + static_cast<unsigned>(*p - '0');
        ++digits;
        ++p;
      }
      for (; digits < 7; ++digits)
        fraction *= 10;
    }
  }
  else
  {
    return false;
  }
  if (year < 1601 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 ||
      minute > 59 || second > 60)
    return false;
  const std::int64_t days = DaysFromCivil(year, month, day) + kFileTimeEpochDays;
  out = (static_cast<std::uint64_t>(days) * 86400 + hour * 3600ull + minute * 60ull + second) *
          10000000ull +
        fraction;
  return true;
}

bool ValueEquals(const Value& value, std::string_view text)
{
  const ValueType type = value.BaseType();
  if (value.IsArray() || (type != ValueType::String && type != ValueType::AnsiString))
    return false;
  if (type == ValueType::String)
  {
    // Compare without building a string when the text is ASCII.
    std::uint32_t units = value.size / 2;
    while (units > 0 && Le16(value.data + 2 * std::size_t(units - 1)) == 0)
      --units;
    bool ascii = true;
    for (const char c : text)
      ascii &= static_cast<unsigned char>(c) < 0x80;
    if (ascii)
    {
      if (units != text.size())
        return false;
      for (std::uint32_t i = 0; i < units; ++i)
        if (Le16(value.data + 2 * std::size_t(i)) != static_cast<unsigned char>(text[i]))
          return false;
      return true;
    }
  }
  return ValueText(value) == text;
}
} // namespace evtx
