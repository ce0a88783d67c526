// Memory that the system refuses, at every point of every operation: the caller gets an error, no lock stays
// held, and the next call works.
#include <cstddef>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/channel.h"
#include "velt/config.h"
#include "velt/manager.h"

#include "tests/faults/allocation_fault.h"
#include "tests/faults/counted.h"
#include "tests/faults/scale.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using faults::AllocationFaultTest;
using faults::End;
using faults::ExpectCounts;
using faults::FailAt;
using faults::kLevel3;
using faults::Of;
using faults::QuietCounts;
using faults::Scaled;
using faults::Times;
using faults::Value;

constexpr unsigned kLastFailure = 500;

VeltDebugMgr& Manager() { return *VeltDebugMgr::Instance(); }

// Runs `body` in a thread of its own: what the library keeps for each thread is then made for this one.
template <typename Body>
void InNewThread(Body const& body) {
  std::thread(body).join();
}

// Memory that is short for one allocation, and until the call is over.
class ShortMemoryTest : public AllocationFaultTest, public testing::WithParamInterface<Times> {
 protected:
  template <typename Operation>
  End Fail(unsigned nth, Of whose, Operation const& operation) {
    return FailAt(nth, whose, tally_, operation, GetParam());
  }
};
INSTANTIATE_TEST_SUITE_P(Fails, ShortMemoryTest, testing::Values(Times::kOnce, Times::kFromThere),
                         [](auto const& times) {
                           return std::string(times.param == Times::kOnce ? "Once" : "FromThere");
                         });

TEST_P(ShortMemoryTest, TraceThrowsOrAcceptsAndTheNextCallWorks) {
  StartManager();
  ASSERT_TRUE(Manager().RegSubModuleInfo(long_module_, BitsOf({3}), BitsOf({1}), false));
  Value const value;
  long long accepted = 0;

  for (unsigned n = 1; n <= kLastFailure; ++n) {
    InNewThread([&] {
      auto const trace = [&] {
        return Manager().Trace(long_module_, kLevel3, long_text_.c_str(), &value, false, n % 3 == 0);
      };
      accepted += Fail(n, Of::kCaller, trace) == End::kTrue ? 1 : 0;
      EXPECT_TRUE(trace()) << n;
      ++accepted;
    });
  }

  VeltTraceCounts const counts = QuietCounts()["host_"];
  auto const records = host_.StopAndRead();
  EXPECT_EQ(static_cast<long long>(records.size()), accepted);
  ExpectCounts(counts, records.size(), Refused(), records.size());
  auto const values = static_cast<long long>(CountOf(host_.Text(), std::string(100, 'v') + "\n"));
  EXPECT_EQ(values, accepted);
  EXPECT_EQ(tally_.answered_false, 0);
  EXPECT_GT(tally_.thrown, 2);
  EXPECT_EQ(tally_.points + tally_.untouched, kLastFailure);
  tally_.Print();
}

TEST_P(ShortMemoryTest, AFilteredTraceThrowsOrIsKeptAndTheRingStaysInOrder) {
  StartManager();
  for (unsigned n = 1; n <= kLastFailure; ++n) {
    InNewThread([&] {
      auto const trace = [&] {
        return Manager().Trace("net", VeltLogLevel{9}, long_text_.c_str(), nullptr, false, false);
      };
      Fail(n, Of::kCaller, trace);
      EXPECT_TRUE(trace());
    });
  }

  std::string const last = "level zero";
  VeltTraceCounts counts{};
  {
    CaptureStdout const quiet;
    EXPECT_TRUE(Manager().Trace("net", VeltLogLevel{0}, last.c_str(), nullptr, false, true));
    counts = QuietCounts()["host_"];
    VeltDebugMgr::Destroy();
  }
  auto const records = host_.Records();
  ASSERT_EQ(records.size(), 6U) << "the ring's record, and the one of level 0";
  EXPECT_EQ(records.front(), " net " + long_text_);
  EXPECT_EQ(records.back(), " net A: level zero");
  ExpectCounts(counts, 6, Refused(), 6);
  EXPECT_EQ(counts.displaced, std::size_t{kLastFailure} * 2 - Refused() - 5)
      << "all others that the ring took";
  EXPECT_GT(tally_.thrown, 0);
  tally_.Print();
}

