// ASN values that throw, lie or print without end, traced between ordinary records.
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/channel.h"
#include "velt/manager.h"

#include "tests/faults/counted.h"
#include "tests/faults/scale.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

using faults::ExpectCounts;
using faults::Figure;
using faults::QuietCounts;
using faults::Scaled;

constexpr VeltLogLevel kLevel3{3};

enum class Kind {
  kPlain,
  kPrintThrows,        // after it has printed something
  kPrintThrowsNumber,  // something that is no std::exception
  kPrintBreaksStream,  // leaves the stream failed, behind some text
  kCloneThrows,
  kCloneNull,
  kNothing,
  kNul,
  kTenMegabytes,
  kKinds
};

constexpr std::size_t kGiant = 10'485'760;
constexpr std::size_t kLongestPiece = 2'097'152;

class OddValue : public AsnType {
 public:
  OddValue(Kind kind, std::string id) : kind_(kind), id_(std::move(id)) { ++live_; }
  OddValue(OddValue const& other) : AsnType(other), kind_(other.kind_), id_(other.id_) { ++live_; }
  OddValue& operator=(OddValue const&) = delete;
  ~OddValue() override { --live_; }

  AsnType* Clone() const override {
    if (kind_ == Kind::kCloneThrows) throw std::runtime_error("no copy");
    return kind_ == Kind::kCloneNull ? nullptr : new OddValue(*this);
  }
  void Print(std::ostream& out, int, int) const override {
    if (kind_ == Kind::kNothing) return;
    out << "value " << id_;
    if (kind_ == Kind::kPrintThrows) throw std::runtime_error("no more");
    if (kind_ == Kind::kPrintThrowsNumber) throw 42;
    if (kind_ == Kind::kPrintBreaksStream) out.setstate(std::ios_base::badbit);
    if (kind_ == Kind::kNul) out << '\0' << "hidden";
    if (kind_ == Kind::kTenMegabytes) out << std::string(kGiant, 'v');
  }

  // The text of the file behind the record's own line.
  static std::string Written(Kind kind, std::string const& id) {
    if (kind == Kind::kCloneNull) return "";
    std::string text = "ASN Trace:\n";
    if (kind != Kind::kNothing) text += "value " + id;
    if (kind == Kind::kTenMegabytes) text.resize(kLongestPiece, 'v');
    return text + "\n";
  }
  static int Live() { return live_; }

 private:
  Kind kind_;
  std::string id_;
  inline static std::atomic<int> live_{0};
};

Kind KindOf(int i) {
  constexpr int kCheapKinds = static_cast<int>(Kind::kTenMegabytes);
  return i % 50 == 49 ? Kind::kTenMegabytes : static_cast<Kind>(i % kCheapKinds);
}

TEST(AsnFaultTest, OddValuesLeaveTheirTextAndTheThreadGoesOn) {
  int const records = Scaled(100, 300);
  constexpr int kThreads = 4;
  ScratchDir const dir;
  ChannelSetup const setup(dir / "logs");
  auto channel = MakeChannel(setup);
  std::atomic<int> accepted{0};
  std::atomic<int> thrown{0};

  InThreads(kThreads, [&](int thread) {
    for (int i = 0; i < records; ++i) {
      std::string const id = std::to_string(thread) + "." + std::to_string(i);
      OddValue const value(KindOf(i), id);
      try {
        if (channel->Trace("m", kLevel3, ("record " + id).c_str(), &value, false, true)) ++accepted;
      } catch (std::runtime_error const&) {
        ++thrown;
      }
    }
  });
  VeltTraceCounts const counts = QuietCounts(*channel);
  channel.reset();

  std::string const log = ReadFamily(setup.directory, "t_");
  int expected = 0;
  long long wrong = 0;
  for (int thread = 0; thread < kThreads; ++thread) {
    std::size_t from = 0;
    for (int i = 0; i < records; ++i) {
      std::string const id = std::to_string(thread) + "." + std::to_string(i);
      bool const traced = KindOf(i) != Kind::kCloneThrows;
      expected += traced ? 1 : 0;
      std::string const text = " m I: record " + id + "\n" + OddValue::Written(KindOf(i), id);
      std::size_t const at = log.find(" m I: record " + id + "\n", from);
      if (at != std::string::npos) from = at;  // the next record of this thread is behind it
      bool const there = at != std::string::npos && log.compare(at, text.size(), text) == 0;
      if (there != traced) ++wrong;
      // The next record's stamp must follow, or the last lines.
      if (there && log.compare(at + text.size(), 16, "thread handle ou") != 0 &&
          log[at + text.size() + 2] != '-') {
        ++wrong;
      }
    }
  }
  EXPECT_EQ(accepted, expected);
  EXPECT_EQ(thrown, kThreads * records - expected);
  EXPECT_EQ(wrong, 0);
  ExpectCounts(counts, static_cast<std::size_t>(accepted), static_cast<std::size_t>(thrown),
               CountOf(log, " m I: record "));
  EXPECT_EQ(CountOf(log, "hidden"), 0U);
  EXPECT_EQ(CountOf(log, "thread handle output string exit\n"), 1U);
  EXPECT_EQ(OddValue::Live(), 0);
  Figure({{"asn_records", accepted.load()},
          {"thrown", thrown.load()},
          {"wrong", wrong},
          {"alive", OddValue::Live()}});
}

