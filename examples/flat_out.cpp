// A moment of tracing as fast as it goes, and what became of the records.
#include "flat_out.h"

#include <array>
#include <chrono>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "velt/log.h"
#include "velt/manager.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char const* kPrefix = "flat_out_";
constexpr std::size_t kThreads = 4;
constexpr std::size_t kRecords = 120'000;  // of each thread: together some ten files of 5 MB
constexpr unsigned kFlushMilliseconds = 60'000;

struct Producer {
  std::vector<bool> accepted = std::vector<bool>(kRecords);  // what each call returned
  std::thread thread;
};

std::string Message(std::size_t thread, std::size_t item) {
  std::array<char, 128> text{};
  (void)std::snprintf(text.data(), text.size(),
                      "thread %zu, item %06zu: order %06zu went through reception, pricing and delivery",
                      thread, item, thread * kRecords + item);
  return text.data();
}

void TraceAll(std::size_t thread, std::vector<bool>& accepted) {
  velt::Module const load("load");
  for (std::size_t i = 0; i < kRecords; ++i) accepted[i] = load.Info("{}", Message(thread, i));
}

void WriteAccepted(std::filesystem::path const& list, std::array<Producer, kThreads> const& producers) {
  std::ofstream out(list);
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    for (std::size_t i = 0; i < kRecords; ++i) {
      if (producers.at(thread).accepted[i]) out << Message(thread, i) << '\n';
    }
  }
  if (!out.flush()) throw std::runtime_error("cannot write " + list.string());
}

void PrintCounts(VeltTraceCounts const& counts, double seconds) {
  std::printf("%zu threads, %zu records each, %.2f s: %.0f records a second\n", kThreads, kRecords, seconds,
              static_cast<double>(kThreads * kRecords) / seconds);
  std::printf("accepted %" PRIu64 ", refused %" PRIu64 ", written %" PRIu64 ", lost %" PRIu64
              ", queued %" PRIu64 "\n",
              counts.accepted, counts.refused, counts.written, counts.lost, counts.queued);
  std::printf("files opened %" PRIu64 ", archives made %" PRIu64 ", bytes written %" PRIu64 "\n",
              counts.filesOpened, counts.archivesMade, counts.bytesWritten);
}

}  // namespace

void TraceFlatOut(std::filesystem::path const& log, std::filesystem::path const& list) {
  unsetenv("APP_ROOT");  // no configuration file: the defaults
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  if (!manager->Init(kPrefix, "", log.string(), "service_host, flat out\n", true, false)) {
    throw std::runtime_error("cannot start tracing");
  }
  velt::Module("load").Register(velt::UpTo(velt::kInfo), velt::kToFile);

  std::array<Producer, kThreads> producers;
  Clock::time_point const began = Clock::now();
  for (std::size_t i = 0; i < kThreads; ++i) {
    Producer& producer = producers.at(i);
    producer.thread = std::thread(TraceAll, i, std::ref(producer.accepted));
  }
  for (Producer& producer : producers) producer.thread.join();
  if (!manager->Flush(kFlushMilliseconds)) throw std::runtime_error("the log takes too long");
  std::chrono::duration<double> const took = Clock::now() - began;

  std::map<std::string, VeltTraceCounts> counts;
  if (!manager->GetCounts(counts)) throw std::runtime_error("no counts");
  PrintCounts(counts.at(kPrefix), took.count());
  WriteAccepted(list, producers);
  VeltDebugMgr::Destroy();
}
