#include "tests/faults/host.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "velt/manager.h"

#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::faults {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

TraceCall ToChannel(VeltDebugInfo& channel) {
  return [&channel](std::string const& text) {
    return channel.Trace("m", VeltLogLevel{3}, text.c_str(), nullptr, false, true);
  };
}

TraceCall ToManager(std::string const& sub_name) {
  return [sub_name](std::string const& text) {
    return VeltDebugMgr::Instance()->AppTrace("m", VeltLogLevel{3}, text.c_str(), nullptr, false, true,
                                              sub_name);
  };
}

Producer::Producer(ProducerSetup const& setup, unsigned number, TraceCall trace)
    : setup_(setup),
      number_(number),
      trace_(std::move(trace)),
      outcomes_(setup.side_directory, setup.run, number, setup.records) {}

bool Producer::TraceNext() {
  if (Exhausted()) return false;
  unsigned const sequence = next_++;
  std::size_t const length = setup_.length ? setup_.length(sequence) : checker::MixedLength(sequence);
  std::string const text = checker::MakeRecord({setup_.run, number_, sequence}, length);
  auto const start = Clock::now();
  outcomes_.Begin(sequence);
  bool const accepted = trace_(text);
  outcomes_.End(sequence, accepted);
  longest_ = std::max(longest_, std::chrono::nanoseconds(Clock::now() - start));
  accepted_ += accepted ? 1 : 0;
  return accepted;
}

Producers::Producers(ProducerSetup const& setup, TraceCall const& trace) {
  for (unsigned i = 0; i < setup.producers; ++i)
    producers_.push_back(std::make_unique<Producer>(setup, setup.first_producer + i, trace));
  for (auto& producer : producers_)
    threads_.emplace_back([this, &producer = *producer, pause = setup.pause] { Run(producer, pause); });
}

void Producers::Run(Producer& producer, std::chrono::microseconds pause) {
  while (!stop_ && !producer.Exhausted()) {
    producer.TraceNext();
    ++traced_;
    if (pause.count() > 0) std::this_thread::sleep_for(pause);
  }
}

void Producers::Join() {
  for (auto& thread : threads_)
    if (thread.joinable()) thread.join();
}

void Producers::Wait() { Join(); }

void Producers::Stop() {
  stop_ = true;
  Join();
}

std::chrono::nanoseconds Producers::LongestCall() const {
  std::chrono::nanoseconds longest{0};
  for (auto const& producer : producers_) longest = std::max(longest, producer->LongestCall());
  return longest;
}

std::vector<std::string> LogNames(std::string const& directory, std::string const& prefix) {
  std::vector<std::string> names = test::FilesOf(directory, prefix, ".log");
  auto const other = [&](std::string const& name) { return name.size() != prefix.size() + 19; };
  names.erase(std::remove_if(names.begin(), names.end(), other), names.end());
  return names;
}

namespace {

struct FamilySize {
  std::size_t archives = 0;
  std::size_t logs = 0;
  std::uintmax_t log_bytes = 0;
  std::uintmax_t newest_log_bytes = 0;
  bool operator!=(FamilySize const& other) const {
    return archives != other.archives || log_bytes != other.log_bytes;
  }
};

FamilySize SizeOf(std::string const& directory, std::string const& prefix) {
  FamilySize size;
  size.archives = test::FilesOf(directory, prefix, ".log.gz").size();
  std::error_code gone;
  for (auto const& name : LogNames(directory, prefix)) {
    auto const bytes = fs::file_size(fs::path(directory) / name, gone);
    if (gone) continue;
    ++size.logs;
    size.log_bytes += bytes;
    size.newest_log_bytes = bytes;
  }
  return size;
}

}  // namespace

bool FillFile(std::vector<Producer*> const& producers, std::string const& directory,
              std::string const& prefix, std::size_t max_bytes) {
  test::WaitForNextSecond();
  std::size_t const archives = SizeOf(directory, prefix).archives;
  for (std::size_t turn = 0;; ++turn) {
    FamilySize const before = SizeOf(directory, prefix);
    if (!producers[turn % producers.size()]->TraceNext()) return false;
    if (!test::WaitUntil([&] { return SizeOf(directory, prefix) != before; })) return false;
    FamilySize const now = SizeOf(directory, prefix);
    // The file is past its limit and about to end: one more record would come into the next file, and perhaps
    // end that within the same second. The plain file is removed once its archive is whole; then the next
    // file is opened.
    if (now.newest_log_bytes > max_bytes || now.archives > archives)
      return test::WaitUntil([&] {
        FamilySize const next = SizeOf(directory, prefix);
        return next.logs == 1 && next.log_bytes > 0 && next.archives > archives;
      });
  }
}

void LinkLogs(std::string const& directory, std::string const& prefix, std::string const& witness_directory) {
  fs::create_directories(witness_directory);
  for (auto const& name : LogNames(directory, prefix)) {
    // EEXIST for a name that is linked already, ENOENT for a file that was removed meanwhile.
    (void)link((fs::path(directory) / name).c_str(), (fs::path(witness_directory) / name).c_str());
  }
}

Witness::Witness(std::string directory, std::string prefix, std::string witness_directory)
    : directory_(std::move(directory)),
      prefix_(std::move(prefix)),
      witness_directory_(std::move(witness_directory)),
      thread_([this] {
        while (!stop_) {
          LinkLogs(directory_, prefix_, witness_directory_);
          std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
      }) {}

Witness::~Witness() { Stop(); }

void Witness::Stop() {
  if (stop_) return;
  stop_ = true;
  thread_.join();
  LinkLogs(directory_, prefix_, witness_directory_);
}

}  // namespace velt::faults
