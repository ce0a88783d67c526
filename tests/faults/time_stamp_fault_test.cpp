// A clock text that cannot be made: ACE's function is replaced in this program.
#include "platform/time_stamp.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include <ace/ACE.h>

#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace {

bool fails = false;

}  // namespace

ACE_TCHAR* ACE::timestamp(ACE_Time_Value const& instant, ACE_TCHAR text[], std::size_t size,
                          bool /*pointer_to_first_digit*/) {
  if (fails) return nullptr;
  std::snprintf(text, size, "2026-11-15 08:52:%02d.%06d", static_cast<int>(instant.sec() % 60),
                static_cast<int>(instant.usec()));
  return text + 10;
}

namespace velt::test {
namespace {

std::string Stamp(time_t second, int microsecond) {
  char text[kTimeStampCapacity];
  std::memset(text, '#', sizeof text);
  WriteTimeStamp(ACE_Time_Value(second, microsecond), text);
  return text;
}

TEST(TimeStampFaultTest, ASecondWithoutATextIsEmptyAndIsAskedForAgain) {
  std::string const before = Stamp(1000, 5);
  fails = true;
  std::string const same_second = Stamp(1000, 6);
  std::string const another = Stamp(1001, 7);
  std::string const first_again = Stamp(1000, 8);
  fails = false;
  std::string const afterwards = Stamp(1001, 9);

  EXPECT_EQ(before, "2026-11-15 08:52:40.000005");
  EXPECT_EQ(same_second, "2026-11-15 08:52:40.000006") << "the text of this second was kept";
  EXPECT_EQ(another, "");
  EXPECT_EQ(first_again, "") << "the kept text is not half overwritten";
  EXPECT_EQ(afterwards, "2026-11-15 08:52:41.000009");
}

TEST(TimeStampFaultTest, ARecordWithoutAStampIsWrittenAllTheSame) {
  ScratchDir const dir;
  auto channel = MakeChannel(ChannelSetup(dir.Path()));
  bool traced = false;
  std::thread([&] {  // a thread that has stamped nothing yet
    fails = true;
    traced = channel->Trace("m", VeltLogLevel{3}, "without", nullptr, false, true);
    fails = false;
  })
      .join();
  channel.reset();

  EXPECT_TRUE(traced);
  std::string text;
  for (auto const& name : ListDir(dir.Path())) text += ReadFile(dir / name);
  std::size_t const record = text.find(" m I: without\n");
  ASSERT_NE(record, std::string::npos);
  std::size_t const line = text.rfind('\n', record) + 1;
  EXPECT_EQ(text.substr(line, 2), ".T") << "the line begins where the stamp would end";
}

}  // namespace
}  // namespace velt::test
