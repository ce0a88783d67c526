// A host under load: 64 producers, nine families, 20 million records; then every file is read back and every
// record accounted for.
//
//   load_run CSV
//
// Samples the process once a second into CSV and prints FIGURE lines. Exit 0 when nothing was lost, doubled
// or misplaced, and memory, threads and descriptors stayed flat. Without VELT_FAULT_SCALE=full: a hundredth
// of the records.
#include <fcntl.h>
#include <unistd.h>

#include <bitset>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "velt/manager.h"

#include "tests/faults/scale.h"
#include "tests/load/account.h"
#include "tests/load/pacer.h"
#include "tests/load/plan.h"
#include "tests/load/producers.h"
#include "tests/load/samples.h"
#include "tests/support/files.h"

namespace {

using namespace velt::load;  // NOLINT(google-build-using-namespace): its program
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBetweenLooks(20);
constexpr std::chrono::seconds kBetweenSamples(1);

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// While it lives, standard output is a file: ring records go there, too.
class PrintedInto {
 public:
  explicit PrintedInto(std::string const& path) : before_(dup(1)) {
    std::fflush(stdout);
    int const file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (before_ == -1 || file == -1 || dup2(file, 1) == -1)
      throw std::runtime_error("cannot print into " + path);
    close(file);
  }
  ~PrintedInto() {
    std::cout.flush();
    std::fflush(stdout);
    dup2(before_, 1);
    close(before_);
  }
  PrintedInto(PrintedInto const&) = delete;
  PrintedInto& operator=(PrintedInto const&) = delete;

 private:
  int before_;
};

void InitManager(velt::test::ScratchDir const& scratch, Scale const& scale, std::string const& directory) {
  std::string const config = scratch / "host.cfg";
  velt::test::WriteFile(config, "nEachFileMaxSize=" + std::to_string(scale.file_megabytes) +
                                    "\nnEachProcessMaxZipNum=" + std::to_string(kArchivesKept) +
                                    "\nnFiltLogBufSize=" + std::to_string(kRingCapacity) + "\n");
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  std::bitset<32> const levels(0b11);   // 0 and 1
  std::bitset<32> const outputs(0b10);  // the file
  if (!manager->Init(PrefixOf(0), config, directory, HeaderOf(0), false, false) ||
      !manager->RegSubModuleInfo(kModule, levels, outputs, false))
    throw std::runtime_error("the manager cannot be initialised");
}

// Looks at the files and takes samples until all producers have traced. The first sample is taken once all
// threads and files are there. An error ends the process: without the looks producers would wait for room for
// ever.
std::vector<Sample> Watch(Pacer& pacer, Producers const& producers, Clock::time_point start) noexcept {
  std::vector<Sample> samples;
  auto due = Clock::now();
  while (!producers.AllTraced()) {
    pacer.Look();
    if (pacer.AllOpened() && Clock::now() >= due) {
      Sample now = Sample::Now();
      now.seconds = SecondsSince(start);
      now.traced = producers.Traced();
      now.rotated = pacer.Rotations();
      samples.push_back(now);
      due += kBetweenSamples;
      if (due < Clock::now()) due = Clock::now() + kBetweenSamples;
    }
    std::this_thread::sleep_for(kBetweenLooks);
  }
  return samples;
}

struct Verdict {
  bool good = true;

