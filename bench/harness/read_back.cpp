#include "harness/read_back.h"

#include <dirent.h>
#include <sys/stat.h>

#include <zlib.h>

#include <algorithm>
#include <array>
#include <memory>

#include "harness/clock.h"
#include "harness/line.h"
#include "harness/options.h"

namespace velt::bench {

namespace {

constexpr std::string_view kBeforeWorker = "; worker ";
constexpr std::string_view kBeforeStep = ", step ";
constexpr std::size_t kWorkerDigits = 2;
constexpr std::size_t kStepDigits = 7;
constexpr std::size_t kTailLength = kBeforeWorker.size() + kWorkerDigits + kBeforeStep.size() + kStepDigits;
constexpr std::int64_t kPatienceNs = 120 * kNsPerSecond;

// -1 when one of the characters is no digit.
int Number(std::string_view digits) {
  int value = 0;
  for (char const digit : digits) {
    if (digit < '0' || digit > '9') return -1;
    value = value * 10 + (digit - '0');
  }
  return value;
}

template <typename Take>
void ForEachFile(std::string const& directory, Take take) {
  std::unique_ptr<DIR, int (*)(DIR*)> const listing(opendir(directory.c_str()), closedir);
  if (listing == nullptr) return;
  while (dirent const* const entry = readdir(listing.get())) {
    struct stat info {};
    std::string const path = directory + entry->d_name;
    // Not through links: one logger keeps a link to its newest file.
    if (lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) take(entry->d_name, info);
  }
}

}  // namespace

Ledger::Ledger(std::size_t workers, std::size_t steps)
    : steps_(steps), seen_(workers * steps), last_step_(workers, -1) {}

void Ledger::Take(std::string_view line) {
  if (line.size() < kTailLength) return;
  std::string_view const tail = line.substr(line.size() - kTailLength);
  if (tail.substr(0, kBeforeWorker.size()) != kBeforeWorker) return;
  if (tail.substr(kBeforeWorker.size() + kWorkerDigits, kBeforeStep.size()) != kBeforeStep) return;
  int const worker = Number(tail.substr(kBeforeWorker.size(), kWorkerDigits));
  int const step = Number(tail.substr(tail.size() - kStepDigits));
  if (worker == kOpeningWorker) return;
  auto const worker_at = static_cast<std::size_t>(worker - kFirstWorker);
  auto const step_at = static_cast<std::size_t>(step - kFirstStep);
  if (worker < kFirstWorker || worker_at >= last_step_.size() || step < kFirstStep || step_at >= steps_) {
    Fail("a record that nobody logged: " + std::string(line));
  }
  bytes_ += line.size() + 1;
  auto seen = seen_[worker_at * steps_ + step_at];
  if (seen) {
    ++repeated_;
    return;
  }
  seen = true;
  ++found_;
  if (step <= last_step_[worker_at]) ++disordered_;
  last_step_[worker_at] = step;
}

void Ledger::TakeText(std::string_view piece) {
  std::size_t begin = 0;
  for (;;) {
    std::size_t const end = piece.find('\n', begin);
    if (end == std::string_view::npos) break;
    if (rest_.empty()) {
      Take(piece.substr(begin, end - begin));
    } else {
      rest_ += piece.substr(begin, end - begin);
      Take(rest_);
      rest_.clear();
    }
    begin = end + 1;
  }
  rest_ += piece.substr(begin);
}

double Ledger::MeanLineLength() const {
  return found_ == 0 ? 0 : static_cast<double>(bytes_) / static_cast<double>(found_ + repeated_);
}

void Ledger::Demand(std::size_t expected) const {
  if (found_ == expected && repeated_ == 0 && disordered_ == 0) return;
  Fail(std::to_string(found_) + " records found of " + std::to_string(expected) + ", " +
       std::to_string(repeated_) + " twice, " + std::to_string(disordered_) + " out of order");
}

void ReadBack(std::string const& directory, Ledger& ledger) {
  std::vector<char> piece(1U << 20U);
  for (std::string const& name : FilesIn(directory)) {
    std::unique_ptr<gzFile_s, int (*)(gzFile)> const file(gzopen((directory + name).c_str(), "rb"),
                                                          gzclose_r);
    if (file == nullptr) Fail("cannot read " + name);
    int length = 0;
    while ((length = gzread(file.get(), piece.data(), static_cast<unsigned>(piece.size()))) > 0) {
      ledger.TakeText({piece.data(), static_cast<std::size_t>(length)});
    }
    if (length < 0) Fail(name + " is damaged");
    ledger.TakeText("\n");
  }
}

std::vector<std::string> FilesIn(std::string const& directory) {
  std::vector<std::string> names;
  ForEachFile(directory, [&](char const* name, struct stat const&) { names.emplace_back(name); });
  std::sort(names.begin(), names.end());
  return names;
}

std::size_t BytesIn(std::string const& directory) {
  std::size_t bytes = 0;
  ForEachFile(directory,
              [&](char const*, struct stat const& info) { bytes += static_cast<std::size_t>(info.st_size); });
  return bytes;
}

void WaitForBytes(std::string const& directory, std::size_t bytes, std::int64_t nap_ns) {
  std::int64_t const give_up = NowNs() + kPatienceNs;
  while (BytesIn(directory) < bytes) {
    if (NowNs() > give_up) {
      Fail("the files have " + std::to_string(BytesIn(directory)) + " bytes instead of " +
           std::to_string(bytes));
    }
    SleepNs(nap_ns);
  }
}

std::size_t WaitUntilQuiet(std::string const& directory) {
  constexpr std::int64_t kNapNs = 50'000'000;
  WaitForBytes(directory, kLineLength, kNapNs);
  std::size_t before = 0;
  for (std::size_t now = BytesIn(directory); now != before; now = BytesIn(directory)) {
    before = now;
    SleepNs(kNapNs);
  }
  return before;
}

}  // namespace velt::bench
