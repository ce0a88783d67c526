#include "tests/checker/outcomes.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "tests/checker/bytes.h"

namespace velt::checker {

OutcomeWriter::OutcomeWriter(std::string const& directory, unsigned run, unsigned producer,
                             std::size_t capacity)
    : capacity_(capacity), bytes_(nullptr) {
  std::filesystem::create_directories(directory);
  std::string const path = directory + "/outcomes." + std::to_string(run) + "." + std::to_string(producer);
  int const file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file == -1) throw std::runtime_error("cannot make " + path);
  // Allocated at once: otherwise a write to the mapping could end the process by SIGBUS on a full disk.
  bool const sized = posix_fallocate(file, 0, static_cast<off_t>(capacity)) == 0;
  void* const memory =
      sized ? mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0) : MAP_FAILED;
  close(file);
  if (memory == MAP_FAILED) throw std::runtime_error("cannot map " + path);
  bytes_ = static_cast<unsigned char volatile*>(memory);
}

OutcomeWriter::~OutcomeWriter() { munmap(const_cast<unsigned char*>(bytes_), capacity_); }

void OutcomeWriter::Store(unsigned sequence, Outcome outcome) {
  if (sequence >= capacity_) throw std::out_of_range("more records than the outcome file holds");
  bytes_[sequence] = static_cast<unsigned char>(outcome);
}

std::size_t ProducerOutcomes::Count(Outcome outcome) const {
  return static_cast<std::size_t>(std::count(outcomes.begin(), outcomes.end(), outcome));
}

std::vector<ProducerOutcomes> ReadOutcomes(std::string const& directory) {
  std::vector<ProducerOutcomes> all;
  std::error_code none;
  for (auto const& entry : std::filesystem::directory_iterator(directory, none)) {
    ProducerOutcomes one;
    if (std::sscanf(entry.path().filename().c_str(), "outcomes.%u.%u", &one.run, &one.producer) != 2)
      continue;
    std::string bytes = ReadWhole(entry.path());
    bytes.erase(bytes.find_last_not_of('\0') + 1);
    one.outcomes.resize(bytes.size());
    std::transform(bytes.begin(), bytes.end(), one.outcomes.begin(),
                   [](char byte) { return static_cast<Outcome>(byte); });
    all.push_back(std::move(one));
  }
  std::sort(all.begin(), all.end(), [](auto const& a, auto const& b) {
    return a.run != b.run ? a.run < b.run : a.producer < b.producer;
  });
  return all;
}

}  // namespace velt::checker
