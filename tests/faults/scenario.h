// What scenarios with a channel in their own process share: directories, a producer, the checker at the end.
#ifndef VELT_TESTS_FAULTS_SCENARIO_H
#define VELT_TESTS_FAULTS_SCENARIO_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "velt/channel.h"

#include "tests/checker/outcomes.h"
#include "tests/checker/report.h"
#include "tests/faults/counted.h"
#include "tests/faults/host.h"
#include "tests/faults/scale.h"
#include "tests/faults/shim/shim.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::faults {

// A call may take one second; the other second is for a busy machine.
inline constexpr std::chrono::seconds kLongestCall(2);

// One channel on a directory of its own, and its records. Start, trace, Finish.
class Family {
 public:
  explicit Family(std::string const& root, std::string const& name = "logs") : setup(root + "/" + name) {
    expected.directory = setup.directory;
    expected.prefix = setup.prefix;
    producers.side_directory = root + "/" + name + ".side";
    producers.records = 100'000;
    producers.length = [](unsigned) { return std::size_t{100}; };
    witness_directory = root + "/" + name + ".witness";
  }

  void Start() {
    channel = test::MakeChannel(setup);
    producer = std::make_unique<Producer>(producers, 0, ToChannel(*channel));
  }

  bool Trace(unsigned count = 1) {  // whether all were accepted
    bool all = true;
    while (count-- > 0) all = producer->TraceNext() && all;
    return all;
  }
  bool Fill() { return FillFile({producer.get()}, setup.directory, setup.prefix, setup.max_bytes); }

  std::string OpenLog() const {  // "" when there is none
    auto const logs = LogNames(setup.directory, setup.prefix);
    return logs.empty() ? "" : setup.directory + "/" + logs.back();
  }
  // Waits until a file is open and has a record.
  bool WaitForFile() const {
    return test::WaitUntil(
        [this] { return test::CountOf(test::ReadFile(OpenLog()), "Thread handle output string is") == 1; });
  }
  // Waits until everything traced so far is dealt with, except perhaps the last record.
  bool WaitForEmptyQueue() const {
    return test::WaitUntil([this] { return test::OutputQueueOf(*channel).message_count() == 0; });
  }

  // Stops the channel in order, if there is one, and adds its counts to those of the runs before.
  void Stop() {
    if (channel == nullptr) return;
    EXPECT_EQ(channel->Flush(drains ? 60'000 : 0), drains);
    AddCounts(counts, channel->Counts());
    channel.reset();
  }

  // Stops the channel and checks its family; the sums must hold, the channels' counts agree with them, and no
  // call may have taken long.
  checker::Report Finish() {
    Stop();
    auto report = Look();
    EXPECT_TRUE(report.Accounted()) << report.Text();
    ExpectCounted(report);
    EXPECT_LT(producer->LongestCall(), kLongestCall);
    return report;
  }
  // Compares the channel's counts, record by record, with what the calls returned and what is in the files.
  void ExpectCounted(checker::Report const& report) const {
    EXPECT_EQ(counts.accepted, report.accepted);
    EXPECT_EQ(counts.refused, report.refused);
    EXPECT_EQ(counts.printedOnly, 0U);
    EXPECT_EQ(counts.written, report.found + report.pruned + written_elsewhere);
    EXPECT_EQ(counts.lost + written_elsewhere + counts.queued, report.missing);
  }
  checker::Report Look() const { return Check(expected, checker::ReadOutcomes(producers.side_directory)); }

  void Print(checker::Report const& report) const {
    Figure({{"accepted", static_cast<long long>(report.accepted)},
            {"refused", static_cast<long long>(report.refused)},
            {"in_files", static_cast<long long>(report.found)},
            {"given_up", static_cast<long long>(report.missing)},
            {"pruned", static_cast<long long>(report.pruned)},
            {"longest_us", producer->LongestCall().count() / 1000}});
  }

  test::ChannelSetup setup;
  ProducerSetup producers;
  checker::Expectation expected;
  std::string witness_directory;      // for LinkLogs
  bool drains = true;                 // false: there is no file at the end, and queued records are given up
  std::size_t written_elsewhere = 0;  // into files that the family has lost since
  VeltTraceCounts counts{};           // of the channels that were stopped
  std::unique_ptr<VeltDebugInfo> channel;
  std::unique_ptr<Producer> producer;
};

// While it lives a root process has the rights of an ordinary user; other processes keep theirs.
class OrdinaryUser {
 public:
  explicit OrdinaryUser(std::string const& directory) {
    if (geteuid() != 0) return;
    EXPECT_EQ(chown(directory.c_str(), kNobody, kNobody), 0);
    EXPECT_EQ(seteuid(kNobody), 0);
    changed_ = true;
  }
  ~OrdinaryUser() {
    if (!changed_) return;
    EXPECT_EQ(seteuid(0), 0);
  }
  OrdinaryUser(OrdinaryUser const&) = delete;
  OrdinaryUser& operator=(OrdinaryUser const&) = delete;

 private:
  static constexpr uid_t kNobody = 65'534;
  bool changed_ = false;
};

class Scenario : public ::testing::Test {
 protected:
  ~Scenario() override { shim::ClearRules(); }

  test::ScratchDir const dir;
};

}  // namespace velt::faults

#endif
