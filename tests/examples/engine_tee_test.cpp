// The engine that writes files and passes records on: both outputs get every record, even if the other
// refuses it.
#include <chrono>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "examples/engine_syslog/engine_syslog.h"
#include "examples/engine_tee/engine_tee.h"
#include "tests/support/manager_host.h"
#include "tests/support/syslog_daemon.h"

namespace velt::examples {
namespace {

using test::BitsOf;
using test::ManagerHost;
using Strings = std::vector<std::string>;

VeltDebugMgr* Manager() { return VeltDebugMgr::Instance(); }

struct Seen {
  Strings texts;
  bool answer = true;
  bool throws = false;
  int deleted = 0;
};

class Other : public VeltDebugEngine {
 public:
  explicit Other(Seen& seen) : seen_(seen) {}
  ~Other() override { ++seen_.deleted; }
  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const*, bool print,
             bool log) override {
    if (seen_.throws) throw std::runtime_error("the other engine");
    seen_.texts.push_back(module + " " + std::to_string(static_cast<int>(level)) + " " + text +
                          (print ? " print" : "") + (log ? " log" : ""));
    return seen_.answer;
  }
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool print, bool log, std::string const& sub_name) override {
    return Trace(sub_name + "/" + module, level, text, asn, print, log);
  }

 private:
  Seen& seen_;
};

class EngineTeeTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.Init("host_", true));
    ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({0, 1}), BitsOf({1}), false));
    TeeFiles files;
    files.directory = host_.LogDir() + "/";
    files.prefix = "tee_";
    files.ring_records = 2;
    ASSERT_TRUE(Manager()->RegDebugEngine(new TeeEngine(files, std::make_unique<Other>(seen_))));
  }

  static bool Trace(int level, char const* text) {
    return Manager()->Trace("net", VeltLogLevel{level}, text, nullptr, false, false);
  }

  Seen seen_;
  ManagerHost host_;
};

TEST_F(EngineTeeTest, ARecordReachesTheFileAndTheOtherEngine) {
  EXPECT_TRUE(Trace(1, "both"));
  EXPECT_TRUE(Manager()->AppTrace("net", VeltLogLevel{1}, "side", nullptr, false, false, "gw"));

  EXPECT_EQ(host_.StopAndRead("tee_"), (Strings{" net E: both", " net E: side"}));
  EXPECT_EQ(seen_.texts, (Strings{"net 1 both", "gw/net 1 side"}));
  EXPECT_EQ(seen_.deleted, 1);
}

TEST_F(EngineTeeTest, TheFileFollowsTheSetsOfTheModuleAndKeepsARing) {
  EXPECT_TRUE(Trace(3, "first"));
  EXPECT_TRUE(Trace(3, "second"));
  EXPECT_TRUE(Trace(3, "third"));
  EXPECT_TRUE(Trace(0, "alert"));
  EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{3}, "asked for", nullptr, false, true));

  EXPECT_EQ(host_.StopAndRead("tee_"),
            (Strings{" net I: second", " net I: third", " net A: alert", " net I: asked for"}));
  EXPECT_EQ(seen_.texts,
            (Strings{"net 3 first", "net 3 second", "net 3 third", "net 0 alert", "net 3 asked for log"}))
      << "the other engine decides for itself";
}

TEST_F(EngineTeeTest, ARefusalOfTheOtherEngineIsToldAndKeepsNothingFromTheFile) {
  seen_.answer = false;
  EXPECT_FALSE(Trace(1, "refused"));
  seen_.throws = true;
  EXPECT_THROW(Trace(1, "thrown"), std::runtime_error);

  EXPECT_EQ(host_.StopAndRead("tee_"), (Strings{" net E: refused", " net E: thrown"}));
}

TEST_F(EngineTeeTest, ALevelOutsideTheSetsIsNotTested) {
  EXPECT_NO_THROW(Trace(32, "x"));
  EXPECT_NO_THROW(Trace(-1, "x"));
}

TEST(EngineTeeToSyslogTest, FilesAndASlowerDaemonGetEveryRecordInOrder) {
  constexpr std::size_t kRecords = 5000;
  ManagerHost host;
  ASSERT_TRUE(host.Init("host_", true));
  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({3}), BitsOf({1}), false));
  SyslogOptions options;
  options.socket_path = host.Dir() / "log.socket";
  options.most_records = 10;  // full at once, since the daemon's own queue holds few more
  options.room_limit = std::chrono::minutes(1);
  options.stop_limit = std::chrono::minutes(1);
  TeeFiles files;
  files.directory = host.LogDir() + "/";
  files.prefix = "tee_";
  test::SyslogDaemon const daemon(options.socket_path);
  auto owned = std::make_unique<TeeEngine>(files, std::make_unique<SyslogEngine>(options));
  TeeEngine* const tee = owned.get();
  ASSERT_TRUE(Manager()->RegDebugEngine(owned.release()));
  Strings received;
  std::thread reader([&] { received = daemon.Texts(kRecords); });

  Strings expected;
  std::size_t refused = 0;
  for (std::size_t i = 0; i < kRecords; ++i) {
    expected.push_back("I: " + std::to_string(i));
    bool const taken =
        Manager()->Trace("net", VeltLogLevel{3}, std::to_string(i).c_str(), nullptr, false, false);
    refused += taken ? 0 : 1;
  }
  reader.join();
  ASSERT_TRUE(tee->FlushFiles(60'000));
  VeltTraceCounts const counts = tee->FileCounts();

  EXPECT_EQ(refused, 0U);
  EXPECT_EQ(counts.written, kRecords);
  EXPECT_EQ(received, expected);
  Strings in_files = host.StopAndRead("tee_");
  for (auto& text : in_files) text.erase(0, 5);  // " net "
  EXPECT_EQ(in_files, expected);
}

}  // namespace
}  // namespace velt::examples
