#include "EventValues.h"

#include <cmath>
#include <cstdint>
#include <charconv>
#include <string>

namespace collector::ni::impl
{
namespace
{
bool IsScanSpace(wchar_t c) noexcept
{
  return c == L' ' || (c >= L'\t' && c <= L'\r');
}

bool IsDigit(wchar_t c) noexcept
{
  return c >= L'0' && c <= L'9';
}

// True for a number like "1e999" (too large), false for "1e-999" or "0e999" (too small).
bool HasNonZeroDigit(const std::string& number) noexcept
{
  const auto exponent = number.find_first_of("eE");
  const std::string_view mantissa = std::string_view(number).substr(0, exponent);
  return mantissa.find_first_of("123456789") != std::string_view::npos &&
         exponent != std::string::npos && number.find('-', exponent) == std::string::npos;
}

// A cursor over the text with the conversions of the scanf family that the time format uses.
class CScanner
{
public:
  explicit CScanner(std::wstring_view text, std::size_t at = 0) noexcept : m_text(text), m_at(at) {}

  // "%hd": white space, optional sign, at least one digit; the value is kept modulo 2^16 as
  // the runtime's store into a short does.
  bool Short(short& out) noexcept
  {
    skipSpace();
    std::size_t i = m_at;
    bool negative = false;
    if (i < m_text.size() && (m_text[i] == L'+' || m_text[i] == L'-'))
    {
      negative = m_text[i] == L'-';
      ++i;
    }
    if (i >= m_text.size() || !IsDigit(m_text[i]))
      return false;
    std::uint32_t value = 0;
    for (; i < m_text.size() && IsDigit(m_text[i]); ++i)
      value = value * 10u + static_cast<std::uint32_t>(m_text[i] - L'0');
    if (negative)
      value = 0u - value;
    out = static_cast<short>(static_cast<std::uint16_t>(value & 0xFFFFu));
    m_at = i;
    return true;
  }

  // "%lf": white space, then [sign] digits [. digits] [e [sign] digits] with at least one
  // digit in the mantissa; an exponent without digits is not part of the number.
  bool Double(double& out)
  {
    skipSpace();
    std::size_t i = m_at;
    const std::size_t begin = i;
    if (i < m_text.size() && (m_text[i] == L'+' || m_text[i] == L'-'))
      ++i;
    std::size_t digits = 0;
    for (; i < m_text.size() && IsDigit(m_text[i]); ++i)
      ++digits;
    if (i < m_text.size() && m_text[i] == L'.')
    {
      ++i;
      for (; i < m_text.size() && IsDigit(m_text[i]); ++i)
        ++digits;
    }
    if (digits == 0)
      return false;
    const std::size_t mantissaEnd = i;
    if (i < m_text.size() && (m_text[i] == L'e' || m_text[i] == L'E'))
    {
      std::size_t e = i + 1;
      if (e < m_text.size() && (m_text[e] == L'+' || m_text[e] == L'-'))
        ++e;
      if (e < m_text.size() && IsDigit(m_text[e]))
      {
        while (e < m_text.size() && IsDigit(m_text[e]))
          ++e;
        i = e;
      }
    }
    // Up to 15 digits without exponent, the times' own form: the digits as an integer divided
    // by a power of ten are two exact doubles, so the quotient is the correctly rounded value
    // from_chars gives.
    if (i == mantissaEnd && digits <= maxExactDigits)
    {
      std::uint64_t whole = 0;
      std::size_t scale = 0;
      bool fraction = false;
      for (std::size_t k = begin; k < i; ++k)
      {
        const wchar_t c = m_text[k];
        if (c == L'.')
          fraction = true;
        else if (IsDigit(c))
        {
          whole = whole * 10u + static_cast<std::uint64_t>(c - L'0');
          scale += fraction ? 1 : 0;
        }
      }
      out = static_cast<double>(whole) / powersOfTen[scale];
      if (m_text[begin] == L'-')
        out = -out;
      m_at = i;
      return true;
    }
    // The number is plain ASCII; from_chars reads it without the locale (it takes no '+').
    std::string number;
    number.reserve(i - begin);
    for (std::size_t k = begin; k < i; ++k)
      number.push_back(static_cast<char>(m_text[k]));
    const std::size_t skip = number[0] == '+' ? 1 : 0;
    out = 0.0;
    const auto result = std::from_chars(number.data() + skip, number.data() + number.size(), out);
    // Too large a number reads as infinity, as the runtime gives it.
    if (result.ec == std::errc::result_out_of_range && out == 0.0 && HasNonZeroDigit(number))
      out = number[0] == '-' ? -HUGE_VAL : HUGE_VAL;
    m_at = i;
    return true;
  }

  // A literal character of the format.
  bool Literal(wchar_t c) noexcept
  {
    if (m_at < m_text.size() && m_text[m_at] == c)
    {
      ++m_at;
      return true;
    }
    return false;
  }

private:
  static constexpr std::size_t maxExactDigits = 15;
  static constexpr double powersOfTen[maxExactDigits + 1] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                             1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

  void skipSpace() noexcept
  {
    while (m_at < m_text.size() && IsScanSpace(m_text[m_at]))
      ++m_at;
  }

