// From call to archive: many producers trace into several families of files, and every record is read back
// and accounted for.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "velt/manager.h"

#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

unsigned long ChecksumOf(std::string const& text) {
  return crc32(0, reinterpret_cast<Bytef const*>(text.data()), static_cast<uInt>(text.size()));
}

// A record that can be checked by itself: "run=<id> p=<producer> s=<sequence> <filling> sum=<checksum of all
// before>".
std::string Message(std::string const& run, int producer, int sequence, std::size_t filling) {
  std::string text = "run=" + run + " p=" + std::to_string(producer) + " s=" + std::to_string(sequence) + " ";
  text.append(filling, static_cast<char>('a' + sequence % 26));
  return text + " sum=" + std::to_string(ChecksumOf(text));
}

struct Account {
  std::map<int, std::vector<int>> sequences;  // by producer, in the order of the files
  std::string first_fault;                    // the first record that fails its own check
};

// Reads every record of one run back. The head of the line is not looked at: a header without a line end may
// be in front of it.
Account ReadBack(std::string const& text, std::string const& run) {
  Account account;
  std::string const mark = "run=" + run + " ";
  for (auto const& line : Lines(text)) {
    std::size_t const begin = line.find(mark);
    if (begin == std::string::npos) continue;
    std::size_t const sum = line.rfind(" sum=");
    int producer = -1;
    int sequence = -1;
    std::string const record = line.substr(begin + mark.size());
    bool const whole = std::sscanf(record.c_str(), "p=%d s=%d ", &producer, &sequence) == 2 &&
                       sum != std::string::npos &&
                       line.substr(sum + 5) == std::to_string(ChecksumOf(line.substr(begin, sum - begin)));
    if (whole) account.sequences[producer].push_back(sequence);
    if (!whole && account.first_fault.empty()) account.first_fault = line;
  }
  return account;
}

// The first sequence number that is not where it has to be, by producer; empty when every producer's are 0,
// 1, 2, ...
std::string FirstGap(Account const& account, int producers, int each) {
  if (!account.first_fault.empty()) return "torn: " + account.first_fault;
  for (int producer = 0; producer < producers; ++producer) {
    auto const found = account.sequences.find(producer);
    std::vector<int> const seen = found == account.sequences.end() ? std::vector<int>() : found->second;
    for (int sequence = 0; sequence < each; ++sequence) {
      bool const there = static_cast<std::size_t>(sequence) < seen.size() &&
                         seen[static_cast<std::size_t>(sequence)] == sequence;
      if (!there) return "producer " + std::to_string(producer) + " lacks " + std::to_string(sequence);
    }
    if (seen.size() != static_cast<std::size_t>(each))
      return "producer " + std::to_string(producer) + " has more";
  }
  return {};
}

// Waits until a family's files hold `text`, and then for another second, so that the next file has another
// name.
bool SettleOn(ManagerHost const& host, std::string const& prefix, std::string const& text) {
  return WaitUntil([&] {
    auto const names = ExactFamily(host.LogDir(), prefix);
    return !names.empty() && ExactFamilyText(host.LogDir(), prefix).find(text) != std::string::npos;
  });
}

// How a producer traces into one channel. Returns whether the record was accepted; true where the call
// returns nothing.
using Way = bool (*)(std::string const& text);

bool ByTrace(std::string const& text) {
  return Manager()->Trace("net", kLevel3, text.c_str(), nullptr, false, false);
}
bool ByPrintf(std::string const& text) {
  Manager()->Printf(kLevel3, VeltInterString("net"), "%s", text.c_str());
  return true;
}
bool ByFirstApp(std::string const& text) {
  return Manager()->AppTrace("net", kLevel3, text.c_str(), nullptr, false, false, "gw");
}
bool BySecondApp(std::string const& text) {
  return Manager()->AppTrace("web", kLevel2, text.c_str(), nullptr, false, true, "db");
}

struct Stream {
  char const* run;     // one stream of sequences for each way
  char const* prefix;  // the family in which it has to appear
  Way trace;
};

constexpr Stream kStreams[] = {{"T", "host_", ByTrace},
                               {"P", "host_", ByPrintf},
                               {"G", "host_gw_", ByFirstApp},
                               {"D", "host_db_", BySecondApp}};
constexpr int kProducers = 4;
constexpr int kRounds = 5;
constexpr int kPerRound = 150;  // records of one producer, stream and round
// Characters of a message. A round stays well below one file of 1 MB in every channel.
constexpr std::size_t kFilling = 600;

// Every record of one producer in one round; gives how many were refused.
int Produce(int producer, int round) {
  int refused = 0;
  for (int i = 0; i < kPerRound; ++i) {
    for (auto const& stream : kStreams) {
      if (!stream.trace(Message(stream.run, producer, round * kPerRound + i, kFilling))) ++refused;
    }
  }
  return refused;
}

