// A table of queries over the fixture's four instances: the names each returns, or its error.
#include "Fixture.h"

namespace
{
struct Row
{
  const wchar_t* query;
  std::vector<std::wstring> names; // expected, in provider order
  std::uint32_t error = 0;         // expected MI result code; 0 = success
};

const std::wstring A = L"alpha", B = L"Beta", C = L"gamma_1", D = L"delta[x]";

std::vector<Row> Rows()
{
  return {
      // Selection and names.
      {L"SELECT * FROM Test_Item", {A, B, C, D}},
      {L"select name from test_item", {A, B, C, D}},
      {L"SeLeCt Name, COUNT FrOm TEST_ITEM", {A, B, C, D}},
      // Comparison operators on an unsigned property.
      {L"SELECT * FROM Test_Item WHERE Count = 2", {B}},
      {L"SELECT * FROM Test_Item WHERE Count <> 2", {A, C, D}},
      {L"SELECT * FROM Test_Item WHERE Count != 2", {A, C, D}},
      {L"SELECT * FROM Test_Item WHERE Count < 3", {A, B}},
      {L"SELECT * FROM Test_Item WHERE Count <= 3", {A, B, C}},
      {L"SELECT * FROM Test_Item WHERE Count > 3", {D}},
      {L"SELECT * FROM Test_Item WHERE Count >= 3", {C, D}},
      {L"SELECT * FROM Test_Item WHERE 3 < Count", {D}},
      {L"SELECT * FROM Test_Item WHERE 3 >= Count", {A, B, C}},
      {L"SELECT * FROM Test_Item WHERE Count = '3'", {C}},
      {L"SELECT * FROM Test_Item WHERE Count = 0x4", {D}},
      {L"SELECT * FROM Test_Item WHERE Count > -1", {A, B, C, D}},
      {L"SELECT * FROM Test_Item WHERE Count < 2.5", {A, B}},
      // Signed 64-bit and reals.
      {L"SELECT * FROM Test_Item WHERE Size < 0", {A}},
      {L"SELECT * FROM Test_Item WHERE Size > 4294967296", {D}},
      {L"SELECT * FROM Test_Item WHERE Size < 18446744073709551615", {A, B, C, D}},
      {L"SELECT * FROM Test_Item WHERE Ratio > 1", {B, C}},
      {L"SELECT * FROM Test_Item WHERE Ratio = 0.5", {A}},
      {L"SELECT * FROM Test_Item WHERE Ratio < -0.5", {D}},
      {L"SELECT * FROM Test_Item WHERE Ratio = 2.5e0", {C}},
      // Booleans and characters.
      {L"SELECT * FROM Test_Item WHERE Enabled = TRUE", {A, C}},
      {L"SELECT * FROM Test_Item WHERE Enabled = false", {B}},
      {L"SELECT * FROM Test_Item WHERE Enabled <> TRUE", {B}},
      {L"SELECT * FROM Test_Item WHERE Enabled = 1", {A, C}},
      {L"SELECT * FROM Test_Item WHERE Letter = 'b'", {B}},
      {L"SELECT * FROM Test_Item WHERE Letter > 'a'", {B, C}},
      // Strings: case-insensitive, either quote.
      {L"SELECT * FROM Test_Item WHERE Name = 'BETA'", {B}},
      {L"SELECT * FROM Test_Item WHERE Name = \"alpha\"", {A}},
      {L"SELECT * FROM Test_Item WHERE Name > 'b'", {B, C, D}},
      {L"SELECT * FROM Test_Item WHERE Note = 'it\\'s'", {}},
      // NULL.
      {L"SELECT * FROM Test_Item WHERE Note IS NULL", {B}},
      {L"SELECT * FROM Test_Item WHERE Note IS NOT NULL", {A, C, D}},
      {L"SELECT * FROM Test_Item WHERE Note = NULL", {B}},
      {L"SELECT * FROM Test_Item WHERE Note <> NULL", {A, C, D}},
      {L"SELECT * FROM Test_Item WHERE Enabled = TRUE OR Enabled = FALSE", {A, B, C}},
      {L"SELECT * FROM Test_Item WHERE NOT Enabled = TRUE", {B, D}},
      // Precedence: NOT over AND over OR; parentheses override.
      {L"SELECT * FROM Test_Item WHERE Count = 1 OR Count = 2 AND Enabled = TRUE", {A}},
      {L"SELECT * FROM Test_Item WHERE Count = 1 OR Count = 2 AND Enabled = FALSE", {A, B}},
      {L"SELECT * FROM Test_Item WHERE (Count = 1 OR Count = 2) AND Enabled = FALSE", {B}},
      {L"SELECT * FROM Test_Item WHERE Count = 2 AND Enabled = FALSE OR Count = 4", {B, D}},
      {L"SELECT * FROM Test_Item WHERE Count = 2 AND (Enabled = FALSE OR Count = 4)", {B}},
      {L"SELECT * FROM Test_Item WHERE NOT Count = 1 AND Count < 3", {B}},
      {L"SELECT * FROM Test_Item WHERE NOT (Count = 1 AND Count < 3)", {B, C, D}},
      {L"SELECT * FROM Test_Item WHERE Count = 4 OR NOT Count > 1", {A, D}},
      {L"SELECT * FROM Test_Item WHERE NOT NOT Count = 1", {A}},
      {L"SELECT * FROM Test_Item WHERE ((Count = 1))", {A}},
      // LIKE.
      {L"SELECT * FROM Test_Item WHERE Name LIKE 'a%'", {A}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE '%A'", {A, B}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE '_eta'", {B}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE 'gamma[_]1'", {C}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE 'gamma_1'", {C}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE '%[0-9]'", {C}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE '[a-c]%'", {A, B}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE '[^a-c]%'", {C, D}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE 'delta[[]x]'", {D}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE '%'", {A, B, C, D}},
      {L"SELECT * FROM Test_Item WHERE Note LIKE '100[%]'", {C}},
      {L"SELECT * FROM Test_Item WHERE Note LIKE '%'", {A, C, D}},
      {L"SELECT * FROM Test_Item WHERE Name NOT LIKE 'a%'", {B, C, D}},
      {L"SELECT * FROM Test_Item WHERE NOT Name LIKE 'a%'", {B, C, D}},
      {L"SELECT * FROM Test_Item WHERE Name LIKE 'a%' OR Name LIKE 'b%' AND Count = 3", {A}},
      // Date-times in UTC.
      {L"SELECT * FROM Test_Item WHERE When = '20200101110000.000000+000'", {A}},
      {L"SELECT * FROM Test_Item WHERE When > '20201231000000.000000+000'", {B}},
      {L"SELECT * FROM Test_Item WHERE When < '20210601010000.000000+060'", {A}},
      // Errors.
      {L"SELECT * FROM Nope", {}, 5},
      // WMI answers an unknown property and an empty select list with WBEM_E_INVALID_QUERY.
      {L"SELECT Nope FROM Test_Item", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Nope = 1", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Nope IS NULL", {}, 15},
      {L"SELECT  FROM Test_Item", {}, 15},
      {L"SELECT FROM Test_Item", {}, 15},
      {L"SELECT * FROM", {}, 15},
      {L"SELECT * Test_Item", {}, 15},
      {L"SELECT * FROM Test_Item WHERE", {}, 15},
      {L"SELECT * FROM Test_Item garbage", {}, 15},
      {L"SELECT Name, FROM Test_Item", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count = 'abc'", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Name = 5", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Name LIKE 5", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count LIKE '1'", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Name LIKE '[abc'", {}, 15},
      {L"SELECT * FROM Test_Item WHERE (Count = 1", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count = 1)", {}, 15},
      {L"SELECT * FROM Test_Item WHERE 1 = 1", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count = Size", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Name = 'open", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count < NULL", {}, 15},
      {L"SELECT * FROM Test_Item WHERE When > 'yesterday'", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count = 1 AND", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count == 1", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count = 12abc", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count ! 1", {}, 15},
      {L"SELECT * FROM Test_Item WHERE Count = 0x", {}, 15},
      {L"DELETE FROM Test_Item", {}, 15},
      {L"", {}, 15},
  };
}

TEST(WqlQueryTable, EveryRowGivesItsInstancesOrError)
{
  wqltest::ItemHost fixture;
  for (const Row& row : Rows())
  {
    SCOPED_TRACE(testing::Message() << "query: " << std::string(row.query, row.query + std::wcslen(row.query)));
    const auto result = cim::wql::Execute(fixture.host, L"root/cimv2", row.query);
    if (row.error)
    {
      ASSERT_TRUE(result.error.has_value());
      EXPECT_EQ(result.error->code, row.error);
      EXPECT_TRUE(result.instances.empty());
    }
    else
    {
      EXPECT_FALSE(result.error.has_value()) << (result.error ? std::string(result.error->message.begin(),
                                                                           result.error->message.end())
                                                              : std::string());
      EXPECT_EQ(wqltest::ItemHost::Names(result), row.names);
    }
  }
}
} // namespace
