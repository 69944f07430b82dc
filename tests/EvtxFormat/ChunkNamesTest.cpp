// A chunk's name table: names read once and found again (also after the table grew), each with
// the tags an element or attribute of that name writes.
#include "ChunkImpl.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using evtx::Chunk;

// Writes a name entry (next offset, hash, count, UTF-16 chars, NUL) at `offset`.
void PutName(std::vector<std::uint8_t>& chunk, std::uint32_t offset, const std::u16string& name)
{
  chunk[offset + 6] = static_cast<std::uint8_t>(name.size());
  chunk[offset + 7] = static_cast<std::uint8_t>(name.size() >> 8);
  for (std::size_t i = 0; i < name.size(); ++i)
  {
    chunk[offset + 8 + 2 * i] = static_cast<std::uint8_t>(name[i]);
    chunk[offset + 9 + 2 * i] = static_cast<std::uint8_t>(name[i] >> 8);
  }
}

// More names than the table first has room for, asked for twice; one is outside the BMP.
TEST(ChunkNames, EveryNameIsFoundAgainWithItsTags)
{
  std::vector<std::uint8_t> chunk(evtx::kChunkSize, 0);
  std::vector<std::pair<std::uint32_t, std::string>> expected;
  for (std::uint32_t i = 0; i < 300; ++i)
  {
    const std::uint32_t offset = 512 + 40 * i;
    std::u16string name = u"Name" + std::u16string(1, static_cast<char16_t>(u'a' + i % 26));
    std::string utf8 = "Name" + std::string(1, static_cast<char>('a' + i % 26));
    name += static_cast<char16_t>(u'0' + i / 26);
    utf8 += static_cast<char>('0' + i / 26);
    if (i == 7)
    {
      name += u"\U0001F600";
      utf8 += "\xf0\x9f\x98\x80";
    }
    PutName(chunk, offset, name);
    expected.emplace_back(offset, utf8);
  }
  Chunk::Impl impl;
  impl.Reset(chunk.data());
  for (int round = 0; round < 2; ++round)
  {
    for (const auto& [offset, utf8] : expected)
    {
      std::string_view name;
      ASSERT_TRUE(impl.Name(offset, name)) << offset;
      EXPECT_EQ(name, utf8) << round;
      EXPECT_EQ(evtx::detail::NameTable::OpenTag(name), "<" + utf8) << round;
      EXPECT_EQ(evtx::detail::NameTable::CloseTag(name), "</" + utf8 + ">") << round;
      EXPECT_EQ(evtx::detail::NameTable::AttributeTag(name), " " + utf8 + "='") << round;
    }
  }
  EXPECT_FALSE(impl.namesHaveControls);
}

// A chunk loaded after another forgets the first one's names, also those in the recent slots.
TEST(ChunkNames, AResetChunkReadsItsOwnNames)
{
  std::vector<std::uint8_t> first(evtx::kChunkSize, 0), second(evtx::kChunkSize, 0);
  PutName(first, 600, u"Old");
  PutName(second, 600, u"New\x01");
  Chunk::Impl impl;
  impl.Reset(first.data());
  std::string_view name;
  ASSERT_TRUE(impl.Name(600, name));
  EXPECT_EQ(name, "Old");
  impl.Reset(second.data());
  ASSERT_TRUE(impl.Name(600, name));
  EXPECT_EQ(name, "New\x01");
  EXPECT_TRUE(impl.namesHaveControls);
  EXPECT_FALSE(impl.Name(evtx::kChunkSize - 4, name));
}
} // namespace

namespace
{
using evtx::detail::NameTable;

// Names longer than a block of the table's text, among short ones, kept over a Clear that
// reuses the blocks: every view reads its own name.
TEST(NameTable, LongAndShortNamesKeepTheirTextAcrossClear)
{
  NameTable table;
  for (int round = 0; round < 2; ++round)
  {
    std::vector<std::pair<std::uint32_t, std::string>> added;
    for (std::uint32_t i = 0; i < 40; ++i)
    {
      const char letter = static_cast<char>('a' + (i + round) % 26);
      const std::string name(i % 5 == 0 ? 7000 + i : 1 + i % 9, letter);
      std::string_view found;
      EXPECT_FALSE(table.Find(8 * i, found));
      EXPECT_EQ(table.Add(8 * i, name), name);
      added.emplace_back(8 * i, name);
    }
    for (const auto& [offset, name] : added)
    {
      std::string_view found;
      ASSERT_TRUE(table.Find(offset, found));
      EXPECT_EQ(found, name);
      EXPECT_EQ(NameTable::CloseTag(found), "</" + name + ">");
      EXPECT_EQ(NameTable::OpenTag(found), "<" + name);
    }
    table.Clear();
    std::string_view none;
    EXPECT_FALSE(table.Find(0, none));
  }
}
} // namespace
