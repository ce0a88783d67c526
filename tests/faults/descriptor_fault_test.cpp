// The descriptors of the library's files: their numbers in a host without standard streams, and which of them
// a program that the host starts at any moment would inherit.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/channel.h"
#include "velt/manager.h"

#include "tests/faults/counted.h"
#include "tests/faults/scenario.h"
#include "tests/faults/shim/shim.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::faults {
namespace {

constexpr VeltLogLevel kLevel3{3};

class DescriptorFaultTest : public Scenario {
 protected:
  ~DescriptorFaultTest() override { shim::WatchOpens(nullptr); }
};

// The flags of a descriptor as the kernel has them, O_CLOEXEC among them.
int FlagsOf(std::string const& descriptor) {
  std::ifstream in("/proc/self/fdinfo/" + descriptor);
  for (std::string word; in >> word;) {
    if (word == "flags:") {
      in >> word;
      return std::stoi(word, nullptr, 8);
    }
  }
  return 0;
}

// Open files of this process whose path has `piece` in it.
std::vector<std::string> DescriptorsOf(std::string const& piece) {
  std::vector<std::string> found;
  for (auto const& number : test::ListDir("/proc/self/fd")) {
    char path[512] = "";
    ssize_t const length = readlink(("/proc/self/fd/" + number).c_str(), path, sizeof path - 1);
    if (length > 0 && std::string(path).find(piece) != std::string::npos) found.push_back(number);
  }
  return found;
}

// --- numbers ---

constexpr char const* kHostLine = "a line of the host\n";

// A host that is started without standard streams, with three families open. Returns 0 when none of them took
// a standard descriptor.
int LogWithoutStandardStreams(test::ManagerHost const& host) {
  for (int const standard : {0, 1, 2}) close(standard);
  if (!host.Init()) return 10;
  if (!host.WaitForFile()) return 11;
  for (std::string const sub_name : {"a", "b"}) {
    if (!VeltDebugMgr::Instance()->AppTrace("m", kLevel3, "text", nullptr, false, true, sub_name)) return 12;
    if (!host.WaitForFile("host_" + sub_name + "_")) return 13;
  }
  if (DescriptorsOf("/log/host_").size() != 3) return 14;
  for (int const standard : {0, 1, 2}) {
    (void)!write(standard, kHostLine, std::string(kHostLine).size());
  }
  std::printf("%s", kHostLine);
  std::fflush(stdout);
  std::cout << kHostLine << std::flush;
  int taken = 0;
  for (int const standard : {0, 1, 2}) taken += fcntl(standard, F_GETFD) == -1 ? 0 : 1;
  return VeltDebugMgr::Destroy() == 0 ? taken : 15;
}

TEST_F(DescriptorFaultTest, WithoutStandardStreamsNoLogFileTakesTheirPlace) {
  test::ManagerHost const host;

  auto const outcome = test::RunInChild([&host] { return LogWithoutStandardStreams(host); });

  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.exit_code, 0)
      << "number of standard descriptors taken by log files, or the code of an early end";
  for (std::string const family : {"host_", "host_a_", "host_b_"}) {
    std::string const text = host.Text(family);
    EXPECT_EQ(test::CountOf(text, kHostLine), 0U) << family;
    EXPECT_EQ(test::CountOf(text, "File close at "), 1U) << family;
  }
}

// --- inheritance ---

TEST_F(DescriptorFaultTest, LogFilesAndArchivesAreClosedOnExecFromTheirOpenOn) {
  shim::WatchOpens("*/logs/*.log*");
  test::ChannelSetup setup(dir / "logs");
  setup.max_bytes = 0;  // every record ends its file, which is compressed
  auto channel = test::MakeChannel(setup);
  ASSERT_TRUE(test::WaitUntil([] { return DescriptorsOf("/logs/t_").size() == 1; }));
  for (int i = 0; i < 2; ++i) {
    auto const archives = [&] { return test::FilesOf(setup.directory, "t_", ".log.gz").size(); };
    std::size_t const before = archives();
    test::WaitForNextSecond();  // the next file has a name of its own
    ASSERT_TRUE(channel->Trace("m", kLevel3, "text", nullptr, false, true));
    ASSERT_TRUE(test::WaitUntil([&] { return archives() > before; }));
  }
  ASSERT_TRUE(test::WaitUntil([&] { return DescriptorsOf("/logs/t_").size() == 1; }));
  int const flags = FlagsOf(DescriptorsOf("/logs/t_").front());
  VeltTraceCounts const counts = QuietCounts(*channel);
  channel.reset();

  EXPECT_EQ(flags & O_CLOEXEC, O_CLOEXEC);
  shim::Opens const opens = shim::WatchedOpens();
  EXPECT_GE(opens.all, 7U) << "three log files; two sources and two archives of their compression";
  EXPECT_EQ(opens.inheritable, 0U) << "a program started by the host would have inherited them";
  shim::WatchOpens(nullptr);  // the test's own follow
  ExpectCounts(counts, 2, 0, test::CountOf(test::ReadFamily(setup.directory, "t_"), " m I: text\n"));
}

}  // namespace
}  // namespace velt::faults
