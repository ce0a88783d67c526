#include "tests/checker/family.h"

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string_view>
#include <utility>

#include "tests/checker/bytes.h"

namespace velt::checker {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kTimeLength = 15;
constexpr std::size_t kHeadLength = 10;    // of a gzip member without name, comment or extra field
constexpr std::size_t kTrailerLength = 8;  // checksum and length
constexpr std::size_t kBlock = 262'144;

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
  std::vector<char> block(kBlock);
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

// The same with zlib's file functions, which skip what follows the first member. `text` must be what they
// give.
std::string CompareWithZlib(std::string const& path, std::string_view text) {
  gzFile_s* const file = gzopen(path.c_str(), "rb");
  if (file == nullptr) return "zlib cannot open it";
  (void)gzbuffer(file, kBlock);
  std::vector<char> block(kBlock);
  bool same = true;
  int got = 0;
  while ((got = gzread(file, block.data(), static_cast<unsigned>(block.size()))) > 0) {
    std::string_view const part(block.data(), static_cast<std::size_t>(got));
    same = same && text.substr(0, part.size()) == part;
    text.remove_prefix(std::min(text.size(), part.size()));
  }
  bool const plain = gzdirect(file) != 0;
  bool const closed = gzclose(file) == Z_OK;
  if (got < 0 || !closed) return "zlib reports an error";
  if (plain) return "zlib does not take it for gzip";
  return same && text.empty() ? "" : "two readers read two texts";
}

mode_t ModeOf(std::string const& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : 0;
}

}  // namespace

Archive ReadArchive(std::string const& path) {
  Archive archive;
  archive.fault = Inflate(ReadWhole(path), archive.text);
  if (archive.fault.empty()) archive.fault = CompareWithZlib(path, archive.text);
  return archive;
}

std::vector<FamilyFile> ListFamilyFiles(std::string const& directory, std::string const& prefix) {
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
  list.reserve(files.size());
  for (auto& [name, file] : files) list.push_back(std::move(file));
  return list;
}

void ReadFamilyFile(std::string const& directory, FamilyFile& file) {
  std::string const path = fs::path(directory) / file.name;
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
}

std::vector<FamilyFile> ReadFamilyFiles(std::string const& directory, std::string const& prefix) {
  std::vector<FamilyFile> files = ListFamilyFiles(directory, prefix);
  for (auto& file : files) ReadFamilyFile(directory, file);
  return files;
}

}  // namespace velt::checker
