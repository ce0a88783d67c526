// Memory and threads that the system refuses, at every point of every operation: the caller gets an error, no
// lock stays held, and the next call works.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "velt/channel.h"
#include "velt/config.h"
#include "velt/manager.h"

#include "tests/faults/counted.h"
#include "tests/faults/process_state.h"
#include "tests/faults/scale.h"
#include "tests/faults/shim/shim.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using faults::ExpectCounts;
using faults::Figure;
using faults::QuietCounts;
using faults::Scaled;

constexpr VeltLogLevel kLevel3{3};
constexpr unsigned kLastFailure = 500;

VeltDebugMgr& Manager() { return *VeltDebugMgr::Instance(); }

// Whose allocations count. A test of the caller counts the caller's only: otherwise an output thread might
// meet the failure.
enum class Of { kCaller, kProcess };

// Whether the n-th fails alone, or every one after it as well.
enum class Times { kOnce, kFromThere };

// While it lives, the n-th allocation from now on fails.
class FailingAllocation {
 public:
  FailingAllocation(unsigned nth, Of whose, Times times) {
    shim::Rule rule;
    // A sanitizer replaces malloc itself; there operator new is made to fail.
    rule.call = faults::kSanitized ? shim::Call::kNew : shim::Call::kMalloc;
    rule.first = nth;
    rule.count = times == Times::kOnce ? 1 : 0;
    rule.error = ENOMEM;
    rule.own_thread = whose == Of::kCaller;
    rule_ = shim::AddRule(rule);
  }
  ~FailingAllocation() { shim::ClearRules(); }
  FailingAllocation(FailingAllocation const&) = delete;
  FailingAllocation& operator=(FailingAllocation const&) = delete;

  bool Happened() const { return shim::AppliedCalls(rule_) != 0; }

 private:
  int rule_;
};

enum class End { kTrue, kFalse, kThrown };

struct Tally {
  long long points = 0;     // calls in which an allocation failed
  long long untouched = 0;  // calls that needed fewer
  long long thrown = 0;
  long long answered_true = 0;
  long long answered_false = 0;

  void Add(End end, bool happened) {
    ++(happened ? points : untouched);
    thrown += end == End::kThrown ? 1 : 0;
    answered_true += end == End::kTrue ? 1 : 0;
    answered_false += end == End::kFalse ? 1 : 0;
  }
  void Print() const {
    Figure({{"failed_allocations", points},
            {"untouched", untouched},
            {"bad_alloc", thrown},
            {"true", answered_true},
            {"false", answered_false}});
  }
};

// How `operation` ends when its n-th allocation fails.
template <typename Operation>
End FailAt(unsigned nth, Of whose, Tally& tally, Operation const& operation, Times times = Times::kOnce) {
  FailingAllocation const failing(nth, whose, times);
  End end = End::kThrown;
  try {
    end = operation() ? End::kTrue : End::kFalse;
  } catch (std::bad_alloc const&) {
    end = End::kThrown;
  }
  tally.Add(end, failing.Happened());
  return end;
}

// Runs `body` in a thread of its own: what the library keeps for each thread is then made for this one.
template <typename Body>
void InNewThread(Body const& body) {
  std::thread(body).join();
}

class Value : public AsnType {
 public:
  AsnType* Clone() const override { return new Value(*this); }
  void Print(std::ostream& out, int, int) const override { out << text_; }

 private:
  std::string text_ = std::string(100, 'v');
};

class AllocationFaultTest : public ::testing::Test {
 protected:
  // The records of all files of a family. A channel that failed and the one after it may have made files of
  // the same name: one is then the archive and the other the log.
  std::size_t RecordsIn(std::string const& prefix) const {
    std::size_t count = 0;
    for (auto const& name : ExactFamily(host_.LogDir(), prefix)) {
      std::string const path = host_.LogDir() + "/" + name;
      count += Bodies(name.back() == 'z' ? ReadGzip(path) : ReadFile(path)).size();
    }
    return count;
  }
  // Calls without a record: they returned false, or threw.
  std::size_t Refused() const { return static_cast<std::size_t>(tally_.thrown + tally_.answered_false); }
  void StartManager() {
    ASSERT_TRUE(host_.Init());
    ASSERT_TRUE(host_.WaitForFile());
  }

  ManagerHost const host_{
      "nMaxFileNum = 100\nnFiltLogBufSize = 5\nnet_level = 1111\nnet_output = 01\ndebug_level = 1111\n"
      "debug_output = 01\n"};
  std::string const long_text_ = std::string(400, 't');
  std::string const long_module_ = std::string(60, 'm');
  Tally tally_;
};

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
  EXPECT_EQ(counts.displaced, kLastFailure * 2 - Refused() - 5) << "all others that the ring took";
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

// --- the output thread ---

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
