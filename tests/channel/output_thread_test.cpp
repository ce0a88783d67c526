// The output thread's loop: its order, its first and last lines, its end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <string>
#include <vector>

#include <ace/Message_Block.h>

#include "tests/support/output.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// The thread's loop, run by the test on a channel without a thread.
class LoopTest : public OutputTest {
 protected:
  LoopTest() { channel = MakeIdleChannel(setup); }

  void Queue(OutDataUnit* rec) const { EXPECT_TRUE(channel->TraceInner(rec)); }
  // Queues a stop marker behind everything else and runs until it; returns the file's text behind the start
  // lines.
  std::string Run() const {
    Queue(NewStopMarker());
    EXPECT_EQ(VeltDebugInfo::HandleOutputStringLoop(channel.get()), nullptr);
    std::string const body = Body();
    std::size_t const second = body.find('\n', body.find('\n') + 1);
    return second == std::string::npos ? body : body.substr(second + 1);
  }
};

TEST_F(LoopTest, ANullChannelIsNothingToDo) {
  char before[16] = "";
  char after[16] = "";
  pthread_getname_np(pthread_self(), before, sizeof before);

  EXPECT_EQ(VeltDebugInfo::HandleOutputStringLoop(nullptr), nullptr);

  pthread_getname_np(pthread_self(), after, sizeof after);
  EXPECT_STREQ(before, after);
}

TEST_F(LoopTest, TheFirstFileBearsTheStartLinesAndTheEndLine) {
  char id[16];
  std::snprintf(id, sizeof id, "%x", static_cast<unsigned>(pthread_self()));
  Queue(NewStopMarker());

  VeltDebugInfo::HandleOutputStringLoop(channel.get());
  channel->CloseFile();

  EXPECT_THAT(Body(), StartsWith("This is the first log file\nThread handle output string is 0x" +
                                 std::string(id) + "\nthread handle output string exit\nFile close at "));
}

TEST_F(LoopTest, RecordsAreWrittenInTheirOrder) {
  std::string expected;
  for (int i = 0; i < 100; ++i) {
    Queue(NewRecord(" record " + std::to_string(i)));
    expected += "11-15 08:52:13.123456.T4711 record " + std::to_string(i) + "\n";
  }

  std::string const body = Run();
  channel->CloseFile();

  EXPECT_THAT(body, HasSubstr(expected + "thread handle output string exit\n"));
}

TEST_F(LoopTest, ARecordBehindTheStopMarkerIsNotWritten) {
  Queue(NewRecord(" before"));
  Queue(NewStopMarker());
  Queue(NewRecord(" behind"));

  std::string const body = Run();

  EXPECT_EQ(CountOf(body, " before\n"), 1U);
  EXPECT_EQ(CountOf(body, " behind"), 0U);
  EXPECT_EQ(OutputQueueOf(*channel).message_count(), 2U) << "and the marker of Run";
}

TEST_F(LoopTest, RecordsThatLackPartsAreReported) {
  Queue(WithoutText(NewRecord("")));  // a stamp alone
  Queue(WithoutStamp(NewRecord(" text alone")));
  Queue(WithAsn(WithoutStamp(WithoutText(NewRecord(""))), new AsnText("value alone")));
  Queue(WithAsn(WithoutStamp(NewRecord(" both without stamp")), new AsnText("value")));

  std::string const body = Run();

  EXPECT_EQ(body,
            "can't get output data\ncan't get output data\ncan't get output data\ncan't get output data\n"
            "thread handle output string exit\n");
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(LoopTest, AStampWithAValueIsEnough) {
  Queue(WithAsn(WithoutText(NewRecord("")), new AsnText("value")));

  EXPECT_THAT(Run(),
              EndsWith("11-15 08:52:13.123456.T4711ASN Trace:\nvalue\nthread handle output string exit\n"));
}

TEST_F(LoopTest, ABlockWithoutARecordIsReported) {
  OutputQueueOf(*channel).enqueue(new ACE_Message_Block);
  Queue(NewRecord(" after"));

  std::string const body = Run();

  EXPECT_THAT(body, StartsWith("can't get message block's base\n"));
  EXPECT_EQ(CountOf(body, " after\n"), 1U);
}

TEST_F(LoopTest, AValueWhosePrintThrowsDoesNotEndIt) {
  Queue(WithAsn(NewRecord(" breaks"), new AsnThatBreaks("half")));
  Queue(NewRecord(" after"));

  std::string const body = Run();

  EXPECT_THAT(body, HasSubstr(" breaks\nASN Trace:\nhalf\n"));
  EXPECT_EQ(CountOf(body, " after\n"), 1U);
}

TEST_F(LoopTest, WhatEarlierRunsLeftIsCompressedAndPrunedBeforeTheFirstFile) {
  setup.keep = 2;
  channel = MakeIdleChannel(setup);
  for (int n = 1; n <= 4; ++n) WriteFile(dir / ("t_19990101_00000" + std::to_string(n) + ".log"), "left");

  Run();

  EXPECT_EQ(Archives(), (std::vector<std::string>{"t_19990101_000003.log.gz", "t_19990101_000004.log.gz"}));
  EXPECT_EQ(FilesOf(dir.Path(), "t_", ".log").size(), 1U);
}

TEST_F(LoopTest, ARotatedFileHasNoStartLines) {
  setup.max_bytes = 0;
  channel = MakeIdleChannel(setup);
  Queue(NewRecord(" x"));
  Queue(NewStopMarker());

  VeltDebugInfo::HandleOutputStringLoop(channel.get());

  std::vector<std::string> const files = FilesOf(dir.Path(), "t_", ".log");
  ASSERT_EQ(files.size(), 1U);
  std::string const rotated = ReadFile(dir / files.front());
  EXPECT_EQ(rotated.substr(rotated.find('\n')), "\nheader\nthread handle output string exit\n");
}

TEST_F(OutputTest, AThreadThatIsWokenWithoutABlockSaysSoAndWorksOn) {
  channel = MakeChannel(setup);
  auto const log = [this] { return ReadFamily(dir.Path(), "t_"); };

  bool const said = WaitUntil([this, &log] {
    OutputQueueOf(*channel).pulse();  // wakes the waiting thread
    return CountOf(log(), "can't get message block\n") > 0;
  });
  OutputQueueOf(*channel).activate();
  channel->Trace("m", VeltLogLevel{3}, "after", nullptr, false, true);
  channel.reset();

  EXPECT_TRUE(said);
  EXPECT_EQ(CountOf(log(), " m I: after\n"), 1U);
}

}  // namespace
}  // namespace velt::test
