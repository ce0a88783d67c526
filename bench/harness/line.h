// The line that every logger writes: 128 bytes with its newline. It has a time stamp, the kernel's thread
// id, a module, a tag and an 83-character message made on the caller's side of one string and two ints.
//
// The last 24 characters tell which producer wrote it and how many it had written, so that a lost, repeated
// or misplaced record shows.
#ifndef VELT_BENCH_HARNESS_LINE_H
#define VELT_BENCH_HARNESS_LINE_H

#include <array>
#include <cstddef>
#include <string>

namespace velt::bench {

#define VELT_BENCH_PRINTF_MESSAGE "the order of %s was accepted, priced and booked; worker %d, step %d"
#define VELT_BENCH_FMT_MESSAGE "the order of {} was accepted, priced and booked; worker {}, step {}"
#define VELT_BENCH_STREAM_MESSAGE(customer, worker, step)                                               \
  "the order of " << (customer) << " was accepted, priced and booked; worker " << (worker) << ", step " \
                  << (step)

constexpr std::size_t kLineLength = 128;
constexpr std::size_t kMessageLength = 83;
constexpr std::size_t kMessageCapacity = 256;
constexpr std::size_t kModules = 16;
constexpr int kFirstWorker = 10;       // two digits, as for all that follow
constexpr int kOpeningWorker = 99;     // of the one record that opens what a logger opens late
constexpr int kFirstStep = 1'000'000;  // seven digits, as for all that follow

using Modules = std::array<std::string, kModules>;

// Characters of the calling thread's id in a line of a logger that pads it to `width`. Ids start again at a
// low number when the highest is used up, so that those of one process may differ in length.
std::size_t ThreadIdLength(std::size_t width);

// Sixteen names, as long as it takes to fill the calling thread's line when its other parts have `rest`
// characters.
Modules MakeModules(std::size_t rest);

// One of sixteen texts of one length.
char const* Customer(std::size_t index);

// Cached per thread.
long ThreadId();

}  // namespace velt::bench

#endif
