// MiCollection::toFieldValue on hand-made values: which MI types become which field alternative
// and which are refused with E_NOTIMPL.
#include "MiCollection.h"

#include "KeldaKernel/Exceptions.h"

#include <gtest/gtest.h>

namespace
{
using collector::ni::impl::MiCollection;

enum Alternative : std::size_t
{
  Text = 0,
  Integer = 1,
  DateTime = 3,
  Refused = 99,
};

std::size_t AlternativeOf(MI_Type type)
{
  static const MI_Char text[] = L"text";
  MI_Value raw{};
  if (type == MI_STRING)
  {
    raw.string = const_cast<MI_Char*>(text); // NOLINT(cppcoreguidelines-pro-type-const-cast): the API's union is not const
  }
  if (type == MI_DATETIME)
  {
    raw.datetime.isTimestamp = 1;
    raw.datetime.u.timestamp = {2020, 1, 1, 0, 0, 0, 0, 0};
  }
  try
  {
    return MiCollection::toFieldValue(CMiValue(raw, type)).index();
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(error.hresult(), E_NOTIMPL);
    EXPECT_NE(get_throw_function(error).find("MiCollection::toFieldValue"), std::string::npos);
    return Refused;
  }
}

TEST(MiPropFieldValue, EachTypeCodeToItsAlternative)
{
  const std::pair<MI_Type, std::size_t> expected[] = {
    {MI_BOOLEAN, Refused}, {MI_UINT8, Integer},  {MI_SINT8, Integer},   {MI_UINT16, Integer},
    {MI_SINT16, Integer},  {MI_UINT32, Integer}, {MI_SINT32, Integer},  {MI_UINT64, Integer},
    {MI_SINT64, Integer},  {MI_REAL32, Refused}, {MI_REAL64, Refused},  {MI_CHAR16, Refused},
    {MI_DATETIME, DateTime}, {MI_STRING, Text},  {MI_REFERENCE, Refused}, {MI_INSTANCE, Refused},
    {MI_STRINGA, Refused},
  };
  for (const auto& [type, alternative] : expected)
  {
    SCOPED_TRACE(static_cast<int>(type));
    EXPECT_EQ(AlternativeOf(type), alternative);
  }
}

TEST(MiPropFieldValue, ValuesAreCarriedOver)
{
  MI_Value raw{};
  raw.sint16 = -12;
  EXPECT_EQ(std::get<__int64>(MiCollection::toFieldValue(CMiValue(raw, MI_SINT16))), -12);
  static const MI_Char text[] = L"abc";
  raw = MI_Value{};
  raw.string = const_cast<MI_Char*>(text); // NOLINT(cppcoreguidelines-pro-type-const-cast): the API's union is not const
  EXPECT_EQ(std::get<tstring>(MiCollection::toFieldValue(CMiValue(raw, MI_STRING))), L"abc");
}
} // namespace