  std::wstring_view m_text;
  std::size_t m_at = 0;
};
} // namespace

int EventTypeFromLevel(int level) noexcept
{
  switch (level)
  {
  case 1:
  case 2:
    return 1;
  case 3:
    return 2;
  default:
    return 3;
  }
}

__int64 MakeInternalId(__int64 qualifiers, __int64 eventId) noexcept
{
  // Unsigned arithmetic: a negative qualifier shifts without undefined behaviour.
  const auto shifted = static_cast<std::uint64_t>(qualifiers) << 16;
  return static_cast<__int64>(shifted | static_cast<std::uint64_t>(eventId));
}

namespace
{
// The layout of every event's time up to its seconds; '0' stands for a digit.
constexpr std::wstring_view timeLayout = L"0000-00-00T00:00:";

// Position by position, unrolled: a loop over the layout costs more than the comparisons.
bool HasTimeLayout(std::wstring_view text) noexcept
{
  static_assert(timeLayout.size() == 17);
  if (text.size() < timeLayout.size())
    return false;
  const auto digits = [&text](std::size_t at, std::size_t count) {
    bool all = true;
    for (std::size_t i = at; i < at + count; ++i)
      all &= IsDigit(text[i]);
    return all;
  };
  return digits(0, 4) && text[4] == L'-' && digits(5, 2) && text[7] == L'-' && digits(8, 2) &&
         text[10] == L'T' && digits(11, 2) && text[13] == L':' && digits(14, 2) && text[16] == L':';
}

short DigitsAt(std::wstring_view text, std::size_t at, std::size_t count) noexcept
{
  int value = 0;
  for (std::size_t i = at; i < at + count; ++i)
    value = value * 10 + static_cast<int>(text[i] - L'0');
  return static_cast<short>(value);
}

// The seconds of every event's time, "ss.fffffff" (digits, a point, digits: at most 15 digits in
// all, no sign, no exponent), in one pass: the digits as an integer over a power of ten, the
// quotient "%lf" gives for them (CScanner::Double). False, having read nothing, for any other
// form, which the scanner reads.
bool PlainSeconds(std::wstring_view text, std::size_t at, double& out) noexcept
{
  static constexpr std::size_t maxDigits = 15;
  static constexpr double powersOfTen[maxDigits + 1] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                        1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  std::uint64_t whole = 0;
  std::size_t digits = 0;
  std::size_t i = at;
  for (; i < text.size() && IsDigit(text[i]); ++i, ++digits)
    whole = whole * 10u + static_cast<std::uint64_t>(text[i] - L'0');
  std::size_t scale = 0;
  if (i < text.size() && text[i] == L'.')
  {
    for (++i; i < text.size() && IsDigit(text[i]); ++i, ++scale)
      whole = whole * 10u + static_cast<std::uint64_t>(text[i] - L'0');
  }
  digits += scale;
  // An exponent would belong to the number; more digits would not be exact.
  if (digits == 0 || digits > maxDigits || (i < text.size() && (text[i] == L'e' || text[i] == L'E')))
    return false;
  out = static_cast<double>(whole) / powersOfTen[scale];
  return true;
}
} // namespace

SScannedEventTime ScanEventTime(std::wstring_view text)
{
  SScannedEventTime scanned;
  // Digits in place and the separators between them: the five conversions read exactly these
  // digits (at most four, so no short overflows), read here by position.
  if (HasTimeLayout(text))
  {
    scanned.Year = DigitsAt(text, 0, 4);
    scanned.Month = DigitsAt(text, 5, 2);
    scanned.Day = DigitsAt(text, 8, 2);
    scanned.Hour = DigitsAt(text, 11, 2);
    scanned.Minute = DigitsAt(text, 14, 2);
    scanned.Items = 5;
    CScanner seconds(text, timeLayout.size());
    if (PlainSeconds(text, timeLayout.size(), scanned.Seconds) || seconds.Double(scanned.Seconds))
      ++scanned.Items;
    return scanned;
  }
  CScanner scanner(text);
  short* const shorts[] = {&scanned.Year, &scanned.Month, &scanned.Day, &scanned.Hour, &scanned.Minute};
  const wchar_t separators[] = {L'-', L'-', L'T', L':', L':'};
  for (int item = 0; item < 5; ++item)
  {
    if (!scanner.Short(*shorts[item]))
      return scanned;
    ++scanned.Items;
    if (!scanner.Literal(separators[item]))
      return scanned;
  }
  if (scanner.Double(scanned.Seconds))
    ++scanned.Items;
  // The trailing 'Z' is matched after the last conversion: it changes nothing in the count.
  return scanned;
}

COleDateTimeEx ParseEventTime(std::wstring_view text)
{
  COleDateTimeEx invalid;
  invalid.SetStatus(COleDateTimeEx::invalid);
  const SScannedEventTime scanned = ScanEventTime(text);
  // Seconds outside a WORD cannot be truncated into the field; they are no valid time anyway.
  if (scanned.Items != 6 || !(scanned.Seconds >= 0.0 && scanned.Seconds < 65536.0))
    return invalid;
  SYSTEMTIME time{};
  time.wYear = static_cast<WORD>(scanned.Year);
  time.wMonth = static_cast<WORD>(scanned.Month);
  time.wDay = static_cast<WORD>(scanned.Day);
  time.wHour = static_cast<WORD>(scanned.Hour);
  time.wMinute = static_cast<WORD>(scanned.Minute);
  const double whole = std::trunc(scanned.Seconds);
  time.wSecond = static_cast<WORD>(whole);
  const long milliseconds = std::lround((scanned.Seconds - whole) * 1000.0);
  if (milliseconds < 1000)
  {
    time.wMilliseconds = static_cast<WORD>(milliseconds);
    return COleDateTimeEx(time);
  }
  // A fraction of .9995 or more rounds to 1000 ms: as the milliseconds are added to the date
  // of the whole second, that is the next second.
  COleDateTimeEx second(time);
  if (second.GetStatus() != COleDateTimeEx::valid)
    return second;
  return second + COleDateTimeSpan(0, 0, 0, 1);
}
} // namespace collector::ni::impl
