// Queries evaluated on the reader's decoded records (no XML), over a log written by our writer.
#include "Evtx/File.h"
#include "Evtx/Query/Query.h"
#include "Evtx/Query/TreeEventView.h"
#include "Evtx/Writer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace
{
using evtx::query::Query;

class TreeView : public testing::Test
{
protected:
  void SetUp() override
  {
    evtx::Writer writer;
    ASSERT_TRUE(writer.Create(path));
    evtx::WriterEvent event;
    event.provider = "Natc-Tree";
    event.eventId = 4624;
    event.qualifiers = 16384;
    event.level = 2;
    event.keywords = 0x8020000000000000ull;
    event.userSid = "S-1-5-18";
    event.data.push_back({"TargetUserName", evtx::WriterValue::Text("alice")});
    event.data.push_back({"LogonType", evtx::WriterValue::Int(evtx::ValueType::UInt32, 10)});
    ASSERT_NE(writer.Append(event), 0u);
    writer.Close();
    ASSERT_EQ(file.Open(path), evtx::Status::Ok);
    ASSERT_EQ(file.LoadChunk(0, chunk), evtx::Status::Ok);
    ASSERT_EQ(chunk->Records().size(), 1u);
    ASSERT_EQ(chunk->Decode(chunk->Records()[0], tree), evtx::Status::Ok);
  }
  // Windows deletes no file that is still open without FILE_SHARE_DELETE (ERROR_SHARING_VIOLATION):
  // https://learn.microsoft.com/en-us/windows/win32/api/fileapi/nf-fileapi-deletefilew
  void TearDown() override
  {
    file.Close();
    std::filesystem::remove(path);
  }

  bool Selects(const wchar_t* xpath)
  {
    const Query query = Query::ParseXPath(xpath, L"Application");
    const evtx::query::TreeEventView view(tree);
    return query.Matches(0, view, evtx::query::EvalContext{evtx::query::CurrentFileTime()});
  }

  std::string path = (std::filesystem::temp_directory_path() / ("natc-tree-" + std::to_string(getpid()) + ".evtx")).string();
  evtx::File file;
  std::shared_ptr<evtx::Chunk> chunk;
  evtx::EventTree tree;
};

// Decoded records compare strings as rendered ones do: case-sensitive.
TEST_F(TreeView, StringComparisonsAreCaseSensitive)
{
  EXPECT_TRUE(Selects(L"*[System[Provider[@Name='Natc-Tree']]]"));
  EXPECT_FALSE(Selects(L"*[System[Provider[@Name='natc-tree']]]"));
  EXPECT_TRUE(Selects(L"*[EventData[Data[@Name='TargetUserName']='alice']]"));
  EXPECT_FALSE(Selects(L"*[EventData[Data[@Name='TargetUserName']='ALICE']]"));
  EXPECT_FALSE(Selects(L"*[EventData[Data[@Name='targetusername']='alice']]"));
}

TEST_F(TreeView, SystemValuesMatchWithoutRendering)
{
  EXPECT_TRUE(Selects(L"*[System[Provider[@Name='Natc-Tree'] and EventID=4624 and Level=2]]"));
  EXPECT_TRUE(Selects(L"*[System[EventID[@Qualifiers=16384]]]"));
  EXPECT_TRUE(Selects(L"*[System[EventRecordID=1]]"));
  EXPECT_TRUE(Selects(L"*[System[band(Keywords,0x0020000000000000)]]"));
  EXPECT_TRUE(Selects(L"*[System[Security[@UserID='S-1-5-18']]]"));
  EXPECT_TRUE(Selects(L"*[System[TimeCreated[timediff(@SystemTime) <= 3600000]]]"));
  EXPECT_FALSE(Selects(L"*[System[EventID=4625]]"));
  EXPECT_FALSE(Selects(L"*[System[Provider[@Name='natc-tree']]]"));
}

TEST_F(TreeView, EventDataByName)
{
  EXPECT_TRUE(Selects(L"*[EventData[Data[@Name='TargetUserName']='alice']]"));
  EXPECT_TRUE(Selects(L"*[EventData[Data[@Name='LogonType']=10]]"));
  EXPECT_FALSE(Selects(L"*[EventData[Data[@Name='TargetUserName']='bob']]"));
  EXPECT_FALSE(Selects(L"*[UserData]"));
}
} // namespace
