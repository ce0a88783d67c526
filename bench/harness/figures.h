// The measurements that every logger goes through in the same way. A program instantiates Run with its
// logger:
//
//   static constexpr std::size_t kFixedLength      length of a line without module name and thread id
//   static constexpr std::size_t kThreadIdWidth    what shorter thread ids are padded to
//   static std::vector<std::string> OutputNames()  files that it may open first, for the stalled output; or
//   void Stall(), void Resume()                    where it takes no file that is there: stalls its output
//   Logger(Options const&, Modules const&)         writes below Options::LogDirectory()
//   bool Log(module index, customer, worker, step) from any thread; whether the record was accepted
//   ~Logger()                                      everything accepted is in the file afterwards
//
// and, where suppressed records are kept, LogFiltered with the arguments of Log.
#ifndef VELT_BENCH_HARNESS_FIGURES_H
#define VELT_BENCH_HARNESS_FIGURES_H

#include <sys/resource.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "harness/clock.h"
#include "harness/line.h"
#include "harness/meeting_point.h"
#include "harness/options.h"
#include "harness/read_back.h"
#include "harness/stalled_output.h"

namespace velt::bench {

double PeakMemoryMb();
double CurrentMemoryMb();

void CheckMessageLength();

// Ends the process unless every line of the measurement has the length of the agreed line.
void DemandLineLength(Ledger const& ledger);

void AddPercentiles(std::string const& prefix, std::vector<std::uint32_t>& samples, Result& result);
void AddClock(Result& result);

// A logger that is running and has its file open.
template <typename Logger>
class Session {
 public:
  explicit Session(Options const& options)
      : options_(options),
        modules_(MakeModules(Logger::kFixedLength + ThreadIdLength(Logger::kThreadIdWidth))),
        logger_(std::make_unique<Logger>(options, modules_)) {
    if (!logger_->Log(0, Customer(0), kOpeningWorker, kFirstStep)) Fail("the first record was refused");
    opening_bytes_ = WaitUntilQuiet(options.LogDirectory());
  }

  Logger& logger() { return *logger_; }

  // Called by each producer before the first of them logs.
  void Join() {
    round_bytes_ += Logger::kFixedLength + modules_[0].size() + ThreadIdLength(Logger::kThreadIdWidth);
  }

  bool LogNumber(std::size_t i, int worker) {
    return logger_->Log(i % kModules, Customer(i * 7), worker, kFirstStep + static_cast<int>(i));
  }

  // Until `records` of each producer are in the file.
  void WaitForRecords(std::size_t records, std::int64_t nap_ns) const {
    WaitForBytes(options_.LogDirectory(), opening_bytes_ + records * round_bytes_, nap_ns);
  }

  void Close() { logger_.reset(); }

 private:
  Options const& options_;
  Modules modules_;
  std::unique_ptr<Logger> logger_;
  std::size_t opening_bytes_ = 0;
  std::atomic<std::size_t> round_bytes_{0};  // of one line of each producer
};

// How many records each producer logs. The first burst is longer than the others and reported by itself: a
// logger whose memory grows with its queue asks for it then, and one that took it all at its start does not.
struct BurstPlan {
  std::size_t burst;
  std::size_t bursts;  // after the first

