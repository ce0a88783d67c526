// What compressing a finished log file of one kind of text costs, and how large its archive is. Built once
// with each of the library's two compressors.
//
//   velt_compression run --dir D --text varied|dpkg|hex [--mb N]
//   velt_compression levels --dir D --text varied|dpkg|hex [--mb N]    every level of ISA-L, by itself
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <isa-l/igzip_lib.h>

#include "velt/channel.h"

#include "harness/clock.h"
#include "harness/options.h"
#include "harness/texts.h"

namespace velt::bench {
namespace {

// Lines of four threads and sixteen modules, some microseconds apart, as the library writes them.
std::string VariedLines(std::size_t bytes) {
  constexpr std::array<char const*, 4> kTags = {"A", "E", "W", "I"};
  Texts const texts(true);
  std::mt19937 random(1);
  auto const below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  std::string all;
  all.reserve(bytes + 1'000);
  std::uint64_t microseconds = 0;
  for (std::size_t i = 0; all.size() < bytes; ++i) {
    microseconds += below(30);
    std::array<char, 64> head{};
    (void)std::snprintf(
        head.data(), head.size(),
        "11-15 08:%02u:%02u.%06u.T%u module_%u %s: ", static_cast<unsigned>(microseconds / 60'000'000 % 60),
        static_cast<unsigned>(microseconds / 1'000'000 % 60), static_cast<unsigned>(microseconds % 1'000'000),
        5'823 + below(4), below(16), kTags.at(below(4)));
    all.append(head.data()).append(texts.At(i)).append("\n");
  }
  return all;
}

// The machine's own package log over and over. It must be longer than the 32 KB that gzip looks back.
std::string PackageLog(std::size_t bytes) {
  std::ifstream in("/var/log/dpkg.log", std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  std::string const once = text.str();
  if (once.size() < 100'000) Fail("/var/log/dpkg.log is missing, or too short to be repeated");
  std::string all;
  while (all.size() < bytes) all += once;
  return all;
}

std::string HexLines(std::size_t bytes) {
  std::mt19937 random(2);
  std::string all;
  all.reserve(bytes + 65);
  while (all.size() < bytes) {
    for (int i = 0; i < 64; ++i) all += "0123456789abcdef"[random() % 16];
    all += '\n';
  }
  return all;
}

std::string TextOf(Options const& options) {
  std::string const kind = options.Text("text", "varied");
  std::size_t const bytes = options.Count("mb", 50) << 20U;
  std::string text;
  if (kind == "varied") {
    text = VariedLines(bytes);
  } else if (kind == "dpkg") {
    text = PackageLog(bytes);
  } else if (kind == "hex") {
    text = HexLines(bytes);
  } else {
    Fail("unknown text '" + kind + "'");
  }
  text.resize(bytes);
  return text;
}

std::int64_t CpuNs() { return ReadClock(CLOCK_PROCESS_CPUTIME_ID); }

std::size_t SizeOf(std::string const& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) Fail("no " + path);
  return static_cast<std::size_t>(info.st_size);
}

void DemandText(std::string const& archive, std::string const& text) {
  gzFile_s* const in = gzopen(archive.c_str(), "rb");
  if (in == nullptr) Fail("no " + archive);
  std::array<char, 65'536> block{};
  std::size_t read = 0;
  for (int got = 0; (got = gzread(in, block.data(), block.size())) > 0;
       read += static_cast<std::size_t>(got)) {
    if (text.compare(read, static_cast<std::size_t>(got), block.data(), static_cast<std::size_t>(got)) != 0)
      Fail("the archive holds another text");
  }
  if (gzclose(in) != Z_OK || read != text.size()) Fail("the archive is not whole");
}

// The library's own way from the plain file to the archive, reading included.
void Measure(Options const& options) {
  std::string const text = TextOf(options);
  std::string const source = options.Scratch() + "/text.log";
  std::string const archive = source + ".gz";
  std::ofstream(source, std::ios::binary) << text;
  if (SizeOf(source) != text.size()) Fail("cannot write " + source);
  VeltDebugInfo const channel(options.LogDirectory(), "bench_", "", false, false, 0, 1, 1, 1, false);

  std::int64_t const begin = CpuNs();
  if (channel.GZCompress(source, archive) != 0) Fail("the compression failed");
  std::int64_t const end = CpuNs();

  DemandText(archive, text);
  Result result;
  result.Add("cpu_ms", static_cast<double>(end - begin) / 1e6);
  result.Add("source_bytes", static_cast<double>(text.size()));
  result.Add("archive_bytes", static_cast<double>(SizeOf(archive)));
  result.Print();
}

struct Setting {
  char const* name;
  std::uint32_t level;
  std::size_t level_bytes;
  std::size_t out_bytes;
};
constexpr Setting kSettings[] = {{"level_1_small", 1, ISAL_DEF_LVL1_SMALL, 8'192},
                                 {"level_1_medium", 1, ISAL_DEF_LVL1_MEDIUM, 8'192},
                                 {"level_1_medium_64k", 1, ISAL_DEF_LVL1_MEDIUM, 65'536},
                                 {"level_1_large", 1, ISAL_DEF_LVL1_LARGE, 8'192},
                                 {"level_1_extra_large", 1, ISAL_DEF_LVL1_EXTRA_LARGE, 8'192},
                                 {"level_2_small", 2, ISAL_DEF_LVL2_SMALL, 8'192},
                                 {"level_2_medium", 2, ISAL_DEF_LVL2_MEDIUM, 8'192},
                                 {"level_2_extra_large", 2, ISAL_DEF_LVL2_EXTRA_LARGE, 8'192},
                                 {"level_3_small", 3, ISAL_DEF_LVL3_SMALL, 8'192},
                                 {"level_3_medium", 3, ISAL_DEF_LVL3_MEDIUM, 8'192},
                                 {"level_3_extra_large", 3, ISAL_DEF_LVL3_EXTRA_LARGE, 8'192}};

// In blocks as long as the library reads, written to a file.
std::size_t Compress(std::string& text, Setting const& setting, int file) {
  constexpr std::size_t kBlock = 65'535;
  std::vector<std::uint8_t> level(setting.level_bytes);
  std::vector<std::uint8_t> out(setting.out_bytes);
  isal_zstream stream;
  isal_deflate_init(&stream);
  stream.gzip_flag = IGZIP_GZIP;
  stream.level = setting.level;
  stream.level_buf = level.data();
  stream.level_buf_size = static_cast<std::uint32_t>(level.size());
  std::size_t written = 0;
  for (std::size_t done = 0; done < text.size();) {
    std::size_t const count = std::min(kBlock, text.size() - done);
    stream.next_in = reinterpret_cast<std::uint8_t*>(&text[done]);
    stream.avail_in = static_cast<std::uint32_t>(count);
    done += count;
    stream.end_of_stream = done == text.size() ? 1 : 0;
    do {
      stream.next_out = out.data();
      stream.avail_out = static_cast<std::uint32_t>(out.size());
      if (isal_deflate(&stream) != COMP_OK) Fail("the compressor failed");
      std::size_t const ready = out.size() - stream.avail_out;
      if (write(file, out.data(), ready) != static_cast<ssize_t>(ready)) Fail("cannot write");
      written += ready;
    } while (stream.avail_out == 0);
  }
  return written;
}

void MeasureLevels(Options const& options) {
  std::string text = TextOf(options);
  std::string const archive = options.Scratch() + "/text.gz";
  Result result;
  for (Setting const& setting : kSettings) {
    int const file = open(archive.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    std::int64_t const begin = CpuNs();
    std::size_t const bytes = Compress(text, setting, file);
    std::int64_t const end = CpuNs();
    (void)close(file);
    DemandText(archive, text);
    result.Add(std::string(setting.name) + "_cpu_ms", static_cast<double>(end - begin) / 1e6);
    result.Add(std::string(setting.name) + "_bytes", static_cast<double>(bytes));
  }
  result.Print();
}

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  velt::bench::Options const options(argc, argv);
  if (options.Action() == "levels") {
    velt::bench::MeasureLevels(options);
  } else {
    velt::bench::Measure(options);
  }
  return 0;
}