  void Demand(bool holds, std::string const& otherwise) {
    if (!holds) std::fprintf(stderr, "load_run: %s\n", otherwise.c_str());
    good = good && holds;
  }
};

void Report(Account const& account, Pacer const& pacer, Verdict& verdict) {
  auto const number = [](auto value) { return static_cast<long long>(value); };
  velt::faults::Figure({{"records", number(account.called)},
                        {"accepted", number(account.accepted)},
                        {"refused", number(account.refused)},
                        {"refused_by_level", number(account.refused_by_level)},
                        {"in_files", number(account.in_files)},
                        {"from_ring", number(account.from_ring)},
                        {"evicted_from_ring", number(account.evicted)},
                        {"left_in_ring", number(account.left_in_ring)}});
  velt::faults::Figure({{"lost", number(account.findings.lost)},
                        {"duplicated", number(account.findings.duplicated)},
                        {"out_of_order", number(account.findings.out_of_order)},
                        {"misplaced", number(account.findings.misplaced)},
                        {"wrong", number(account.findings.wrong)}});
  velt::faults::Figure({{"families", kFamilies},
                        {"rotations", pacer.Rotations()},
                        {"archives", number(account.archives)},
                        {"shared_names", pacer.SharedNames()},
                        {"least_seconds_between_files", pacer.LeastSecondsBetweenFiles()},
                        {"megabytes", number(account.bytes >> 20U)}});
  for (auto const& text : account.findings.first) std::fprintf(stderr, "  %s\n", text.c_str());
  verdict.Demand(account.findings.Sum() == 0, "the files do not hold what was accepted");
  verdict.Demand(account.Accounted(), "the sums of records do not agree");
  verdict.Demand(account.from_ring > 0 && account.evicted > 0 && account.refused_by_level > 0,
                 "the ring or the refusals were not met");
  verdict.Demand(pacer.SharedNames() == 0 && pacer.LeastSecondsBetweenFiles() >= 1,
                 "two files shared a second");
}

void Report(std::vector<Sample> const& samples, Verdict& verdict) {
  Range const memory = RangeOf(samples, &Sample::rss_kb);
  Range const threads = RangeOf(samples, &Sample::threads);
  Range const descriptors = RangeOf(samples, &Sample::descriptors);
  auto const megabytes_at = [&](unsigned percent) { return SampleAt(samples, percent).rss_kb / 1024; };
  velt::faults::Figure({{"rss_mb_10", megabytes_at(10)},
                        {"rss_mb_50", megabytes_at(50)},
                        {"rss_mb_100", megabytes_at(100)},
                        {"rss_mb_max", memory.most / 1024},
                        {"threads_min", threads.least},
                        {"threads_max", threads.most},
                        {"descriptors_min", descriptors.least},
                        {"descriptors_max", descriptors.most}});
  // A sanitizer keeps freed memory for a while, so the process grows.
  verdict.Demand(velt::faults::kSanitized || memory.Within(kMemoryBoundKb), "memory did not stay flat");
  verdict.Demand(threads.Within(kThreadBound), "threads did not stay flat");
  verdict.Demand(descriptors.Within(kDescriptorBound), "descriptors did not stay flat");
}

bool Run(std::string const& csv) {
  Scale const scale = CurrentScale();
  velt::test::ScratchDir const scratch;
  std::string const directory = scratch / "log";
  std::string const printed = scratch / "printed";
  auto const start = Clock::now();
  std::vector<Sample> samples;

  // Made before the manager, so that the directory is watched from the first file on.
  std::filesystem::create_directory(directory);
  Pacer pacer(directory, std::size_t{scale.file_megabytes} << 20U, scale.window_bytes);
  std::unique_ptr<Producers> producers;
  {
    PrintedInto const file(printed);
    InitManager(scratch, scale, directory);
    producers = std::make_unique<Producers>(scale, pacer);
    samples = Watch(pacer, *producers, start);
    producers->Release();
    VeltDebugMgr::Destroy();
  }
  pacer.Look();  // at the files that the last records needed
  double const traced_after = SecondsSince(start);
  WriteCsv(csv, samples);
  Account const account = CheckAll(scale, pacer, *producers, directory, velt::test::ReadFile(printed));

  Verdict verdict;
  Report(account, pacer, verdict);
  Report(samples, verdict);
  velt::faults::Figure({{"seconds", static_cast<long long>(traced_after)},
                        {"seconds_of_check", static_cast<long long>(SecondsSince(start) - traced_after)},
                        {"longest_held_back_s", pacer.LongestHeldBack().count()},
                        {"samples", static_cast<long long>(samples.size())}});
  verdict.Demand(pacer.Rotations() >= scale.least_rotations, "too few rotations");
  return verdict.good;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s CSV\n", argv[0]);
    return 2;
  }
  return Run(argv[1]) ? 0 : 1;
} catch (std::exception const& error) {
  std::fprintf(stderr, "load_run: %s\n", error.what());
  return 1;
}
