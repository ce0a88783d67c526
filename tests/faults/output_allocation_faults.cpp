// Memory that the output thread lacks: old files are kept, and the record is written once there is some.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "velt/channel.h"
#include "velt/config.h"

#include "tests/faults/allocation_fault.h"
#include "tests/faults/counted.h"
#include "tests/faults/scale.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using faults::AllocationFaultTest;
using faults::FailAt;
using faults::Figure;
using faults::kLevel3;
using faults::Of;
using faults::QuietCounts;
using faults::Scaled;
using faults::Value;

TEST_F(AllocationFaultTest, AnOutputThreadThatLacksMemoryKeepsTheOldFilesAndWritesTheRecord) {
  unsigned const last = Scaled(40U, 200U);
  long long given_up = 0;
  std::string const old_text = std::string(200'000, 'o') + "\n";
  for (unsigned n = 1; n <= last; ++n) {
    ChannelSetup setup(host_.Dir() / ("out" + std::to_string(n)));
    setup.prefix = "a_prefix_that_is_longer_than_thirty_characters_";
    ASSERT_EQ(VeltMakeDirEx(setup.directory.c_str()), 0);
    WriteFile(setup.directory + "/" + setup.prefix + "20200101_000000.log", old_text);
    std::unique_ptr<VeltDebugInfo> channel;
    Value const value;

    FailAt(n, Of::kProcess, tally_, [&] {
      channel = MakeChannel(setup);
      // Until the thread has taken a record, so that its start is over.
      return channel->Trace("m", kLevel3, "text", &value, false, true) &&
             WaitUntil([&] { return OutputQueueOf(*channel).is_empty(); });
    });
    bool const accepted = channel != nullptr && channel->Trace("m", kLevel3, "after", nullptr, false, true);
    VeltTraceCounts const counts = channel == nullptr ? VeltTraceCounts{} : QuietCounts(*channel);
    channel.reset();

    std::string const text = ReadFamily(setup.directory, setup.prefix);
    EXPECT_EQ(counts.written, Bodies(text).size()) << n;
    EXPECT_EQ(counts.lost, 0U) << n;
    EXPECT_EQ(CountOf(text, " m I: after\n"), accepted ? 1U : 0U) << n;
    std::string const old_archive = setup.directory + "/" + setup.prefix + "20200101_000000.log.gz";
    // A file whose first read fails is given up, with an empty archive. Here that is zlib without memory.
    bool const is_given_up = Exists(old_archive) && ReadGzip(old_archive).empty();
    given_up += is_given_up ? 1 : 0;
    EXPECT_EQ(CountOf(text, old_text), is_given_up ? 0U : 1U) << n << ": whole, as a file or as an archive";
  }
  EXPECT_LE(given_up, 8) << "only where the first read itself allocates";
  tally_.Print();
  Figure({{"old_files", last}, {"given_up", given_up}});
}

TEST_F(AllocationFaultTest, ARotationWithoutMemoryIsMadeUpFor) {
  unsigned const last = Scaled(12U, 80U);
  std::vector<std::unique_ptr<VeltDebugInfo>> channels;
  std::vector<ChannelSetup> setups;
  for (unsigned n = 1; n <= last; ++n) {
    setups.emplace_back(host_.Dir() / ("rotate" + std::to_string(n)));
    setups.back().prefix = "a_prefix_that_is_longer_than_thirty_characters_";
    setups.back().max_bytes = 0;  // every record ends its file
    channels.push_back(MakeChannel(setups.back()));
  }
  auto const text = [&](std::size_t i) { return ReadFamily(setups[i].directory, setups[i].prefix); };
  for (std::size_t i = 0; i < last; ++i) {
    ASSERT_TRUE(WaitUntil([&] { return CountOf(text(i), "Thread handle output string is") == 1; }));
  }
  WaitForNextSecond();

  // One channel after the other: the failure is met by its output thread or by this one.
  for (unsigned n = 1; n <= last; ++n) {
    auto& channel = *channels[n - 1];
    FailAt(n, Of::kProcess, tally_, [&] {
      bool const accepted = channel.Trace("m", kLevel3, "rotates", nullptr, false, true);
      WaitUntil([&] { return OutputQueueOf(channel).is_empty(); });
      std::this_thread::sleep_for(std::chrono::milliseconds(30));  // for the rotation itself; most of it
      return accepted;
    });
  }
  WaitForNextSecond();
  WaitForNextSecond();  // an opening that failed is tried again after a second
  std::vector<VeltTraceCounts> counts;
  for (auto& channel : channels) {
    EXPECT_TRUE(channel->Trace("m", kLevel3, "after", nullptr, false, true));
    counts.push_back(QuietCounts(*channel));
  }
  channels.clear();

  long long given_up = 0;
  std::size_t written = 0;
  std::size_t refused = 0;
  for (std::size_t i = 0; i < last; ++i) {
    EXPECT_EQ(CountOf(text(i), " m I: after\n"), 1U) << i;
    // As above: a file that zlib could not read for lack of memory is given up, with an empty archive.
    auto const archives = FilesOf(setups[i].directory, setups[i].prefix, ".log.gz");
    auto const is_empty = [&](std::string const& name) {
      return ReadGzip(setups[i].directory + "/" + name).empty();
    };
    bool const is_given_up = std::any_of(archives.begin(), archives.end(), is_empty);
    EXPECT_EQ(CountOf(text(i), "This is the first log file\n"), is_given_up ? 0U : 1U) << i;
    given_up += is_given_up ? 1 : 0;
    // The record went with the first file, into which it had been written.
    EXPECT_EQ(counts[i].written, Bodies(text(i)).size() + (is_given_up ? 1 : 0)) << i;
    EXPECT_EQ(counts[i].lost, 0U) << i;
    written += counts[i].written;
    refused += counts[i].refused;
  }
  EXPECT_EQ(written, last + static_cast<std::size_t>(tally_.answered_true));
  EXPECT_EQ(refused, Refused());
  EXPECT_LE(given_up, 8) << "only where the first read itself allocates";
  tally_.Print();
  Figure({{"rotations", last}, {"given_up", given_up}});
}

}  // namespace
}  // namespace velt::test
