// The UTF-8 byte order mark for both kinds of stream, and the constants of file names.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <ios>
#include <memory>
#include <string>

#include "velt/channel.h"

#include "tests/support/files.h"

namespace velt::test {
namespace {

TEST(ByteOrderMarkTest, LogFilesAlwaysBeginWithOne) { EXPECT_TRUE(VELTIsGlobalVersion()); }

TEST(ByteOrderMarkTest, AnOpenStreamGetsTheThreeBytes) {
  ScratchDir const dir;
  std::ofstream out(dir / "file");

  VELTInsertBOM(out);

  EXPECT_TRUE(out.good());
  out.close();
  EXPECT_EQ(ReadFile(dir / "file"), "\xEF\xBB\xBF");
}

TEST(ByteOrderMarkTest, TheBytesGoWhereTheStreamStands) {
  ScratchDir const dir;
  std::ofstream out(dir / "file");
  out << "head";

  VELTInsertBOM(out);
  out << "tail";

  out.close();
  EXPECT_EQ(ReadFile(dir / "file"), "head\xEF\xBB\xBFtail");
}

TEST(ByteOrderMarkTest, EveryCallWritesAMark) {
  ScratchDir const dir;
  std::ofstream out(dir / "file");

  VELTInsertBOM(out);
  VELTInsertBOM(out);

  out.close();
  EXPECT_EQ(ReadFile(dir / "file"), "\xEF\xBB\xBF\xEF\xBB\xBF");
}

TEST(ByteOrderMarkTest, AStreamThatIsNotOpenIsLeftAlone) {
  std::ofstream out;

  VELTInsertBOM(out);

  EXPECT_TRUE(out.good());
}

TEST(ByteOrderMarkTest, AStreamInABadStateGetsNothing) {
  ScratchDir const dir;
  std::ofstream out(dir / "file");
  out.setstate(std::ios_base::badbit);

  VELTInsertBOM(out);

  EXPECT_TRUE(out.bad());
  out.clear();
  out.close();
  EXPECT_EQ(ReadFile(dir / "file"), "");
}

struct CloseStdio {
  void operator()(FILE* file) const { std::fclose(file); }
};
using StdioFile = std::unique_ptr<FILE, CloseStdio>;

TEST(ByteOrderMarkTest, AnOpenStdioFileGetsTheThreeBytes) {
  ScratchDir const dir;
  StdioFile file(std::fopen((dir / "file").c_str(), "wb"));
  ASSERT_NE(file, nullptr);
  std::fputs("head", file.get());

  VELTInsertBOM(file.get());

  file.reset();
  EXPECT_EQ(ReadFile(dir / "file"), "head\xEF\xBB\xBF");
}

TEST(ByteOrderMarkTest, ANullStdioFileIsNothingToDo) {
  FILE* const none = nullptr;

  EXPECT_NO_FATAL_FAILURE(VELTInsertBOM(none));
}

TEST(ByteOrderMarkTest, AStdioFileOpenForReadingStaysAsItIs) {
  ScratchDir const dir;
  WriteFile(dir / "file", "content");
  StdioFile file(std::fopen((dir / "file").c_str(), "rb"));
  ASSERT_NE(file, nullptr);

  VELTInsertBOM(file.get());

  file.reset();
  EXPECT_EQ(ReadFile(dir / "file"), "content");
}

TEST(FileNameConstantsTest, HaveTheirValues) {
  EXPECT_STREQ(VELT_DEBUG_FILE_NAME_TIME_PATTERN, "%Y%m%d_%H%M%S.log");
  EXPECT_STREQ(LOGFILETAIL, ".log");
  EXPECT_STREQ(GZFILETAIL, ".gz");
  EXPECT_STREQ(TARFILETAIL, ".tar");
  EXPECT_STREQ(ZIPFILETAIL, ".tar.gz");
}

}  // namespace
}  // namespace velt::test
