#include "tests/checker/family.h"

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

namespace velt::checker {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kTimeLength = 15;
constexpr std::size_t kHeadLength = 10;    // of a gzip member without name, comment or extra field
constexpr std::size_t kTrailerLength = 8;  // checksum and length

std::string ReadWhole(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::uint32_t LittleEndian(std::string const& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

// Inflates the body of `packed` by hand. Returns what is wrong with it.
std::string Inflate(std::string const& packed, std::string& text) {
  if (packed.size() < kHeadLength) return "shorter than a gzip head";
  if (packed.compare(0, 3, "\x1f\x8b\x08") != 0) return "no gzip head";
  if (packed[3] != '\0') return "a gzip head with parts that the library never writes";
  z_stream stream{};
  if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return "inflateInit2 failed";
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data() + kHeadLength));
  stream.avail_in = static_cast<uInt>(packed.size() - kHeadLength);
  std::array<char, 65'536> block;
  int result = Z_OK;
  while (result == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(block.data());
    stream.avail_out = static_cast<uInt>(block.size());
    result = inflate(&stream, Z_NO_FLUSH);
    text.append(block.data(), block.size() - stream.avail_out);
  }
  std::size_t const trailer = packed.size() - stream.avail_in;
  inflateEnd(&stream);
  if (result != Z_STREAM_END) return "the compressed data end early or are broken";
  if (packed.size() - trailer < kTrailerLength) return "the gzip trailer is cut";
  if (packed.size() - trailer > kTrailerLength) return "bytes behind the gzip trailer";
  auto const checksum = static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<Bytef const*>(text.data()), static_cast<uInt>(text.size())));
  if (LittleEndian(packed, trailer) != checksum) return "the gzip trailer has another checksum";
  if (LittleEndian(packed, trailer + 4) != static_cast<std::uint32_t>(text.size()))
    return "the gzip trailer has another length";
  return {};
}

// The same with zlib's file functions, which skip what follows the first member.
std::string ReadWithZlib(std::string const& path, std::string& text) {
  gzFile_s* const file = gzopen(path.c_str(), "rb");
  if (file == nullptr) return "zlib cannot open it";
  std::array<char, 65'536> block;
  int got = 0;
  while ((got = gzread(file, block.data(), static_cast<unsigned>(block.size()))) > 0)
    text.append(block.data(), static_cast<std::size_t>(got));
  bool const plain = gzdirect(file) != 0;
  bool const closed = gzclose(file) == Z_OK;
  if (got < 0 || !closed) return "zlib reports an error";
  return plain ? "zlib does not take it for gzip" : "";
}

mode_t ModeOf(std::string const& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : 0;
}

}  // namespace

Archive ReadArchive(std::string const& path) {
  Archive archive;
  archive.fault = Inflate(ReadWhole(path), archive.text);
  std::string by_zlib;
  std::string const zlib_fault = ReadWithZlib(path, by_zlib);
  if (archive.fault.empty()) archive.fault = zlib_fault;
  if (archive.fault.empty() && by_zlib != archive.text) archive.fault = "two readers read two texts";
  return archive;
}

std::vector<FamilyFile> ReadFamilyFiles(std::string const& directory, std::string const& prefix) {
  std::map<std::string, FamilyFile> files;
  std::error_code none;
  for (auto const& entry : fs::directory_iterator(directory, none)) {
    std::string const name = entry.path().filename();
    if (name.compare(0, prefix.size(), prefix) != 0 || !fs::is_regular_file(entry.path(), none)) continue;
    std::string const suffix =
        name.size() < prefix.size() + kTimeLength ? "" : name.substr(prefix.size() + kTimeLength);
    if (suffix != ".log" && suffix != ".log.gz") continue;
    std::string const plain_name = name.substr(0, prefix.size() + kTimeLength + 4);
    FamilyFile& file = files[plain_name];
    file.name = plain_name;
    (suffix == ".log" ? file.has_log : file.has_archive) = true;
  }

  std::vector<FamilyFile> list;
  for (auto& [name, file] : files) {
    std::string const path = fs::path(directory) / name;
    std::string log_text;
    if (file.has_log) {
      file.log_mode = ModeOf(path);
      log_text = ReadWhole(path);
    }
    Archive archive;
    if (file.has_archive) {
      file.archive_mode = ModeOf(path + ".gz");
      archive = ReadArchive(path + ".gz");
      file.archive_fault = archive.fault;
    }
    bool const whole = file.has_archive && file.archive_fault.empty();
    if (whole && file.has_log && log_text != archive.text) file.differing_log = log_text;
    file.text = whole || !file.has_log ? std::move(archive.text) : std::move(log_text);
    list.push_back(std::move(file));
  }
  return list;
}

}  // namespace velt::checker