void ProduceAll(int round, std::atomic<int>& refused) {
  InThreads(kProducers, [&](int producer) { refused += Produce(producer, round); });
}

// Traces a mark of the round's end to every family. Waits until the marks are in the files, so that the
// round's rotations are over, and then for another second.
bool EndRound(ManagerHost const& host, int round) {
  std::string const mark = "end of round " + std::to_string(round);
  bool const marked = ByTrace(mark) && ByFirstApp(mark) && BySecondApp(mark);
  bool const settled =
      SettleOn(host, "host_", mark) && SettleOn(host, "host_gw_", mark) && SettleOn(host, "host_db_", mark);
  WaitForNextSecond();
  return marked && settled;
}

TEST(EndToEndTest, EveryRecordOfEveryProducerIsInTheFilesOnceAndInOrder) {
  ManagerHost const host("net_level = 0001\nnEachFileMaxSize = 1\nnEachProcessMaxZipNum = 100\n");
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(EndRound(host, -1)) << "the three families are open";
  std::atomic<int> refused{0};

  for (int round = 0; round < kRounds; ++round) {
    ProduceAll(round, refused);
    ASSERT_TRUE(EndRound(host, round)) << round;
  }
  ASSERT_EQ(VeltDebugMgr::Destroy(), 0);

  EXPECT_EQ(refused, 0);
  for (auto const& stream : kStreams) {
    std::string const text = host.Text(stream.prefix);
    EXPECT_EQ(FirstGap(ReadBack(text, stream.run), kProducers, kRounds * kPerRound), "") << stream.run;
  }
  EXPECT_GE(FilesOf(host.LogDir(), "host_2", ".log.gz").size(), 2U) << "the main family was rotated";
  EXPECT_GE(FilesOf(host.LogDir(), "host_gw_", ".log.gz").size(), 1U);
  EXPECT_GE(FilesOf(host.LogDir(), "host_db_", ".log.gz").size(), 1U);
}

TEST(EndToEndTest, EveryFileOfAFamilyIsWhole) {
  ManagerHost const host("net_level = 0001\nnEachFileMaxSize = 1\n");
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(host.WaitForFile());
  WaitForNextSecond();
  for (int i = 0; i < 1'000; ++i) ASSERT_TRUE(ByTrace(Message("F", 0, i, 1'100)));
  ASSERT_EQ(VeltDebugMgr::Destroy(), 0);

  auto const names = ExactFamily(host.LogDir(), "host_");

  ASSERT_EQ(names.size(), 2U);
  EXPECT_EQ(names[0].substr(names[0].size() - 3), ".gz") << "the finished file is packed";
  EXPECT_EQ(ModeOf(host.LogDir() + "/" + names[0]), 0440U);
  EXPECT_EQ(ModeOf(host.LogDir() + "/" + names[1]), 0640U);
  std::string const first = ReadGzip(host.LogDir() + "/" + names[0]);
  std::string const second = ReadFile(host.LogDir() + "/" + names[1]);
  for (auto const& text : {first, second}) {
    EXPECT_EQ(text.substr(0, 23),
              "\xEF\xBB\xBF"
              "File create at time ");
    EXPECT_NE(text.find("\nhost header\n"), std::string::npos);
    EXPECT_EQ(CountOf(text, "\nFile close at "), 1U);
    EXPECT_EQ(text.rfind("\nFile close at "), text.find_last_of('\n', text.size() - 2)) << "the last line";
  }
  EXPECT_GT(first.size(), 1048576U) << "the record that crosses the limit is whole";
  EXPECT_EQ(CountOf(first, "This is the first log file\n"), 1U);
  EXPECT_EQ(CountOf(second, "This is the first log file\n"), 0U);
  EXPECT_EQ(FirstGap(ReadBack(first + second, "F"), 1, 1'000), "");
}

TEST(EndToEndTest, ARecordIsOneLineOfStampThreadModuleTagAndText) {
  ManagerHost const host("net_level = 1111001\n");
  ASSERT_TRUE(host.Init());
  char const* const tags[] = {"A: ", "E: ", "W: ", "I: "};
  for (int level = 0; level < 4; ++level) {
    ASSERT_TRUE(Manager()->Trace("net", VeltLogLevel{level}, "text", nullptr, false, false));
  }
  ASSERT_TRUE(Manager()->Trace("net", VeltLogLevel{6}, "no tag", nullptr, false, false));
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "ends itself\n", nullptr, false, false));
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "last", nullptr, false, false));
  ASSERT_EQ(VeltDebugMgr::Destroy(), 0);

  std::string const text = host.Text();
  std::string const thread = ".T" + std::to_string(gettid());
  std::vector<std::string> lines;
  for (auto const& line : Lines(text)) {
    if (BodyStart(line) != std::string::npos) lines.push_back(line);
  }

  ASSERT_EQ(lines.size(), 7U) << text;
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(lines[i].substr(21), thread + " net " + tags[i] + "text");
  }
  EXPECT_EQ(lines[4].substr(21), thread + " net no tag");
  EXPECT_EQ(lines[5].substr(21), thread + " net I: ends itself");
  EXPECT_EQ(lines[6].substr(21), thread + " net I: last");
  EXPECT_EQ(CountOf(text, "Current date&time:"), 1U) << "before the first record of the process";
  EXPECT_EQ(CountOf(text, "\n\n"), 0U) << "no line is ended twice";
}

