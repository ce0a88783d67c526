#include "tests/load/samples.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <stdexcept>

namespace velt::load {
namespace {

long EntriesOf(char const* directory) {
  return static_cast<long>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

}  // namespace

Sample Sample::Now() {
  Sample now;
  std::ifstream in("/proc/self/statm");
  long total = 0;
  long resident = 0;
  if (!(in >> total >> resident)) throw std::runtime_error("cannot read /proc/self/statm");
  in.close();
  now.rss_kb = resident * (sysconf(_SC_PAGESIZE) / 1024);
  now.threads = EntriesOf("/proc/self/task");
  now.descriptors = EntriesOf("/proc/self/fd") - 1;  // less the one that lists them
  return now;
}

void WriteCsv(std::string const& path, std::vector<Sample> const& samples) {
  std::ofstream out(path);
  out << "seconds,rss_kb,threads,descriptors,records,rotations\n" << std::fixed << std::setprecision(1);
  for (auto const& sample : samples) {
    out << sample.seconds << ',' << sample.rss_kb << ',' << sample.threads << ',' << sample.descriptors << ','
        << sample.traced << ',' << sample.rotated << '\n';
  }
  if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

Range RangeOf(std::vector<Sample> const& samples, long Sample::*field) {
  Range range;
  std::size_t const first = std::max<std::size_t>(1, samples.size() / 5);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    long const value = samples[i].*field;
    range.least = i == 0 ? value : std::min(range.least, value);
    range.most = std::max(range.most, value);
    if (i < first) range.most_at_first = std::max(range.most_at_first, value);
  }
  return range;
}

Sample const& SampleAt(std::vector<Sample> const& samples, unsigned percent) {
  return samples.at((samples.size() * percent + 99) / 100 - 1);
}

}  // namespace velt::load
