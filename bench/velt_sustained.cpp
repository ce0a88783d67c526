// Tracing without a pause while files rotate and are compressed: how many records a second reach the files,
// what the calls cost meanwhile, and that none is refused or lost. And the same lines by write(2) alone.
//
//   velt_sustained run --dir D --producers P --records N --file-mb M
//   velt_sustained bare --dir D --producers P --records N
//   velt_sustained scan --dir D --archives N     what a rotation looks up in a directory of so many archives
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "velt/channel.h"
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

constexpr char const* kFormat = "%s; worker %d, step %d";

// The producers of one run: they begin together, and each goes through its steps as fast as it can.
class Producers {
 public:
  explicit Producers(Options const& options)
      : count_(options.Count("producers", 1)), each_(options.Count("records", 2'000'000) / count_) {}

  std::size_t count() const { return count_; }
  std::size_t each() const { return each_; }
  double records() const { return static_cast<double>(count_ * each_); }

  // Calls `produce(producer)` on each thread; returns when they began.
  template <typename Produce>
  std::int64_t Run(Produce produce) {
    MeetingPoint meeting(count_ + 1);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < count_; ++i) {
      threads.emplace_back([&meeting, &produce, i] {
        meeting.Wait();
        produce(i);
      });
    }
    meeting.Wait();
    std::int64_t const begin = NowNs();
    for (auto& thread : threads) thread.join();
    return begin;
  }

 private:
  std::size_t count_;
  std::size_t each_;
};

double PerSecond(double records, std::int64_t ns) { return records * 1e6 / static_cast<double>(ns); }

// CPU time of the output thread, ns; of the only channel.
double OutputThreadCpu() {
  for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm"), name);
    double ns = 0;
    if (name.rfind("velt:", 0) == 0 && std::ifstream(task.path() / "schedstat") >> ns) return ns;
  }
  Fail("no output thread");
}

class Sustained {
 public:
  explicit Sustained(Options const& options)
      : options_(options),
        producers_(options),
        texts_(true),
        names_(MakeModules(kVeltFixedLength + ThreadIdLength(1))),
        modules_(names_.begin(), names_.end()),
        costs_(producers_.count(), std::vector<std::uint32_t>(producers_.each())) {}

  void Run() {
    StartManager(options_, names_, {100, options_.Count("file-mb", 50), false});
    VeltDebugMgr* const manager = VeltDebugMgr::Instance();
    (void)WaitUntilQuiet(options_.LogDirectory());
    double const cpu_before = OutputThreadCpu();
    std::int64_t const begin = producers_.Run([this](std::size_t producer) { Produce(producer); });
    constexpr unsigned kLongestFlushMs = 60'000;
    if (!manager->Flush(kLongestFlushMs)) Fail("not all records are written after a minute");
    std::int64_t const end = NowNs();
    double const cpu = OutputThreadCpu() - cpu_before;

    std::map<std::string, VeltTraceCounts> families;
    if (!manager->GetCounts(families)) Fail("no counts");
    VeltTraceCounts const counts = families[kFamily];
    (void)VeltDebugMgr::Destroy();  // what it fails to write is missed when read back
    Report(counts, end - begin, cpu);
  }

 private:
  void Produce(std::size_t producer) {
    VeltDebugMgr* const manager = VeltDebugMgr::Instance();
    int const worker = kFirstWorker + static_cast<int>(producer);
    std::vector<std::uint32_t>& costs = costs_[producer];
    for (std::size_t i = 0; i < producers_.each(); ++i) {
      int const step = kFirstStep + static_cast<int>(i);
      std::int64_t const begin = NowNs();
      manager->Printf(kInformation, modules_[i % kModules], kFormat, texts_.At(i), worker, step);
      costs[i] = static_cast<std::uint32_t>(std::min<std::int64_t>(NowNs() - begin, UINT32_MAX));
    }
  }

  void Report(VeltTraceCounts const& counts, std::int64_t ns, double cpu) {
    if (counts.archivesMade == 0) Fail("no file was rotated");
    if (counts.archivesRemoved != 0) Fail("archives were deleted, whose records cannot be read back");
    Ledger ledger(producers_.count(), producers_.each());
    ReadBack(options_.LogDirectory(), ledger);
    ledger.Demand(counts.written);
    Result result;
    result.Add("krecords_per_s", PerSecond(producers_.records(), ns));
    result.Add("writer_cpu_ns", cpu / producers_.records());
    AddCosts(result);
    result.Add("records", producers_.records());
    result.Add("refused", static_cast<double>(counts.refused));
    result.Add("lost", static_cast<double>(counts.lost));
    result.Add("missing", static_cast<double>(ledger.Missing()));
    result.Add("archives", static_cast<double>(counts.archivesMade));
    result.Add("line_bytes", ledger.MeanLineLength());
    result.Print();
  }

