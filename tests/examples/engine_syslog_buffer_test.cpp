// The syslog engine's buffer while the daemon does not read: its bounds, waits for room, and drops.
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "examples/engine_syslog/engine_syslog.h"
#include "tests/examples/engine_syslog.h"
#include "tests/support/process.h"

namespace velt::examples {
namespace {

using std::chrono::seconds;
using test::WaitUntil;
using testing::EndsWith;
using testing::HasSubstr;

TEST_F(SyslogEngineTest, ADaemonThatDoesNotReadFillsTheBufferAndHoldsNobody) {
  options_.most_records = 100;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);

  std::uint64_t taken = Fill(engine);  // the loop ends: a record without room is refused at once
  std::uint64_t refused = 1;
  for (int i = 0; i < 1000; ++i) (Trace(engine, "more") ? taken : refused) += 1;

  SyslogCounters const counters = engine.Counters();
  EXPECT_EQ(counters.accepted, taken);
  EXPECT_EQ(counters.dropped, refused);
  EXPECT_LE(counters.accepted, counters.sent + 100);
}

TEST_F(SyslogEngineTest, WhatWasBufferedArrivesInOrderOnceItReadsAgain) {
  options_.most_records = 100;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  std::size_t const taken = Fill(engine);

  std::vector<std::string> texts;
  std::string notice;
  while (texts.size() < taken || notice.empty()) {  // the notice comes between the records or after them
    std::string const text = daemon.Text();
    ASSERT_NE(text, "nothing");
    (text.find("engine_syslog W: ") == std::string::npos ? texts.emplace_back() : notice) = text;
  }

  EXPECT_EQ(texts, Numbers(taken));
  EXPECT_THAT(notice, HasSubstr("<132>"));
  EXPECT_THAT(notice, EndsWith("engine_syslog W: records dropped: 1"));
  ASSERT_TRUE(WaitUntil([&] { return engine.Counters().sent == taken; }));
  EXPECT_EQ(engine.Counters().lost, 0U);
}

TEST_F(SyslogEngineTest, ACallThatMayWaitForRoomIsTakenOnceTheDaemonReads) {
  options_.most_records = 10;
  options_.room_limit = kLong;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  std::atomic<int> refused{0};

  std::thread caller([&] {
    for (int i = 0; i < 2000; ++i) refused += Trace(engine, std::to_string(i)) ? 0 : 1;
  });
  ASSERT_TRUE(WaitUntil([&] { return engine.Counters().accepted >= 10; }));
  std::vector<std::string> const texts = daemon.Texts(2000);
  caller.join();

  EXPECT_EQ(refused, 0);
  EXPECT_EQ(texts, Numbers(2000));
}

TEST_F(SyslogEngineTest, ACallWaitsForRoomNoLongerThanItsLimit) {
  options_.most_records = 1;
  options_.room_limit = milliseconds(50);
  SyslogEngine engine(options_);  // nobody listens
  ASSERT_TRUE(Trace(engine, "first"));

  auto const begin = std::chrono::steady_clock::now();
  bool const taken = Trace(engine, "second");

  EXPECT_FALSE(taken);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(50));
  EXPECT_EQ(engine.Counters().dropped, 1U);
}

TEST_F(SyslogEngineTest, ARecordLargerThanTheBufferIsRefusedWithoutAWait) {
  options_.most_bytes = 100;
  options_.room_limit = std::chrono::hours(24);
  SyslogEngine engine(options_);

  EXPECT_FALSE(Trace(engine, std::string(98, 'x'))) << "101 bytes with the module";
  EXPECT_TRUE(Trace(engine, std::string(97, 'x')));
}

TEST_F(SyslogEngineTest, StopEndsTheWaitForRoom) {
  options_.most_records = 1;
  options_.room_limit = std::chrono::hours(24);
  SyslogEngine engine(options_);  // nobody listens
  ASSERT_TRUE(Trace(engine, "first"));
  std::atomic<bool> taken{true};
  std::thread caller([&] { taken = Trace(engine, "second"); });

  engine.Stop();
  caller.join();

  EXPECT_FALSE(taken);
  EXPECT_EQ(engine.Counters().dropped, 1U);
}

TEST_F(SyslogEngineTest, BytesBoundTheBufferToo) {
  options_.most_bytes = 10'003;
  SyslogEngine engine(options_);  // nobody listens

  std::size_t taken = 0;
  while (taken < 1000 && Trace(engine, std::string(997, 'x'))) ++taken;

  EXPECT_EQ(taken, 10U) << "of 1000 bytes each, the module counted";
  EXPECT_TRUE(Trace(engine, "")) << "3 bytes are left";
  EXPECT_FALSE(Trace(engine, ""));
}

TEST_F(SyslogEngineTest, TheSubNameCountsAmongTheBytes) {
  options_.most_bytes = 2'000;
  SyslogEngine engine(options_);  // nobody listens
  auto const trace = [&engine](std::string const& text) {
    return engine.AppTrace("net", kInformation, text.c_str(), nullptr, false, true, std::string(1'000, 's'));
  };

  EXPECT_TRUE(trace(std::string(997, 'x')));
  EXPECT_FALSE(trace(""));
}

TEST_F(SyslogEngineTest, BytesThatWereSentAreRoomAgain) {
  options_.most_bytes = 1'000;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);

  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(Trace(engine, std::string(900, 'x'))) << "record " << i;
    ASSERT_EQ(daemon.Text().size(), 903U);
    ASSERT_TRUE(WaitUntil([&] { return engine.Counters().sent == static_cast<std::uint64_t>(i) + 1; }));
  }
}

TEST_F(SyslogEngineTest, DropsAreToldOnceASecondAtMostAndAllOfThem) {
  options_.most_bytes = 10;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  auto const began = std::chrono::steady_clock::now();
  std::uint64_t told = 0;
  std::uint64_t notices = 0;

  std::uint64_t dropped = 0;
  while (std::chrono::steady_clock::now() - began < milliseconds(1'500)) {
    EXPECT_FALSE(Trace(engine, "longer than the buffer"));
    ++dropped;
    std::this_thread::sleep_for(milliseconds(5));
  }
  while (told < dropped) {
    std::string const notice = daemon.Receive().value_or("nothing: 0");
    told += std::stoull(notice.substr(notice.rfind(' ')));
    ++notices;
    ASSERT_THAT(notice, HasSubstr("records dropped: "));
  }

  EXPECT_EQ(told, dropped);
  EXPECT_LE(notices,
            1U + static_cast<std::uint64_t>(
                     std::chrono::duration_cast<seconds>(std::chrono::steady_clock::now() - began).count()));
}

}  // namespace
}  // namespace velt::examples
