// A class of every comparable type and four instances, served by a host, for the WQL tests.
#pragma once

#include "Cim/Testing/ClassBuilder.h"
#include "Cim/Testing/TestProvider.h"
#include "Cim/Wql/Execute.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace wqltest
{
inline cim::DateTime Stamp(std::uint32_t year, std::uint32_t month, std::uint32_t day, std::uint32_t hour,
                           std::int32_t utc)
{
  cim::DateTime value;
  value.year = year;
  value.month = month;
  value.day = day;
  value.hour = hour;
  value.utc = utc;
  return value;
}

struct ItemHost
{
  std::shared_ptr<const cim::ClassDecl> decl = cim::testing::ClassBuilder(L"Test_Item")
                                                   .Key(L"Name")
                                                   .Property(L"Count", cim::Type::UInt32)
                                                   .Property(L"Size", cim::Type::SInt64)
                                                   .Property(L"Ratio", cim::Type::Real64)
                                                   .Property(L"Enabled", cim::Type::Boolean)
                                                   .Property(L"Letter", cim::Type::Char16)
                                                   .Property(L"When", cim::Type::DateTime)
                                                   .Property(L"Note", cim::Type::String)
                                                   .Build();
  std::shared_ptr<cim::testing::TestProvider> provider = std::make_shared<cim::testing::TestProvider>(decl);
  cim::Host host;

  ItemHost()
  {
    using cim::Value;
    provider->Add({{L"Name", std::wstring(L"alpha")}, {L"Count", std::uint32_t{1}}, {L"Size", std::int64_t{-5}},
                   {L"Ratio", 0.5}, {L"Enabled", true}, {L"Letter", u'a'}, {L"When", Stamp(2020, 1, 1, 12, 60)},
                   {L"Note", std::wstring(L"first")}});
    provider->Add({{L"Name", std::wstring(L"Beta")}, {L"Count", std::uint32_t{2}}, {L"Size", std::int64_t{10}},
                   {L"Ratio", 1.5}, {L"Enabled", false}, {L"Letter", u'b'}, {L"When", Stamp(2021, 6, 1, 0, 0)}});
    provider->Add({{L"Name", std::wstring(L"gamma_1")}, {L"Count", std::uint32_t{3}}, {L"Size", std::int64_t{0}},
                   {L"Ratio", 2.5}, {L"Enabled", true}, {L"Letter", u'c'}, {L"Note", std::wstring(L"100%")}});
    provider->Add({{L"Name", std::wstring(L"delta[x]")}, {L"Count", std::uint32_t{4}},
                   {L"Size", std::int64_t{10000000000}}, {L"Ratio", -1.0}, {L"Note", std::wstring(L"Third")}});
    host.Register(L"root/cimv2", provider);
  }

  static std::vector<std::wstring> Names(const cim::wql::Result& result)
  {
    std::vector<std::wstring> names;
    for (const auto& instance : result.instances)
      names.push_back(std::get<std::wstring>(*instance.elements[0].value));
    return names;
  }
};
} // namespace wqltest