  void AddCosts(Result& result) {
    constexpr std::uint32_t kMillisecond = 1'000'000;
    std::vector<std::uint32_t> all;
    for (auto const& costs : costs_) all.insert(all.end(), costs.begin(), costs.end());
    result.Add("waits", static_cast<double>(std::count_if(all.begin(), all.end(), [](std::uint32_t cost) {
                 return cost >= kMillisecond;
               })));
    result.Add("longest_ms", static_cast<double>(*std::max_element(all.begin(), all.end())) / 1e6);
    AddPercentiles("", all, result);
  }

  Options const& options_;
  Producers producers_;
  Texts texts_;
  Modules names_;
  std::vector<VeltInterString> modules_;
  std::vector<std::vector<std::uint32_t>> costs_;
};

// The lines that the library writes for the same calls; the stamp and the step are those of one moment.
std::vector<std::string> ReadyLines(Modules const& modules, int worker) {
  constexpr std::size_t kLines = 32'768;
  Texts const texts(true);
  std::vector<std::string> lines;
  lines.reserve(kLines);
  for (std::size_t i = 0; i < kLines; ++i) {
    std::array<char, 2 * kMessageCapacity> line{};
    std::array<char, kMessageCapacity> message{};
    (void)std::snprintf(message.data(), message.size(), kFormat, texts.At(i), worker,
                        kFirstStep + static_cast<int>(i));
    int const length =
        std::snprintf(line.data(), line.size(), "11-15 08:52:13.%06u.T%ld %s I: %s\n",
                      static_cast<unsigned>(i), ThreadId(), modules[i % kModules].c_str(), message.data());
    lines.emplace_back(line.data(), static_cast<std::size_t>(length));
  }
  return lines;
}

void RunBare(Options const& options) {
  Producers producers(options);
  std::string const path = options.LogDirectory() + "bench.log";
  int const file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640);
  if (file == -1) Fail("cannot open the file");
  Modules const modules = MakeModules(kVeltFixedLength + ThreadIdLength(1));
  std::vector<std::vector<std::string>> lines;
  for (std::size_t i = 0; i < producers.count(); ++i) {
    lines.push_back(ReadyLines(modules, kFirstWorker + static_cast<int>(i)));
  }
  std::mutex mutex;
  std::atomic<std::int64_t> cpu{0};
  std::int64_t const begin = producers.Run([&](std::size_t producer) {
    std::vector<std::string> const& own = lines[producer];
    std::int64_t const cpu_before = ReadClock(CLOCK_THREAD_CPUTIME_ID);
    for (std::size_t i = 0; i < producers.each(); ++i) {
      std::string const& line = own[i % own.size()];
      std::unique_lock<std::mutex> const lock(mutex);
      if (write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) Fail("cannot write");
    }
    cpu += ReadClock(CLOCK_THREAD_CPUTIME_ID) - cpu_before;
  });
  std::int64_t const end = NowNs();
  (void)close(file);
  Result result;
  result.Add("writer_cpu_ns", static_cast<double>(cpu) / producers.records());
  result.Add("krecords_per_s", PerSecond(producers.records(), end - begin));
  result.Add("records", producers.records());
  result.Add("line_bytes", static_cast<double>(BytesIn(options.LogDirectory())) / producers.records());
  result.Print();
}

std::string ArchiveName(std::size_t second) {
  std::array<char, 64> name{};
  (void)std::snprintf(name.data(), name.size(), "bench_20260101_%02u%02u%02u.log.gz",
                      static_cast<unsigned>(second / 3'600), static_cast<unsigned>(second / 60 % 60),
                      static_cast<unsigned>(second % 60));
  return name.data();
}

void MakeFile(std::string const& path) {
  int const file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640);
  if (file == -1 || close(file) != 0) Fail("cannot make " + path);
}

// All of a rotation but the compression: listing the directory, finding the archive to delete, deleting it.
void RunScan(Options const& options) {
  constexpr std::size_t kRotations = 51;
  std::size_t const archives = options.Count("archives", 200);
  std::string const directory = options.LogDirectory();
  for (std::size_t i = 0; i < archives; ++i) MakeFile(directory + ArchiveName(i));
  VeltDebugInfo const channel(directory, "bench_", "", false, false, 0, 1, static_cast<unsigned>(archives), 1,
                              false);
  std::vector<std::uint32_t> costs;
  for (std::size_t i = 0; i < kRotations; ++i) {
    MakeFile(directory + ArchiveName(archives + i));
    std::int64_t const begin = ReadClock(CLOCK_THREAD_CPUTIME_ID);
    channel.ProcessLogFileBeforeCreateNew();
    costs.push_back(static_cast<std::uint32_t>(ReadClock(CLOCK_THREAD_CPUTIME_ID) - begin));
  }
  if (FilesIn(directory).size() != archives) Fail("not one archive was deleted at each rotation");
  Result result;
  AddPercentiles("scan_", costs, result);
  result.Print();
}

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  velt::bench::Options const options(argc, argv);
  if (options.Action() == "bare") {
    velt::bench::RunBare(options);
  } else if (options.Action() == "scan") {
    velt::bench::RunScan(options);
  } else {
    velt::bench::Sustained(options).Run();
  }
  return 0;
}