TEST(AsnFaultTest, AValueThatCannotBeCopiedLeavesTheManagerWithoutAHeldLock) {
  ManagerHost const host("net_level = 1111\nnet_output = 01\n");
  ASSERT_TRUE(host.Init());
  VeltDebugMgr& manager = *VeltDebugMgr::Instance();
  OddValue const no_copy(Kind::kCloneThrows, "x");
  OddValue const null_copy(Kind::kCloneNull, "x");

  EXPECT_THROW(manager.Trace("net", kLevel3, "gone", &no_copy, false, true), std::runtime_error);
  EXPECT_THROW(manager.AppTrace("net", kLevel3, "gone", &no_copy, false, true, "gw"), std::runtime_error);
  EXPECT_THROW(manager.Trace("net", VeltLogLevel{9}, "gone", &no_copy, false, false), std::runtime_error);
  EXPECT_TRUE(manager.Trace("net", kLevel3, "bare", &null_copy, false, true));
  EXPECT_TRUE(manager.AppTrace("net", kLevel3, "bare", &null_copy, false, true, "gw"));
  EXPECT_TRUE(manager.SetLogLevel("net", VeltLogLevel{9}, true));

  auto counts = QuietCounts();
  ExpectCounts(counts["host_"], 1, 2, 1);
  ExpectCounts(counts["host_gw_"], 1, 1, 1);
  EXPECT_EQ(host.StopAndRead(), (std::vector<std::string>{" net I: bare"}));
  EXPECT_EQ(host.Records("host_gw_"), (std::vector<std::string>{" net I: bare"}));
  EXPECT_EQ(CountOf(host.Text() + host.Text("host_gw_"), "ASN Trace:"), 0U);
}

TEST(AsnFaultTest, APrintThatThrowsInTheCallersThreadReachesTheCaller) {
  ScratchDir const dir;
  ChannelSetup const setup(dir / "logs");
  auto channel = MakeChannel(setup);
  OddValue const throws(Kind::kPrintThrows, "x");
  OddValue const giant(Kind::kTenMegabytes, "x");
  std::string text = "before ";

  EXPECT_THROW(channel->ASNTrace(&throws, false, true), std::runtime_error);
  EXPECT_THROW(channel->ASNTrace(&throws, text), std::runtime_error);
  channel->ASNTrace(&giant, false, true);
  VeltTraceCounts const counts = QuietCounts(*channel);
  channel.reset();

  EXPECT_EQ(text, "before ");
  std::string const log = ReadFamily(setup.directory, "t_");
  EXPECT_EQ(CountOf(log, "ASN Trace:"), 1U);
  ExpectCounts(counts, 1, 1, 1);  // the other throwing call traces nothing, it only makes a text
  EXPECT_NE(log.find("ASN Trace:\nvalue x" + std::string(2'048 - 18, 'v') + "\n"), std::string::npos)
      << "its text is cut as every message is";
}

TEST(AsnFaultTest, ValuesThatWaitInAQueueOrRingAreDeletedWithIt) {
  ScratchDir const dir;
  ChannelSetup setup(dir / "logs");
  setup.ring = 50;
  {
    auto const channel = MakeChannel(setup);
    for (int i = 0; i < 200; ++i) {
      OddValue const value(Kind::kPrintThrows, "x");
      EXPECT_TRUE(channel->Trace("m", kLevel3, "filtered", &value, false, false));
    }
    EXPECT_EQ(OddValue::Live(), 50);
    VeltTraceCounts const counts = QuietCounts(*channel);
    ExpectCounts(counts, 0, 0, 0);  // filtered, and not written yet
    EXPECT_EQ(counts.inRing, 50U);
    EXPECT_EQ(counts.displaced, 150U);
  }
  {
    auto const idle = MakeIdleChannel(setup);
    OddValue const value(Kind::kPlain, "x");
    OutDataUnit* rec = NewRecord(" m W: handed in");
    rec->m_pAsn = value.Clone();
    EXPECT_TRUE(idle->TraceInner(rec));
    EXPECT_EQ(OddValue::Live(), 2);
    VeltTraceCounts const counts = idle->Counts();
    faults::ExpectSum(counts);
    EXPECT_EQ(counts.queued, 1U) << "no output thread takes it";
  }

  EXPECT_EQ(OddValue::Live(), 0);
}

}  // namespace
}  // namespace velt::test