TEST_F(AllocationFaultTest, AppTraceOfANewSubNameThrowsRefusesOrWorksAndSoDoesTheNext) {
  StartManager();
  // Each sub-name has a channel and a thread, and ending it costs a poll.
  unsigned const last = Scaled(45U, 90U);
  std::vector<End> ends;
  for (unsigned n = 1; n <= last; ++n) {
    std::string const name = "s" + std::to_string(n) + "_" + std::string(40, 's');
    auto const trace = [&] { return Manager().AppTrace("net", kLevel3, "text", nullptr, false, true, name); };
    ends.push_back(FailAt(n, Of::kCaller, tally_, trace));
    // A channel whose thread could not be created refuses; every other one works now.
    bool const works = trace();
    EXPECT_TRUE(works || ends.back() == End::kFalse) << n;
    EXPECT_TRUE(Manager().AppTrace("net", kLevel3, "main", nullptr, false, true, "")) << n;
  }

  auto counts = QuietCounts();
  EXPECT_EQ(host_.StopAndRead().size(), last);
  std::size_t refused = counts["host_"].refused;  // those that came to no channel, too
  EXPECT_EQ(counts["host_"].written, last);
  for (unsigned n = 1; n <= last; ++n) {
    std::string const prefix = "host_s" + std::to_string(n) + "_" + std::string(40, 's') + "_";
    End const end = ends[n - 1];
    std::size_t const expected = end == End::kTrue ? 2 : end == End::kThrown ? 1 : 0;
    EXPECT_EQ(RecordsIn(prefix), expected) << n;
    VeltTraceCounts const& own = counts[prefix];
    EXPECT_EQ(own.accepted, expected) << n;
    EXPECT_EQ(own.written, expected) << n;
    EXPECT_EQ(own.lost, 0U) << n;
    refused += own.refused;
  }
  // A channel whose thread could not be created refuses the second call, too.
  EXPECT_EQ(refused, Refused() + static_cast<std::size_t>(tally_.answered_false));
  EXPECT_GT(tally_.thrown, 4);
  tally_.Print();
}

TEST_P(ShortMemoryTest, InitThrowsOrAnswersAndARepeatedInitWorks) {
  unsigned const step = Scaled(12U, 1U);
  long long repeated = 0;
  for (unsigned n = 1; n <= kLastFailure; n += n < 30 ? 1 : step) {
    std::string const name = "init" + std::to_string(n) + "_a_name_that_is_longer_than_thirty_characters_";
    End const end = Fail(n, Of::kProcess, [&] { return host_.Init(name); });
    if (end != End::kTrue) {
      EXPECT_FALSE(Manager().IsInit()) << n;
      EXPECT_TRUE(host_.Init(name)) << n;
      ++repeated;
    }
    Bits levels;
    Bits outputs;
    EXPECT_TRUE(Manager().GetSubModuleInfo("net", levels, outputs) || end == End::kTrue) << n;
    bool const traced = Manager().Trace("net", kLevel3, "text", nullptr, false, true);
    EXPECT_TRUE(traced || end == End::kTrue) << n << ": only a channel without a thread refuses";
    ExpectCounts(QuietCounts()[name], traced ? 1 : 0, traced ? 0 : 1, traced ? 1 : 0);
    EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
    EXPECT_EQ(RecordsIn(name), traced ? 1U : 0U) << n;
  }

  EXPECT_GT(repeated, 20);
  tally_.Print();
}