TEST(EndToEndTest, TheContextOfASevereEventComesBeforeIt) {
  ManagerHost const host("net_level = 1001\nnFiltLogBufSize = 3\n");
  CaptureStdout output;
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "before", nullptr, false, false));
  for (auto const* text : {"1", "2", "3", "4", "5"}) {
    ASSERT_TRUE(Manager()->Trace("net", kFiltered, text, nullptr, false, false));
  }
  ASSERT_TRUE(Manager()->Trace("net", kLevel0, "alarm", nullptr, false, false));
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "after", nullptr, false, false));
  ASSERT_EQ(VeltDebugMgr::Destroy(), 0);

  EXPECT_EQ(host.Records(), (std::vector<std::string>{" net I: before", " net 3", " net 4", " net 5",
                                                      " net A: alarm", " net I: after"}));
  EXPECT_EQ(Bodies(output.Text()), (std::vector<std::string>{" net 3", " net 4", " net 5"}));
}

TEST(EndToEndTest, ALevelChangedWhileEightThreadsTraceTakesEffect) {
  ManagerHost const host("net_level = 0001\nnEachFileMaxSize = 50\n");
  ASSERT_TRUE(host.Init());
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&stop] {
      for (int k = 0; k < 20'000 && !stop; ++k)
        Manager()->Trace("net", kFiltered, "noise", nullptr, false, false);
    });
  }

  EXPECT_TRUE(Manager()->Trace("net", kLevel2, "too early", nullptr, false, false));
  EXPECT_TRUE(Manager()->SetLogLevel("net", kLevel2, true));
  EXPECT_TRUE(Manager()->Trace("net", kLevel2, "in time", nullptr, false, false));
  EXPECT_TRUE(Manager()->SetLogLevel("net", kLevel2, false));
  EXPECT_TRUE(Manager()->Trace("net", kLevel2, "too late", nullptr, false, false));
  stop = true;
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(host.StopAndRead(), (std::vector<std::string>{" net W: in time"}));
}

TEST(EndToEndTest, TwoProcessesShareADirectoryUnderNamesOfTheirOwn) {
  ManagerHost const host("net_level = 0001\nnEachFileMaxSize = 50\n");
  constexpr int kEach = 2'000;
  auto const trace_as = [&host](std::string const& name, std::string const& run) {
    if (!host.Init(name)) return 1;
    for (int i = 0; i < kEach; ++i) {
      if (!ByTrace(Message(run, 0, i, 100))) return 2;
    }
    return VeltDebugMgr::Destroy() == 0 ? 0 : 3;
  };
  std::fflush(nullptr);
  std::vector<pid_t> children;
  for (auto const& [name, run] : {std::pair{"one_", "1"}, std::pair{"one_two_", "2"}}) {
    pid_t const child = fork();
    if (child == 0) _exit(trace_as(name, run));
    children.push_back(child);
  }
  for (pid_t const child : children) {
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }

  EXPECT_EQ(FirstGap(ReadBack(host.Text("one_"), "1"), 1, kEach), "");
  EXPECT_EQ(FirstGap(ReadBack(host.Text("one_two_"), "2"), 1, kEach), "");
  EXPECT_EQ(CountOf(host.Text("one_"), "run=2"), 0U);
  EXPECT_EQ(CountOf(host.Text("one_two_"), "run=1"), 0U);
}

TEST(EndToEndTest, ARestartPacksWhatTheLastRunLeft) {
  ManagerHost const host("net_level = 0001\n");
  for (int run = 0; run < 3; ++run) {
    ASSERT_TRUE(host.Init());
    ASSERT_TRUE(ByTrace(Message("R", 0, run, 10)));
    ASSERT_EQ(VeltDebugMgr::Destroy(), 0);
    WaitForNextSecond();
  }

  EXPECT_EQ(FilesOf(host.LogDir(), "host_", ".log.gz").size(), 2U);
  EXPECT_EQ(FilesOf(host.LogDir(), "host_", ".log").size(), 1U);
  EXPECT_EQ(FirstGap(ReadBack(host.Text(), "R"), 1, 3), "");
}

}  // namespace
}  // namespace velt::test
