// When a file is finished, and what happens to it then.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/output.h"
#include "tests/support/process.h"

namespace fs = std::filesystem;

namespace velt::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class RotationTest : public OutputTest {
 protected:
  // Bytes on disk of the open file.
  std::size_t Size() const { return fs::file_size(dir / FilesOf(dir.Path(), setup.prefix, ".log").back()); }
  // A record whose line brings the open file to `size` bytes.
  OutDataUnit* RecordUpTo(std::size_t size) const {
    return NewRecord(std::string(size - Size() - kLineHeadLength - 1, 'r'));
  }
};

TEST_F(RotationTest, AFileThatEndsAtTheLimitStaysOpen) {
  setup.max_bytes = 2000;
  Open();

  Output(*channel, RecordUpTo(2000));

  EXPECT_EQ(Size(), 2000U);
  EXPECT_EQ(Archives(), std::vector<std::string>{});
  EXPECT_EQ(CountOf(Body(), "File close at"), 0U);
}

TEST_F(RotationTest, AFileOneByteBeyondTheLimitIsClosedAndCompressed) {
  setup.max_bytes = 2000;
  Open();
  std::string const name = FilesOf(dir.Path(), "t_", ".log").front();
  OutDataUnit* const rec = RecordUpTo(2001);
  std::string const line = kLineHead + std::string(rec->m_pText) + "\n";
  WaitForNextSecond();

  bool const done = Output(*channel, rec);

  EXPECT_TRUE(done);
  ASSERT_EQ(Archives(), std::vector<std::string>{name + ".gz"});
  EXPECT_EQ(ModeOf(dir / (name + ".gz")), 0440U);
  std::string const archived = ReadGzip(dir / (name + ".gz"));
  EXPECT_THAT(archived, StartsWith(HeadOf(name, setup) + line + "File close at "));
  EXPECT_EQ(archived.find("File close at "), 2001U);
  EXPECT_EQ(Body(), "") << "the new file has its head only";
}

TEST_F(RotationTest, TheNextRecordGoesIntoTheNewFile) {
  setup.max_bytes = 2000;
  Open();
  OutDataUnit* const rec = RecordUpTo(2001);
  WaitForNextSecond();
  Output(*channel, rec);

  Output(*channel, NewRecord(" next"));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 next\n");
  EXPECT_EQ(CountOf(ReadGzip(dir / Archives().front()), " next"), 0U);
}

TEST_F(RotationTest, ARecordLargerThanTheLimitStaysWhole) {
  setup.max_bytes = 100;
  Open();
  WaitForNextSecond();

  Output(*channel, NewRecord(std::string(100'000, 'r')));

  ASSERT_EQ(Archives().size(), 1U);
  EXPECT_THAT(ReadGzip(dir / Archives().front()),
              HasSubstr(kLineHead + std::string(100'000, 'r') + "\nFile close"));
}

TEST_F(RotationTest, ValuesAndDayLinesCountAgainstTheLimit) {
  setup.max_bytes = 2000;
  Open();
  WaitForNextSecond();

  Output(*channel, WithAsn(NewRecord(" x"), new AsnText(std::string(2000, 'v'))));

  ASSERT_EQ(Archives().size(), 1U);
  EXPECT_THAT(ReadGzip(dir / Archives().front()),
              HasSubstr(" x\nASN Trace:\n" + std::string(2000, 'v') + "\nFile close"));
}

TEST_F(RotationTest, APrintOnlyRecordRotatesNothing) {
  CoutToText out;
  setup.max_bytes = 0;
  Open();

  Output(*channel, NewRecord(" x", 3, false, true));

  EXPECT_EQ(Archives(), std::vector<std::string>{});
}

TEST_F(RotationTest, LimitsThatAreNotPositiveAsSignedRotateAfterEveryRecord) {
  for (unsigned const limit : {0U, 2'147'483'648U, 4'294'967'295U}) {
    ScratchDir const own;
    ChannelSetup own_setup(own.Path());
    own_setup.max_bytes = limit;
    auto const rotating = MakeIdleChannel(own_setup);
    ASSERT_TRUE(rotating->OpenNewFile());
    WaitForNextSecond();

    Output(*rotating, NewRecord(" x"));

    auto const archives = FilesOf(own.Path(), "t_", ".log.gz");
    ASSERT_EQ(archives.size(), 1U) << limit;
    EXPECT_EQ(CountOf(ReadGzip(own / archives.front()), " x\nFile close at "), 1U) << limit;
  }
}

TEST_F(RotationTest, TheLargestSignedLimitDoesNotRotate) {
  setup.max_bytes = 2'147'483'647U;
  Open();

  Output(*channel, NewRecord(std::string(100'000, 'r')));

  EXPECT_EQ(Archives(), std::vector<std::string>{});
}

TEST_F(RotationTest, ItCompressesWhatOthersLeftAndPrunes) {
  setup.max_bytes = 0;
  setup.keep = 2;
  Open();
  WriteFile(dir / "t_19990101_000001.log", "left");
  WriteFile(dir / "t_19990101_000002.log", "left");
  WaitForNextSecond();

  Output(*channel, NewRecord(" x"));

  ASSERT_EQ(Archives().size(), 2U);
  EXPECT_EQ(Archives().front(), "t_19990101_000002.log.gz");
  EXPECT_EQ(CountOf(ReadGzip(dir / Archives().back()), " x\n"), 1U);
}

}  // namespace
}  // namespace velt::test
