// BinXmlBuilder: emits binary XML tokens, patching element and attribute-list sizes.
#include "Evtx/Writer.h"

#include <stdexcept>

namespace evtx
{
namespace
{
void Put16(std::vector<std::uint8_t>& out, std::uint32_t v)
{
  out.push_back(static_cast<std::uint8_t>(v));
  out.push_back(static_cast<std::uint8_t>(v >> 8));
}

void Put32(std::vector<std::uint8_t>& out, std::uint32_t v)
{
  Put16(out, v & 0xffff);
  Put16(out, v >> 16);
}

void Patch32(std::vector<std::uint8_t>& out, std::size_t at, std::uint32_t v)
{
  for (int i = 0; i < 4; ++i)
    out[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// UTF-16 code units of ASCII/UTF-8 text (names and short texts).
std::vector<std::uint16_t> Units(const std::string& utf8)
{
  std::vector<std::uint16_t> units;
  for (std::size_t i = 0; i < utf8.size();)
  {
    const auto b = static_cast<unsigned char>(utf8[i]);
    std::uint32_t cp = b;
    std::size_t n = 1;
    if (b >= 0xe0 && i + 2 < utf8.size())
      cp = (b & 0x0fu) << 12 | (utf8[i + 1] & 0x3f) << 6 | (utf8[i + 2] & 0x3f), n = 3;
    else if (b >= 0xc0 && i + 1 < utf8.size())
      cp = (b & 0x1fu) << 6 | (utf8[i + 1] & 0x3f), n = 2;
    units.push_back(static_cast<std::uint16_t>(cp));
    i += n;
  }
  return units;
}

void PutString(std::vector<std::uint8_t>& out, const std::string& utf8)
{
  const auto units = Units(utf8);
  Put16(out, static_cast<std::uint32_t>(units.size()));
  for (const std::uint16_t u : units)
    Put16(out, u);
}
} // namespace

void BinXmlBuilder::Name(const std::string& name)
{
  const auto units = Units(name);
  Put32(bytes_, base_ + static_cast<std::uint32_t>(bytes_.size()) + 4);
  Put32(bytes_, 0);  // next string in the hash bucket
  std::uint32_t hash = 0;
  for (const std::uint16_t u : units)
    hash = hash * 65599 + u;
  Put16(bytes_, hash & 0xffff);
  Put16(bytes_, static_cast<std::uint32_t>(units.size()));
  for (const std::uint16_t u : units)
    Put16(bytes_, u);
  Put16(bytes_, 0);
}

BinXmlBuilder& BinXmlBuilder::FragmentHeader()
{
  bytes_.insert(bytes_.end(), {0x0f, 0x01, 0x01, 0x00});
  return *this;
}

BinXmlBuilder& BinXmlBuilder::OpenElement(const std::string& name, bool hasAttributes)
{
  bytes_.push_back(hasAttributes ? 0x41 : 0x01);
  Put16(bytes_, 0xffff);
  elements_.push_back(Open{bytes_.size(), 0});
  Put32(bytes_, 0);
  Name(name);
  if (hasAttributes)
  {
    elements_.back().attributeSizeAt = bytes_.size();
    Put32(bytes_, 0);
  }
  return *this;
}

BinXmlBuilder& BinXmlBuilder::Attribute(const std::string& name, bool more)
{
  bytes_.push_back(more ? 0x46 : 0x06);
  Name(name);
  return *this;
}

void BinXmlBuilder::EndAttributes()
{
  if (elements_.empty())
    throw std::logic_error("BinXmlBuilder: no open element");
  Open& open = elements_.back();
  if (open.attributeSizeAt != 0)
    Patch32(bytes_, open.attributeSizeAt,
            static_cast<std::uint32_t>(bytes_.size() - open.attributeSizeAt - 4));
  open.attributeSizeAt = 0;
}

void BinXmlBuilder::EndElementSize()
{
  const Open open = elements_.back();
  elements_.pop_back();
  Patch32(bytes_, open.sizeAt, static_cast<std::uint32_t>(bytes_.size() - open.sizeAt - 4));
}

BinXmlBuilder& BinXmlBuilder::CloseStart()
{
  EndAttributes();
  bytes_.push_back(0x02);
  return *this;
}

BinXmlBuilder& BinXmlBuilder::CloseEmpty()
{
  EndAttributes();
  bytes_.push_back(0x03);
  EndElementSize();
  return *this;
}

BinXmlBuilder& BinXmlBuilder::EndElement()
{
  if (elements_.empty())
    throw std::logic_error("BinXmlBuilder: no open element");
  bytes_.push_back(0x04);
  EndElementSize();
  return *this;
}

BinXmlBuilder& BinXmlBuilder::Text(const std::string& utf8)
{
  bytes_.push_back(0x05);
  bytes_.push_back(0x01);
  PutString(bytes_, utf8);
  return *this;
}

BinXmlBuilder& BinXmlBuilder::CData(const std::string& utf8)
{
  bytes_.push_back(0x07);
  PutString(bytes_, utf8);
  return *this;
}

BinXmlBuilder& BinXmlBuilder::CharRef(std::uint16_t code)
{
  bytes_.push_back(0x08);
  Put16(bytes_, code);
  return *this;
}

BinXmlBuilder& BinXmlBuilder::EntityRef(const std::string& name)
{
  bytes_.push_back(0x09);
  Name(name);
  return *this;
}

BinXmlBuilder& BinXmlBuilder::PI(const std::string& target, const std::string& data)
{
  bytes_.push_back(0x0a);
  Name(target);
  bytes_.push_back(0x0b);
  PutString(bytes_, data);
  return *this;
}

BinXmlBuilder& BinXmlBuilder::Substitution(std::uint16_t index, ValueType type, bool optional)
{
  bytes_.push_back(optional ? 0x0e : 0x0d);
  Put16(bytes_, index);
  bytes_.push_back(static_cast<std::uint8_t>(type));
  return *this;
}

BinXmlBuilder& BinXmlBuilder::End()
{
  bytes_.push_back(0x00);
  return *this;
}
} // namespace evtx
