// Feeds arbitrary text to the WQL parser and, when it parses, binds it to a fixed class and runs
// it over a few instances: any crash, hang or sanitizer report is a bug; cim::Error is not.
#include "Cim/Model.h"
#include "Cim/Wql/BoundQuery.h"
#include "Cim/Wql/Like.h"
#include "Cim/Wql/Parser.h"

#include <cstdint>
#include <memory>
#include <string>

namespace
{
std::shared_ptr<const cim::ClassDecl> MakeClass()
{
  auto decl = std::make_shared<cim::ClassDecl>();
  decl->name = L"C";
  const std::pair<const wchar_t*, cim::Type> properties[] = {
      {L"Name", cim::Type::String},   {L"B", cim::Type::Boolean}, {L"U8", cim::Type::UInt8},
      {L"S8", cim::Type::SInt8},      {L"U16", cim::Type::UInt16}, {L"S16", cim::Type::SInt16},
      {L"U32", cim::Type::UInt32},    {L"S32", cim::Type::SInt32}, {L"U64", cim::Type::UInt64},
      {L"S64", cim::Type::SInt64},    {L"R32", cim::Type::Real32}, {L"R64", cim::Type::Real64},
      {L"Ch", cim::Type::Char16},     {L"When", cim::Type::DateTime}};
  for (const auto& [name, type] : properties)
    decl->properties.push_back(cim::PropertyDecl{name, type, {}});
  decl->properties[0].qualifiers.push_back(cim::Qualifier{L"Key", true});
  return decl;
}

std::vector<cim::Instance> MakeInstances(const std::shared_ptr<const cim::ClassDecl>& decl)
{
  std::vector<cim::Instance> instances;
  instances.emplace_back(decl); // all NULL
  cim::Instance full(decl);
  cim::DateTime when;
  when.year = 2020;
  when.month = 2;
  when.day = 29;
  full.Set(L"Name", std::wstring(L"abc_%[x]")).Set(L"B", true).Set(L"U8", std::uint8_t{255});
  full.Set(L"S8", std::int8_t{-128}).Set(L"U16", std::uint16_t{65535}).Set(L"S16", std::int16_t{-1});
  full.Set(L"U32", std::uint32_t{4000000000u}).Set(L"S32", std::int32_t{-7}).Set(L"U64", UINT64_MAX);
  full.Set(L"S64", INT64_MIN).Set(L"R32", 1.5f).Set(L"R64", -0.0).Set(L"Ch", u'z').Set(L"When", when);
  instances.push_back(std::move(full));
  return instances;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  static const auto decl = MakeClass();
  static const auto instances = MakeInstances(decl);
  // Bytes are code units; a leading 0xFF byte switches to pairs so that wide characters come too.
  std::wstring text;
  if (size > 0 && data[0] == 0xFF)
  {
    for (std::size_t i = 1; i + 1 < size; i += 2)
      text.push_back(static_cast<wchar_t>(data[i] | (data[i + 1] << 8)));
  }
  else
  {
    for (std::size_t i = 0; i < size; ++i)
      text.push_back(static_cast<wchar_t>(data[i]));
  }
  try
  {
    const cim::wql::Query query = cim::wql::Parse(text);
    const cim::wql::BoundQuery bound(query, decl);
    for (const cim::Instance& instance : instances)
    {
      cim::Instance copy = instance;
      if (bound.Matches(copy))
        bound.Project(copy);
    }
  }
  catch (const cim::Error&)
  {
  }
  try
  {
    // The same text as a LIKE pattern against itself and a fixed string.
    const auto pattern = cim::wql::LikePattern::Compile(text);
    pattern.Matches(text);
    pattern.Matches(L"abc_%[x]");
  }
  catch (const cim::Error&)
  {
  }
  return 0;
}
