// The five limits of a configuration, seen in what a manager does after Init.
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

std::string NumberedArchive(std::string const& prefix, int number) {
  std::string const digits = std::to_string(1'000'000 + number).substr(1);
  return prefix + "20200101_" + digits + ".log.gz";
}

// Puts archives of earlier runs, the oldest first by name, into the log directory.
void LayArchives(std::string const& directory, std::string const& prefix, int count) {
  std::filesystem::create_directories(directory);
  for (int i = 0; i < count; ++i) WriteFile(directory + "/" + NumberedArchive(prefix, i), "x");
}

// How many of `laid` archives a manager of this name and configuration keeps at its start.
std::size_t ArchivesKept(std::string const& configuration, std::string const& name, int laid) {
  ManagerHost const host(configuration);
  LayArchives(host.LogDir(), name, laid);
  EXPECT_TRUE(host.Init(name));
  EXPECT_TRUE(host.WaitForFile(name));
  VeltDebugMgr::Destroy();
  if (!FilesOf(host.LogDir(), NumberedArchive(name, laid - 1), "").empty()) {
    return FilesOf(host.LogDir(), name + "20200101_", ".log.gz").size();
  }
  ADD_FAILURE() << "the newest archive went first";
  return 0;
}

// Traces `count` filtered records and one of level 0; gives the filtered ones that came out, the newest last.
std::vector<std::string> RingAfter(std::string const& configuration, int count) {
  ManagerHost const host(configuration);
  CaptureStdout silence;  // what comes out of the ring is printed as well
  EXPECT_TRUE(host.Init());
  for (int i = 1; i <= count; ++i) {
    EXPECT_TRUE(Manager()->Trace("net", kFiltered, std::to_string(i).c_str(), nullptr, false, false));
  }
  EXPECT_TRUE(Manager()->Trace("net", kLevel0, "end", nullptr, false, true));
  auto records = host.StopAndRead();
  EXPECT_EQ(records.empty() ? "" : records.back(), " net A: end");
  if (!records.empty()) records.pop_back();
  return records;
}

// How many log files a manager has begun after about `kilobytes` of records.
std::size_t FilesAfter(std::string const& configuration, int kilobytes) {
  ManagerHost const host(configuration);
  EXPECT_TRUE(host.Init());
  EXPECT_TRUE(host.WaitForFile());
  WaitForNextSecond();  // a second file must not share the name of the first
  std::string const text(2000, 'x');
  for (int i = 0; i * 2 < kilobytes; ++i) {
    EXPECT_TRUE(Manager()->Trace("net", kLevel3, text.c_str(), nullptr, false, true));
  }
  VeltDebugMgr::Destroy();
  return ExactFamily(host.LogDir(), "host_").size();
}

// How many channels on demand are admitted. Counted in a child that ends without stopping them: that would
// cost a poll of 100 ms for each.
int ChannelsAdmitted(std::string const& configuration, int asked) {
  ManagerHost const host(configuration);
  Outcome const outcome = RunInChild([&] {
    if (!host.Init()) return 250;
    int admitted = 0;
    for (int i = 0; i < asked; ++i) {
      if (!Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "s" + std::to_string(i))) break;
      ++admitted;
    }
    return admitted;
  });
  EXPECT_EQ(outcome.signal, 0) << outcome.err;
  return outcome.exit_code;
}

TEST(InitLimitsTest, TheRingHoldsUpToAThousandRecordsAndElseAHundred) {
  EXPECT_EQ(RingAfter("nFiltLogBufSize = 3\n", 5), (std::vector<std::string>{" net 3", " net 4", " net 5"}));
  EXPECT_EQ(RingAfter("nFiltLogBufSize = 1000\n", 1003).size(), 1000U);
  EXPECT_EQ(RingAfter("nFiltLogBufSize = 1001\n", 1003).size(), 100U);
  EXPECT_EQ(RingAfter("nFiltLogBufSize = -1\n", 1003).size(), 100U);
  EXPECT_EQ(RingAfter("# absent\n", 1003).size(), 100U);
}

TEST(InitLimitsTest, ARingOfZeroRecordsIsKeptAsNoRing) {
  EXPECT_EQ(RingAfter("nFiltLogBufSize = 0\n", 5), std::vector<std::string>{});
}

TEST(InitLimitsTest, TheFileSizeIsBetweenOneAndFiftyMegabytesAndElseFive) {
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 1\n", 1'100), 2U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 0\n", 1'100), 1U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 0\n", 5'400), 2U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 50\n", 5'400), 1U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 51\n", 5'400), 2U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 2048\n", 5'400), 2U) << "as bytes it is a negative int";
}

TEST(InitLimitsTest, OneToTwoHundredArchivesAreKeptAndElseThirty) {
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 1\n", "host_", 3), 1U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 200\n", "host_", 203), 200U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 201\n", "host_", 203), 30U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 0\n", "host_", 33), 30U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = -1\n", "host_", 33), 30U);
}

TEST(InitLimitsTest, OneProcessNameKeepsFiveTimesTheArchives) {
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 2\n", "VELTMrb_p2_", 13), 10U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 201\n", "VELTMrb_p2_", 153), 150U)
      << "five times the 30 that replace 201";
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 200\n", "VELTMrb_p2_", 1003), 1000U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 2\n", "VELTMrb_p2", 13), 2U) << "another name";
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 2\n", "VELTMrb_p2_x", 13), 2U) << "another name";
}

TEST(InitLimitsTest, TheChannelCapIsUpToAHundredAndElseFifty) {
  EXPECT_EQ(ChannelsAdmitted("nMaxFileNum = 100\n", 101), 100);
  EXPECT_EQ(ChannelsAdmitted("nMaxFileNum = 101\n", 52), 50);
  EXPECT_EQ(ChannelsAdmitted("nMaxFileNum = -1\n", 52), 50);
  EXPECT_EQ(ChannelsAdmitted("# absent\n", 52), 50);
  EXPECT_EQ(ChannelsAdmitted("nMaxFileNum = 0\n", 2), 0);
}

}  // namespace
}  // namespace velt::test
