// What a process holds that a leak would let grow.
#ifndef VELT_TESTS_FAULTS_PROCESS_STATE_H
#define VELT_TESTS_FAULTS_PROCESS_STATE_H

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "tests/faults/scale.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::faults {

struct ProcessState {
  std::size_t threads = 0;
  std::size_t descriptors = 0;
  std::size_t heap_bytes = 0;  // in use; always 0 with a sanitizer, which finds leaks itself

  static ProcessState Now() {
    ProcessState now;
    now.threads = test::ListDir("/proc/self/task").size();
    now.descriptors = test::ListDir("/proc/self/fd").size();
    if (!kSanitized) {
      struct mallinfo2 const heap = mallinfo2();
      now.heap_bytes = heap.uordblks + heap.hblkhd;
    }
    return now;
  }
  // Now, once no more than `threads` are there: those that were told to end, or are detached, take a moment.
  static ProcessState Settled(std::size_t threads) {
    test::WaitUntil([threads] { return Now().threads <= threads; });
    return Now();
  }
};

// How many output threads of the library this process has; those that were told to end take a moment.
inline std::size_t OutputThreads() {
  std::size_t count = 0;
  std::error_code failed;
  for (auto const& task : std::filesystem::directory_iterator("/proc/self/task", failed)) {
    std::ifstream in(task.path() / "comm");
    std::string name;
    if (std::getline(in, name) && name.compare(0, 5, "velt:") == 0) ++count;
  }
  return count;
}

// Descriptors, once no output thread is left; the sanitizer may have a thread of its own.
inline std::size_t DescriptorsWithoutOutputThreads() {
  EXPECT_TRUE(test::WaitUntil([] { return OutputThreads() == 0; }));
  return ProcessState::Now().descriptors;
}

}  // namespace velt::faults

#endif