TEST_P(ShortMemoryTest, DestroyAnswersZeroAndWritesWhatWasAccepted) {
  unsigned const last = Scaled(20U, 100U);
  for (unsigned n = 1; n <= last; ++n) {
    std::string const name = "destroy" + std::to_string(n) + "_a_name_that_is_longer_than_thirty_characters_";
    ASSERT_TRUE(host_.Init(name));
    for (int i = 0; i < 20; ++i) {
      ASSERT_TRUE(Manager().Trace("net", kLevel3, long_text_.c_str(), nullptr, false, true));
      ASSERT_TRUE(Manager().Trace("net", VeltLogLevel{9}, "filtered", nullptr, false, false));
    }
    // A channel that is ended before it has a file gives up its records.
    ASSERT_TRUE(WaitUntil([&] { return CountOf(host_.Text(name), "This is the first log file") == 1; })) << n;
    ExpectCounts(QuietCounts()[name], 20, 0, 20);

    End const end = Fail(n, Of::kProcess, [] { return VeltDebugMgr::Destroy() == 0; });

    EXPECT_EQ(end, End::kTrue) << n;
    EXPECT_EQ(host_.Records(name).size(), 20U) << n;
    EXPECT_EQ(CountOf(host_.Text(name), "File close at "), 1U) << n;
  }
  tally_.Print();
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // positional arguments take the C library's own way

TEST_P(ShortMemoryTest, PrintfThrowsSaysThatItFailedOrTraces) {
  StartManager();
  char const* const positional = "%2$.300f %1$s";
  VeltInterString const module(long_module_);
  std::size_t good = 0;
  std::string seen;
  VeltTraceCounts counts{};
  {
    CaptureStdout out;
    for (unsigned n = 1; n <= kLastFailure; ++n) {
      InNewThread([&] {
        Fail(n, Of::kCaller, [&] {
          Manager().Printf(kLevel3, positional, long_text_.c_str(), 1e300);
          return true;
        });
        Fail(n, Of::kCaller, [&] {
          Manager().Printf(kLevel3, module, "%s", long_text_.c_str());
          return true;
        });
        Manager().Printf(kLevel3, "good %u", n);
        ++good;
      });
    }
    counts = QuietCounts()["host_"];
    VeltDebugMgr::Destroy();
    seen = out.Text();
  }

  auto const records = host_.Records();
  std::size_t good_found = 0;
  std::size_t others = 0;
  for (auto const& record : records) ++(record.rfind("  I: good ", 0) == 0 ? good_found : others);
  EXPECT_EQ(good_found, good);
  ExpectCounts(counts, records.size(), 3 * std::size_t{kLastFailure} - records.size(), records.size());
  EXPECT_EQ(static_cast<long long>(others + CountOf(seen, "Printf failed. errno:")), tally_.answered_true);
  EXPECT_GT(tally_.thrown, 0);
  tally_.Print();
}

TEST_P(ShortMemoryTest, FmtTraceThrowsOrTraces) {
  ChannelSetup const setup(host_.Dir() / "own");
  auto channel = MakeChannel(setup);
  char const* const positional = "%2$.300f %1$s";
  std::size_t good = 0;
  VeltTraceCounts counts{};
  {
    CaptureStdout const quiet;
    for (unsigned n = 1; n <= kLastFailure; ++n) {
      InNewThread([&] {
        Fail(n, Of::kCaller, [&] {
          channel->FmtTrace(positional, long_text_.c_str(), 1e300);
          return true;
        });
        channel->FmtTrace("good %u", n);
        ++good;
      });
    }
    counts = QuietCounts(*channel);
    channel.reset();
  }

  std::string const log = ReadFamily(setup.directory, "t_");
  EXPECT_EQ(CountOf(log, "   I: good "), good);
  std::size_t const written = Bodies(log).size();
  ExpectCounts(counts, written, 2 * std::size_t{kLastFailure} - written, written);
  EXPECT_GT(tally_.thrown, 0);
  tally_.Print();
}

#pragma GCC diagnostic pop

TEST_P(ShortMemoryTest, LookUpsThrowOrAnswerAndTheNextOneWorks) {
  ASSERT_EQ(setenv("APP_ROOT", host_.Dir().Path().c_str(), 1), 0);
  for (unsigned n = 1; n <= kLastFailure; ++n) {
    Fail(n, Of::kCaller, [&] {
      int value = 0;
      std::map<std::string, std::string> items;
      std::string const directory = host_.Dir() / ("a/" + std::string(40, 'd') + std::to_string(n));
      bool const all = VeltAllCfgItem(items, host_.ConfigFile(), "") && items.size() == 6;
      return VeltGetCfgInt("nMaxFileNum", value, host_.ConfigFile().c_str()) && value == 100 && all &&
             VeltMakeDirEx(directory.c_str()) == 0 &&
             !VELTreplaceEnvValue("${APP_ROOT}/${APP_ROOT}").empty() && !VeltGetDefaultCfgPath().empty();
    });
    int value = 0;
    EXPECT_TRUE(VeltGetCfgInt("nMaxFileNum", value, host_.ConfigFile().c_str()));
  }

  unsetenv("APP_ROOT");
  EXPECT_GT(tally_.thrown, 5);
  tally_.Print();
}

}  // namespace
}  // namespace velt::test
