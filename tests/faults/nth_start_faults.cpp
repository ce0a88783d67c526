// The start of a channel fails at its n-th time: its directory cannot be made, or its thread cannot be
// started.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/checker/report.h"
#include "tests/faults/nth_call.h"
#include "tests/faults/process_state.h"

namespace fs = std::filesystem;

namespace velt::faults {
namespace {

using checker::Report;
using shim::Call;

// --- the directory ---

// The host renames the directory after each file but the last ones, so that the next file is made in a new
// one.
class NthMkdirFaultTest : public NthCall {
 protected:
  // Waits until the thread has set the file's mode, which is its last step before records.
  static bool WaitForOpenFile(Family const& family) {
    return test::WaitUntil([&] {
      std::string const log = family.OpenLog();
      return test::CountOf(test::ReadFile(log), "header\n") == 1 && test::ModeOf(log) == 0640U;
    });
  }
  static std::string Away(Life const& life, unsigned i) {
    return life.family.setup.directory + ".away" + std::to_string(i);
  }

  void Begin(Life& life) {
    life.rule = AddRule(life);
    life.family.Start();
    for (unsigned i = 1; i < life.n; ++i) {
      ASSERT_TRUE(WaitForOpenFile(life.family));
      fs::rename(life.family.setup.directory, Away(life, i));
      ASSERT_TRUE(life.family.Trace());
    }
  }
  void WaitForTheFault(Life const& life) {
    unsigned const least = GetParam().lasts == Lasts::kOnce ? 1 : 2;
    EXPECT_TRUE(test::WaitUntil([&] { return life.Applied() >= least; })) << "tried again each second";
    failures += life.Applied();
  }
  static void PutBack(Life const& life) {
    for (unsigned i = 1; i < life.n; ++i) {
      for (auto const& name : test::ListDir(Away(life, i)))
        fs::rename(Away(life, i) + "/" + name, life.family.setup.directory + "/" + name);
    }
  }
};

TEST_P(NthMkdirFaultTest, KeepsEveryRecordWaitingForTheDirectory) {
  std::size_t const before = DescriptorsWithoutOutputThreads();
  std::vector<unsigned> const places = Places();
  constexpr std::size_t kSideBySide = 16;

  for (std::size_t first = 0; first < places.size(); first += kSideBySide) {
    test::ScratchDir const own;
    Lives lives;
    for (std::size_t i = first; i < std::min(places.size(), first + kSideBySide); ++i) {
      lives.push_back(std::make_unique<Life>(own.Path(), places[i]));
      ASSERT_NO_FATAL_FAILURE(Begin(*lives.back()));
    }
    for (auto const& life : lives) WaitForTheFault(*life);
    for (auto const& life : lives) EXPECT_TRUE(life->family.Trace(kAfterwards));
    shim::ClearRules();

    for (auto const& life : lives) EXPECT_TRUE(WaitForOpenFile(life->family));
    End(lives);
    for (auto const& life : lives) PutBack(*life);
    RunAgain(lives);
    for (auto const& life : lives) {
      Report const report = Verify(*life);
      EXPECT_EQ(report.archives, life->n - 1 + kAfterwards + 1 + kAfterwards);
      EXPECT_EQ(report.files, report.archives + 1);
    }
  }

  EXPECT_EQ(DescriptorsWithoutOutputThreads(), before);
  EXPECT_EQ(cases, static_cast<long long>(places.size()));
  Print();
}

INSTANTIATE_TEST_SUITE_P(Directory, NthMkdirFaultTest,
                         testing::Values(Fault{"Mkdir", Call::kMkdir, EACCES, Lasts::kOnce},
                                         Fault{"Mkdir", Call::kMkdir, EACCES, Lasts::kUntilMended}),
                         NameOf);

// --- threads ---

// The channels of one process, each of which starts a thread: the n-th, and perhaps those after it, get none.
class NthPthreadCreateFaultTest : public NthCall {
 protected:
  static bool Refuses(Life const& channel, unsigned place) {
    return GetParam().lasts == Lasts::kOnce ? channel.n == place : channel.n >= place;
  }

  void Run(std::string const& root, unsigned place) {
    Lives channels;
    for (unsigned i = 1; i <= place + 2; ++i) channels.push_back(std::make_unique<Life>(root, i));
    shim::ClearRules();
    int const rule = AddRule(*channels[place - 1], true);
    for (auto const& channel : channels) {
      channel->family.Start();
      EXPECT_EQ(channel->family.Trace(kMoreThanTheFault), !Refuses(*channel, place)) << channel->n;
    }
    if (GetParam().lasts == Lasts::kUntilMended) {
      for (auto const& channel : channels)
        EXPECT_EQ(channel->family.channel->Init(), !Refuses(*channel, place)) << channel->n;
    }
    failures += shim::AppliedCalls(rule);
    shim::ClearRules();

    for (auto const& channel : channels) {
      EXPECT_TRUE(channel->family.channel->Init())
          << "starts the thread that the constructor could not start";
      EXPECT_TRUE(channel->family.Trace(kAfterwards)) << channel->n;
    }
    End(channels);
    RunAgain(channels);
    for (auto const& channel : channels) {
      Report const report = Verify(*channel);
      EXPECT_EQ(report.refused, Refuses(*channel, place) ? kMoreThanTheFault : 0U) << channel->n;
      EXPECT_EQ(report.found + report.refused, kMoreThanTheFault + 2 * kAfterwards) << channel->n;
    }
  }
};

TEST_P(NthPthreadCreateFaultTest, RefusesTheRecordsOfThatChannelUntilItsInitSucceeds) {
  std::size_t const before = DescriptorsWithoutOutputThreads();

  for (unsigned const n : Places()) {
    SCOPED_TRACE("thread " + std::to_string(n));
    test::ScratchDir const own;
    Run(own.Path(), n);
  }

  EXPECT_EQ(DescriptorsWithoutOutputThreads(), before);
  unsigned const each =
      GetParam().lasts == Lasts::kOnce ? 1 : 2 * 3;  // three channels, at their start and Init
  EXPECT_EQ(failures, static_cast<long long>(each * Places().size()));
  Print();
}

std::vector<Fault> FaultsOfThreads() {
#ifdef __clang__
  if (kSanitized) return {};  // the shim cannot intercept the start of these threads
#endif
  return {{"PthreadCreate", Call::kPthreadCreate, EAGAIN, Lasts::kOnce},
          {"PthreadCreate", Call::kPthreadCreate, EAGAIN, Lasts::kUntilMended}};
}
INSTANTIATE_TEST_SUITE_P(Thread, NthPthreadCreateFaultTest, testing::ValuesIn(FaultsOfThreads()), NameOf);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(NthPthreadCreateFaultTest);
}  // namespace
}  // namespace velt::faults
