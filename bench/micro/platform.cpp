// Single steps of a trace call, each compared with what it replaces.
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>

#include <ace/ACE.h>
#include <ace/OS_NS_sys_time.h>
#include <benchmark/benchmark.h>

#include "harness/line.h"
#include "platform/message_format.h"
#include "platform/thread_id.h"
#include "platform/time_stamp.h"

namespace velt::bench {
namespace {

using Message = std::array<char, 2047>;

int Format(Message& message, char const* format, ...) VELT_PRINTF_FORMAT(2, 3);
int Format(Message& message, char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  int const length = FormatMessage(message.data(), message.size(), format, args);
  va_end(args);
  return length;
}

void FormatByUs(benchmark::State& state) {
  Message message;
  int step = kFirstStep;
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(Format(message, VELT_BENCH_PRINTF_MESSAGE, Customer(0), kFirstWorker, ++step));
  }
}
BENCHMARK(FormatByUs);

void FormatBySnprintf(benchmark::State& state) {
  Message message;
  int step = kFirstStep;
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(std::snprintf(message.data(), message.size(), VELT_BENCH_PRINTF_MESSAGE,
                                           Customer(0), kFirstWorker, ++step));
  }
}
BENCHMARK(FormatBySnprintf);

void StampByUs(benchmark::State& state) {
  std::array<char, kTimeStampCapacity> text;
  ACE_Time_Value const now = ACE_OS::gettimeofday();
  while (state.KeepRunning()) {
    WriteTimeStamp(now, text.data());
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(StampByUs);

void StampByAce(benchmark::State& state) {
  std::array<ACE_TCHAR, kTimeStampCapacity> text;
  ACE_Time_Value const now = ACE_OS::gettimeofday();
  while (state.KeepRunning()) benchmark::DoNotOptimize(ACE::timestamp(now, text.data(), text.size()));
}
BENCHMARK(StampByAce);

void ReadTime(benchmark::State& state) {
  while (state.KeepRunning()) benchmark::DoNotOptimize(ACE_OS::gettimeofday());
}
BENCHMARK(ReadTime);

void ThreadIdByUs(benchmark::State& state) {
  while (state.KeepRunning()) benchmark::DoNotOptimize(velt::ThreadId());
}
BENCHMARK(ThreadIdByUs);

void ThreadIdByKernel(benchmark::State& state) {
  while (state.KeepRunning()) benchmark::DoNotOptimize(gettid());
}
BENCHMARK(ThreadIdByKernel);

}  // namespace
}  // namespace velt::bench

BENCHMARK_MAIN();
