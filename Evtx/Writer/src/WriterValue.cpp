// WriterValue factories: the little-endian byte forms of each substitution value type.
#include "Evtx/Writer.h"

#include <cstring>
#include <stdexcept>

namespace evtx
{
namespace
{
void PutLe(std::vector<std::uint8_t>& out, std::uint64_t v, int size)
{
  for (int i = 0; i < size; ++i)
    out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

int IntSize(ValueType type)
{
  switch (type)
  {
  case ValueType::Int8:
  case ValueType::UInt8: return 1;
  case ValueType::Int16:
  case ValueType::UInt16: return 2;
  case ValueType::Int32:
  case ValueType::UInt32:
  case ValueType::Bool:
  case ValueType::HexInt32: return 4;
  case ValueType::Int64:
  case ValueType::UInt64:
  case ValueType::HexInt64:
  case ValueType::SizeT:
  case ValueType::FileTime: return 8;
  default: throw std::invalid_argument("not an integer value type");
  }
}

void AppendUtf16(std::vector<std::uint8_t>& out, const std::string& utf8)
{
  for (std::size_t i = 0; i < utf8.size();)
  {
    const auto b = static_cast<unsigned char>(utf8[i]);
    std::uint32_t cp = b;
    std::size_t n = 1;
    if (b >= 0xf0 && i + 3 < utf8.size())
      cp = (b & 0x07u) << 18 | (utf8[i + 1] & 0x3f) << 12 | (utf8[i + 2] & 0x3f) << 6 | (utf8[i + 3] & 0x3f), n = 4;
    else if (b >= 0xe0 && i + 2 < utf8.size())
      cp = (b & 0x0fu) << 12 | (utf8[i + 1] & 0x3f) << 6 | (utf8[i + 2] & 0x3f), n = 3;
    else if (b >= 0xc0 && i + 1 < utf8.size())
      cp = (b & 0x1fu) << 6 | (utf8[i + 1] & 0x3f), n = 2;
    i += n;
    if (cp >= 0x10000)
    {
      cp -= 0x10000;
      PutLe(out, 0xd800 + (cp >> 10), 2);
      PutLe(out, 0xdc00 + (cp & 0x3ff), 2);
    }
    else
    {
      PutLe(out, cp, 2);
    }
  }
}

std::uint8_t Code(ValueType type)
{
  return static_cast<std::uint8_t>(type);
}
} // namespace

WriterValue WriterValue::Null()
{
  return {};
}

WriterValue WriterValue::Text(const std::string& utf8)
{
  WriterValue v{Code(ValueType::String), {}};
  AppendUtf16(v.bytes, utf8);
  return v;
}

WriterValue WriterValue::Ansi(const std::string& text)
{
  return WriterValue{Code(ValueType::AnsiString), std::vector<std::uint8_t>(text.begin(), text.end())};
}

WriterValue WriterValue::Int(ValueType type, std::int64_t value)
{
  WriterValue v{Code(type), {}};
  PutLe(v.bytes, static_cast<std::uint64_t>(value), IntSize(type));
  return v;
}

WriterValue WriterValue::Real32(float value)
{
  std::uint32_t bits;
  std::memcpy(&bits, &value, 4);
  WriterValue v{Code(ValueType::Real32), {}};
  PutLe(v.bytes, bits, 4);
  return v;
}

WriterValue WriterValue::Real64(double value)
{
  std::uint64_t bits;
  std::memcpy(&bits, &value, 8);
  WriterValue v{Code(ValueType::Real64), {}};
  PutLe(v.bytes, bits, 8);
  return v;
}

WriterValue WriterValue::Bool(bool value)
{
  return Int(ValueType::Bool, value ? 1 : 0);
}

WriterValue WriterValue::Binary(std::vector<std::uint8_t> bytes)
{
  return WriterValue{Code(ValueType::Binary), std::move(bytes)};
}

WriterValue WriterValue::Guid(const std::uint8_t (&bytes)[16])
{
  return WriterValue{Code(ValueType::Guid), std::vector<std::uint8_t>(bytes, bytes + 16)};
}

WriterValue WriterValue::FileTime(std::uint64_t filetime)
{
  return Int(ValueType::FileTime, static_cast<std::int64_t>(filetime));
}

WriterValue WriterValue::SystemTime(std::uint16_t year, std::uint16_t month, std::uint16_t day,
                                    std::uint16_t hour, std::uint16_t minute, std::uint16_t second,
                                    std::uint16_t milliseconds)
{
  WriterValue v{Code(ValueType::SystemTime), {}};
  for (const std::uint16_t field : {year, month, std::uint16_t(0), day, hour, minute, second, milliseconds})
    PutLe(v.bytes, field, 2);
  return v;
}

WriterValue WriterValue::Sid(const std::string& text)
{
  // "S-<revision>-<authority>-<sub>-<sub>..."
  if (text.size() < 4 || text[0] != 'S' || text[1] != '-')
    throw std::invalid_argument("malformed SID text: " + text);
  std::vector<std::uint64_t> parts;
  std::uint64_t current = 0;
  bool digits = false;
  for (std::size_t i = 2; i <= text.size(); ++i)
  {
    if (i == text.size() || text[i] == '-')
    {
      if (!digits)
        throw std::invalid_argument("malformed SID text: " + text);
      parts.push_back(current);
      current = 0;
      digits = false;
    }
    else if (text[i] >= '0' && text[i] <= '9')
    {
      current = current * 10 + static_cast<std::uint64_t>(text[i] - '0');
      digits = true;
    }
    else
    {
      throw std::invalid_argument("malformed SID text: " + text);
    }
  }
  if (parts.size() < 2 || parts.size() - 2 > 15)
    throw std::invalid_argument("malformed SID text: " + text);
  WriterValue v{Code(ValueType::Sid), {}};
  v.bytes.push_back(static_cast<std::uint8_t>(parts[0]));
  v.bytes.push_back(static_cast<std::uint8_t>(parts.size() - 2));
  for (int i = 5; i >= 0; --i)
    v.bytes.push_back(static_cast<std::uint8_t>(parts[1] >> (8 * i)));
  for (std::size_t i = 2; i < parts.size(); ++i)
    PutLe(v.bytes, parts[i], 4);
  return v;
}

WriterValue WriterValue::TextArray(const std::vector<std::string>& items)
{
  WriterValue v{static_cast<std::uint8_t>(Code(ValueType::String) | kArrayFlag), {}};
  for (const auto& item : items)
  {
    AppendUtf16(v.bytes, item);
    PutLe(v.bytes, 0, 2);
  }
  return v;
}

WriterValue WriterValue::IntArray(ValueType type, const std::vector<std::int64_t>& items)
{
  WriterValue v{static_cast<std::uint8_t>(Code(type) | kArrayFlag), {}};
  for (const std::int64_t item : items)
    PutLe(v.bytes, static_cast<std::uint64_t>(item), IntSize(type));
  return v;
}
} // namespace evtx