  std::size_t First() const { return burst + burst / 2; }
  std::size_t Records() const { return First() + burst * bursts; }
  bool BurstBegins(std::size_t i) const { return i == 0 || (i >= First() && (i - First()) % burst == 0); }
};

// One producer's part; `cost` has room for each call. Returns the number of refused records.
template <typename Logger>
std::size_t LogBursts(Session<Logger>& session, int worker, BurstPlan const& plan, MeetingPoint& meeting,
                      std::uint32_t* cost) {
  std::size_t refused = 0;
  session.Join();
  for (std::size_t i = 0; i < plan.Records(); ++i) {
    if (plan.BurstBegins(i)) {
      meeting.Wait();  // the burst before is through
      meeting.Wait();  // and written
    }
    std::int64_t const begin = NowNs();
    bool const accepted = session.LogNumber(i, worker);
    std::int64_t const end = NowNs();
    if (!accepted) ++refused;
    *cost++ = static_cast<std::uint32_t>(end - begin);
  }
  return refused;
}

// What one call costs its caller. Bursts fit the queue, and each is written before the next begins.
template <typename Logger>
void MeasureCaller(Options const& options) {
  constexpr std::int64_t kNapNs = 2'000'000;
  std::size_t const producers = options.Count("producers", 1);
  BurstPlan const plan{options.Count("burst", 20'000), options.Count("bursts", 5)};

  Session<Logger> session(options);
  std::vector<std::vector<std::uint32_t>> costs(producers, std::vector<std::uint32_t>(plan.Records()));
  MeetingPoint meeting(producers + 1);
  std::atomic<std::size_t> refused{0};
  std::vector<std::thread> threads;
  for (std::size_t producer = 0; producer < producers; ++producer) {
    threads.emplace_back([&, producer] {
      int const worker = kFirstWorker + static_cast<int>(producer);
      refused += LogBursts(session, worker, plan, meeting, costs[producer].data());
    });
  }
  for (std::size_t i = 0; i < plan.Records(); ++i) {
    if (!plan.BurstBegins(i)) continue;
    meeting.Wait();
    session.WaitForRecords(i, kNapNs);
    meeting.Wait();
  }
  for (auto& thread : threads) thread.join();
  session.WaitForRecords(plan.Records(), kNapNs);
  session.Close();
  if (refused != 0) Fail(std::to_string(refused) + " records refused");

  Ledger ledger(producers, plan.Records());
  ReadBack(options.LogDirectory(), ledger);
  ledger.DemandAll();
  DemandLineLength(ledger);
  std::vector<std::uint32_t> first;
  std::vector<std::uint32_t> later;
  for (auto const& cost : costs) {
    auto const split = cost.begin() + static_cast<std::ptrdiff_t>(plan.First());
    first.insert(first.end(), cost.begin(), split);
    later.insert(later.end(), split, cost.end());
  }
  Result result;
  AddPercentiles("", later, result);
  AddPercentiles("first_", first, result);
  AddClock(result);
  result.Add("records", static_cast<double>(ledger.Found()));
  result.Print();
}

// Records a second until the last one is in the file.
template <typename Logger>
void MeasureSustained(Options const& options) {
  constexpr std::int64_t kNapNs = 500'000;
  std::size_t const producers = options.Count("producers", 1);
  std::size_t const each = options.Count("records", 2'000'000) / producers;

  Session<Logger> session(options);
  MeetingPoint meeting(producers + 1);
  std::atomic<std::size_t> refused{0};
  auto const produce = [&](std::size_t producer) {
    int const worker = kFirstWorker + static_cast<int>(producer);
    std::size_t refused_here = 0;
    session.Join();
    meeting.Wait();
    for (std::size_t i = 0; i < each; ++i) refused_here += session.LogNumber(i, worker) ? 0 : 1;
    refused += refused_here;
  };
  std::vector<std::thread> threads;
  for (std::size_t producer = 0; producer < producers; ++producer) threads.emplace_back(produce, producer);
  std::int64_t const cpu_begin = ReadClock(CLOCK_PROCESS_CPUTIME_ID);
  std::int64_t const begin = NowNs();
  meeting.Wait();
  for (auto& thread : threads) thread.join();
  session.WaitForRecords(each, kNapNs);
  std::int64_t const end = NowNs();
  std::int64_t const cpu_end = ReadClock(CLOCK_PROCESS_CPUTIME_ID);
  session.Close();
  if (refused != 0) Fail(std::to_string(refused) + " records refused");

  Ledger ledger(producers, each);
  ReadBack(options.LogDirectory(), ledger);
  ledger.DemandAll();
  DemandLineLength(ledger);
  auto const records = static_cast<double>(each * producers);
  Result result;
  result.Add("krecords_per_s", records * 1e6 / static_cast<double>(end - begin));
  result.Add("cpu_ns_per_record", static_cast<double>(cpu_end - cpu_begin) / records);
  result.Add("records", records);
  result.Print();
}

// What a logger that has written its first record costs while no thread logs.
template <typename Logger>
void MeasureIdle(Options const& options) {
  constexpr std::int64_t kSettleNs = 300'000'000;
  Session<Logger> session(options);
  SleepNs(kSettleNs);
  rusage before{};
  rusage after{};
  (void)getrusage(RUSAGE_SELF, &before);
  std::int64_t const cpu_begin = ReadClock(CLOCK_PROCESS_CPUTIME_ID);
  SleepNs(static_cast<std::int64_t>(options.Count("seconds", 5)) * kNsPerSecond);
  std::int64_t const cpu_end = ReadClock(CLOCK_PROCESS_CPUTIME_ID);
  (void)getrusage(RUSAGE_SELF, &after);
  session.Close();
  Result result;
  result.Add("cpu_ms", static_cast<double>(cpu_end - cpu_begin) / 1e6);
  // One of them is this thread's own sleep.
  result.Add("switches", static_cast<double>(after.ru_nvcsw - before.ru_nvcsw));
  result.Print();
}

template <typename Logger, typename = void>
struct StallsItself : std::false_type {};
template <typename Logger>
struct StallsItself<Logger, std::void_t<decltype(&Logger::Stall)>> : std::true_type {};

template <typename Logger>
std::vector<std::string> NamesToStall() {
  if constexpr (StallsItself<Logger>::value) {
    return {};
  } else {
    return Logger::OutputNames();
  }
}

// Memory when the output stalls and the queue is full. The file is a pipe that is not read, or the logger
// stalls its own output. The queue counts as full when a call has not returned for a while. Then the output
// goes on, and every record must be written.
template <typename Logger>
void MeasureFullQueue(Options const& options) {
  constexpr std::int64_t kStuckNs = 300'000'000;
  constexpr std::size_t kMostRecords = 1'000'000;
  StalledOutput output(options.LogDirectory(), NamesToStall<Logger>());
  Modules const modules = MakeModules(Logger::kFixedLength + ThreadIdLength(Logger::kThreadIdWidth));
  auto logger = std::make_unique<Logger>(options, modules);
  if constexpr (StallsItself<Logger>::value) logger->Stall();
  double const before = PeakMemoryMb();

  std::atomic<std::size_t> calls{0};
  std::atomic<bool> enough{false};
  std::atomic<std::size_t> refused{0};
  std::thread producer([&] {
    for (std::size_t i = 0; i < kMostRecords && !enough; ++i) {
      int const step = kFirstStep + static_cast<int>(i);
      if (!logger->Log(i % kModules, Customer(i * 7), kFirstWorker, step)) ++refused;
      ++calls;
    }
  });
  std::size_t queued = 0;
  for (std::size_t seen = kMostRecords; seen != queued;) {
    seen = queued;
    SleepNs(kStuckNs);
    queued = calls;
    if (queued == 0) seen = kMostRecords;  // not begun
  }
  if (queued >= kMostRecords) Fail("the queue is not bounded");
  double const full = PeakMemoryMb();

  enough = true;
  Ledger ledger(1, kMostRecords);
  output.StartReading(ledger);
  if constexpr (StallsItself<Logger>::value) logger->Resume();
  producer.join();
  logger.reset();
  output.FinishReading();
  if constexpr (StallsItself<Logger>::value) ReadBack(options.LogDirectory(), ledger);
  if (refused != 0) Fail(std::to_string(refused) + " records refused");
  ledger.Demand(calls);
  Result result;
  result.Add("peak_mb", full);
  result.Add("before_mb", before);
  result.Add("after_mb", CurrentMemoryMb());
  result.Add("queued", static_cast<double>(queued));
  result.Print();
}

template <typename Logger, typename = void>
struct KeepsFiltered : std::false_type {};
template <typename Logger>
struct KeepsFiltered<Logger, std::void_t<decltype(&Logger::LogFiltered)>> : std::true_type {};

// What a call costs whose record no output wants. One call is too short for the clock, so a sample is the
// mean of a hundred.
template <typename Logger>
void MeasureFiltered(Options const& options) {
  constexpr std::size_t kCalls = 100;
  std::size_t const batches = options.Count("batches", 3'000);
  std::size_t const warm = batches / 10;
  Session<Logger> session(options);
  std::vector<std::uint32_t> samples;  // tenths of a nanosecond
  samples.reserve(batches);
  std::size_t i = 0;
  for (std::size_t batch = 0; batch < warm + batches; ++batch) {
    std::int64_t const begin = NowNs();
    for (std::size_t call = 0; call < kCalls; ++call, ++i) {
      session.logger().LogFiltered(i % kModules, Customer(i * 7), kFirstWorker,
                                   kFirstStep + static_cast<int>(i));
    }
    std::int64_t const end = NowNs();
    if (batch >= warm) samples.push_back(static_cast<std::uint32_t>((end - begin) * 10 / kCalls));
  }
  session.Close();
  Ledger ledger(1, i);
  ReadBack(options.LogDirectory(), ledger);
  if (ledger.Found() != 0) Fail("filtered records are in the file");
  Percentiles const cost = Summarize(samples);
  Result result;
  result.Add("p50", cost.p50 / 10);
  result.Add("mean", cost.mean / 10);
  result.Print();
}

template <typename Logger>
int Run(Options const& options) {
  CheckMessageLength();
  if (options.Action() == "caller") {
    MeasureCaller<Logger>(options);
  } else if (options.Action() == "sustained") {
    MeasureSustained<Logger>(options);
  } else if (options.Action() == "idle") {
    MeasureIdle<Logger>(options);
  } else if (options.Action() == "full-queue") {
    MeasureFullQueue<Logger>(options);
  } else if (options.Action() == "filtered") {
    if constexpr (KeepsFiltered<Logger>::value) {
      MeasureFiltered<Logger>(options);
    } else {
      Fail("this logger keeps no filtered records");
    }
  } else {
    Fail("unknown measurement '" + options.Action() + "'");
  }
  return 0;
}

}  // namespace velt::bench

#endif
