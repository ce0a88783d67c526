// This library while its files rotate and are compressed: what callers that keep tracing pay, what is
// refused, and what of it is found in the files and archives afterwards.
//
//   velt_rotation run --dir D --producers P --records N --rate R --file-mb M --text plain|varied
//
// R records a second in all; every accepted record must be found.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "velt/manager.h"

#include "harness/clock.h"
#include "harness/figures.h"
#include "harness/line.h"
#include "harness/meeting_point.h"
#include "harness/options.h"
#include "harness/read_back.h"
#include "harness/texts.h"
#include "loggers/velt_setup.h"

namespace velt::bench {
namespace {

using Message = std::array<char, kMessageCapacity>;

using Window = std::pair<std::int64_t, std::int64_t>;

bool Within(std::vector<Window> const& windows, std::int64_t when) {
  return std::any_of(windows.begin(), windows.end(),
                     [when](Window const& window) { return when >= window.first && when <= window.second; });
}

// Notes when both a log file and its archive exist: it is then being compressed.
class RotationWatch {
 public:
  explicit RotationWatch(std::string const& directory)
      : directory_(directory), thread_([this] { Watch(); }) {}

  std::vector<Window> Stop() {
    stop_ = true;
    thread_.join();
    return windows_;
  }

 private:
  bool Compressing() const {
    std::string previous;
    for (std::string const& name : FilesIn(directory_)) {  // sorted: an archive follows its log file
      if (!previous.empty() && name == previous + ".gz") return true;
      previous = name;
    }
    return false;
  }

  void Watch() {
    constexpr std::int64_t kNapNs = 4'000'000;
    bool before = false;
    std::int64_t last_look = NowNs();
    while (!stop_) {
      std::int64_t const now = NowNs();
      bool const compressing = Compressing();
      if (compressing && !before) windows_.emplace_back(last_look, now);
      if (compressing || before) windows_.back().second = now;
      before = compressing;
      last_look = now;
      SleepNs(kNapNs);
    }
  }

  std::string directory_;
  std::atomic<bool> stop_{false};
  std::vector<Window> windows_;
  std::thread thread_;
};

struct Call {
  std::int64_t begin;
  std::uint32_t cost;
};

bool EndsWith(std::string const& name, std::string const& end) {
  return name.size() >= end.size() && name.compare(name.size() - end.size(), end.size(), end) == 0;
}

class Rotation {
 public:
  explicit Rotation(Options const& options)
      : options_(options),
        producers_(options.Count("producers", 1)),
        each_(options.Count("records", 2'000'000) / producers_),
        rate_(options.Count("rate", 25'000)),
        texts_(options.Text("text", "plain") == "varied"),
        modules_(MakeModules(kVeltFixedLength + ThreadIdLength(1))),
        calls_(producers_, std::vector<Call>(each_)),
        meeting_(producers_ + 1) {}

  void Run() {
    StartManager(options_, modules_, {100, options_.Count("file-mb", 50), false});
    (void)WaitUntilQuiet(options_.LogDirectory());
    RotationWatch watch(options_.LogDirectory());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < producers_; ++i) threads.emplace_back([this, i] { Produce(i); });
    begin_ = NowNs();
    meeting_.Wait();
    for (auto& thread : threads) thread.join();
    std::int64_t const traced = NowNs();
    (void)VeltDebugMgr::Destroy();  // what it fails to write is missed when read back
    Report(watch.Stop(), static_cast<double>(traced - begin_));
  }

 private:
  void Produce(std::size_t producer) {
    // A thousand times a second, as many records as are due by then; the producers take turns.
    constexpr std::int64_t kTickNs = 1'000'000;
    VeltDebugMgr* const manager = VeltDebugMgr::Instance();
    int const worker = kFirstWorker + static_cast<int>(producer);
    std::vector<Call>& calls = calls_[producer];
    std::size_t refused = 0;
    meeting_.Wait();
    std::int64_t const start =
        begin_ + static_cast<std::int64_t>(producer) * kTickNs / static_cast<std::int64_t>(producers_);
    std::size_t done = 0;
    for (std::int64_t tick = 1; done < each_; ++tick) {
      SleepUntilNs(start + tick * kTickNs);
      std::size_t const due = std::min(each_, static_cast<std::size_t>(tick) * rate_ / producers_ / 1'000);
      for (; done < due; ++done) {
        int const step = kFirstStep + static_cast<int>(done);
        Call& call = calls[done];
        call.begin = NowNs();
        Message message;
        (void)std::snprintf(message.data(), message.size(), "%s; worker %d, step %d", texts_.At(done), worker,
                            step);
        bool const accepted =
            manager->Trace(modules_[done % kModules], kInformation, message.data(), nullptr, false, false);
        call.cost = static_cast<std::uint32_t>(NowNs() - call.begin);
        if (!accepted) ++refused;
      }
    }
    refused_ += refused;
  }

  void Report(std::vector<Window> const& windows, double traced_ns) {
    Ledger ledger(producers_, each_);
    ReadBack(options_.LogDirectory(), ledger);
    ledger.Demand(producers_ * each_ - refused_);
    auto const records = static_cast<double>(producers_ * each_);
    Result result;
    AddCosts(windows, result);
    AddArchives(result);
    result.Add("krecords_per_s", records * 1e6 / traced_ns);
    result.Add("records", records);
    result.Add("refused", static_cast<double>(refused_));
    result.Add("lost", static_cast<double>(ledger.Missing() - refused_));
    result.Add("line_bytes", ledger.MeanLineLength());
    result.Print();
  }

  void AddCosts(std::vector<Window> const& windows, Result& result) const {
    std::vector<std::uint32_t> all;
    std::vector<std::uint32_t> during;
    all.reserve(producers_ * each_);
    for (auto const& calls : calls_) {
      for (Call const& call : calls) {
        all.push_back(call.cost);
        if (Within(windows, call.begin)) during.push_back(call.cost);
      }
    }
    double rotating_ns = 0;
    for (auto const& [from, to] : windows) rotating_ns += static_cast<double>(to - from);
    AddPercentiles("", all, result);
    // Else the last rotation came when everything was traced.
    if (!during.empty()) AddPercentiles("rotating_", during, result);
    result.Add("rotating_calls", static_cast<double>(during.size()));
    result.Add("rotating_ms", rotating_ns / 1e6);
  }

  void AddArchives(Result& result) const {
    std::size_t archives = 0;
    std::size_t bytes = 0;
    for (std::string const& name : FilesIn(options_.LogDirectory())) {
      struct stat info {};
      if (!EndsWith(name, ".gz") || stat((options_.LogDirectory() + name).c_str(), &info) != 0) continue;
      ++archives;
      bytes += static_cast<std::size_t>(info.st_size);
    }
    if (archives == 0) Fail("no file was rotated");
    auto const logged = static_cast<double>(archives * (options_.Count("file-mb", 50) << 20U));
    result.Add("archives", static_cast<double>(archives));
    result.Add("compression", logged / static_cast<double>(bytes));
  }

  Options const& options_;
  std::size_t producers_;
  std::size_t each_;
  std::size_t rate_;
  Texts texts_;
  Modules modules_;
  std::vector<std::vector<Call>> calls_;
  MeetingPoint meeting_;
  std::int64_t begin_ = 0;  // written before the threads meet
  std::atomic<std::size_t> refused_{0};
};

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  velt::bench::Options const options(argc, argv);
  velt::bench::Rotation(options).Run();
  return 0;
}
