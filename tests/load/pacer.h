// Keeps producers from writing more than one file of a family in a second, however fast or slow the machine
// is.
#ifndef VELT_TESTS_LOAD_PACER_H
#define VELT_TESTS_LOAD_PACER_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/load/plan.h"

namespace velt::load {

// Sees each log file of the run being created, and lets a family have
//   - no more than a window of bytes that were accepted and are not in its files yet: less than a file, so
//   that
//     one that is on its way into the queue cannot finish two files;
//   - no more than half a file in the second after a file was opened.
//
// Threads: Look belongs to one thread, Admit may be called from any; the rest once both have ended.
// Errors:  the constructor and Look throw std::runtime_error when the kernel does not tell of the files.
class Pacer {
 public:
  Pacer(std::string directory, std::size_t file_bytes, std::size_t window_bytes);
  ~Pacer();
  Pacer(Pacer const&) = delete;
  Pacer& operator=(Pacer const&) = delete;

  void Look();  // to be repeated, often
  // Waits for room, then counts the bytes of a record's line. Throws std::runtime_error after five minutes.
  void Admit(unsigned family, std::size_t bytes);

  bool AllOpened() const;      // every family has a file
  unsigned Rotations() const;  // of all families, so far
  std::vector<std::string> const& Opened(unsigned family) const { return families_[family].opened; }
  unsigned SharedNames() const;                  // files that were created under a name for the second time
  long LeastSecondsBetweenFiles() const;         // by their names; -1: no family has two
  std::chrono::seconds LongestHeldBack() const;  // a wait in Admit

 private:
  struct Family {
    std::atomic<std::uint64_t> admitted{0};
    std::atomic<std::uint64_t> room{0};  // up to which `admitted` may go
    std::vector<std::string> opened;     // names in the order of their creation
    std::chrono::steady_clock::time_point last_opened;
  };

  void ReadEvents();
  void NoteCreated(std::string const& name);
  void MakeRoom(Family& family) const;

  std::string directory_;
  std::size_t file_bytes_;
  std::size_t window_bytes_;
  int events_;
  std::array<Family, kFamilies> families_;
  std::atomic<std::int64_t> longest_held_back_s_{0};
};

}  // namespace velt::load

#endif
