// No logger at all: write(2) of ready lines, under a mutex where there are several producers. The least that
// a logger costs which hands each record to the kernel before the next.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "harness/figures.h"

namespace velt::bench {
namespace {

// A line made once; only the digits of the step change, and of them mostly the last.
class ReadyLine {
 public:
  ReadyLine(std::string const& module, char const* customer, int worker, int step) {
    std::array<char, kMessageCapacity> line;
    int const length = std::snprintf(line.data(), line.size(),
                                     "11-15 08:52:13.123456.T%ld %s I: " VELT_BENCH_PRINTF_MESSAGE "\n",
                                     ThreadId(), module.c_str(), customer, worker, step);
    text_.assign(line.data(), static_cast<std::size_t>(length));
  }

  void Advance() {
    std::size_t digit = text_.size() - 2;
    while (text_[digit] == '9') text_[digit--] = '0';
    ++text_[digit];
  }

  std::string const& text() const { return text_; }

 private:
  std::string text_;
};

class RawWrite {
 public:
  static constexpr std::size_t kFixedLength = 21 + 2 + 1 + 4 + kMessageLength + 1;
  static constexpr std::size_t kThreadIdWidth = 1;
  static std::vector<std::string> OutputNames() { return {"bench.log"}; }

  RawWrite(Options const& options, Modules const& modules)
      : file_(open((options.LogDirectory() + "bench.log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640)),
        alone_(options.Count("producers", 1) == 1),
        modules_(modules) {
    if (file_ == -1) Fail("cannot open the file");
  }
  ~RawWrite() { (void)close(file_); }
  RawWrite(RawWrite const&) = delete;
  RawWrite& operator=(RawWrite const&) = delete;

  bool Log(std::size_t module, char const* customer, int worker, int step) {
    static thread_local ReadyLine line(modules_[module], customer, worker, step);
    if (step == kFirstStep) {
      line = ReadyLine(modules_[module], customer, worker, step);
    } else {
      line.Advance();
    }
    if (alone_) return Write(line.text());
    std::lock_guard<std::mutex> const lock(mutex_);
    return Write(line.text());
  }

 private:
  bool Write(std::string const& text) const {
    return write(file_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }

  int file_;
  bool alone_;
  Modules modules_;
  std::mutex mutex_;
};

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  return velt::bench::Run<velt::bench::RawWrite>(velt::bench::Options(argc, argv));
}
