#include "tests/support/files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include <zlib.h>

namespace fs = std::filesystem;

namespace velt::test {

ScratchDir::ScratchDir() {
  std::string pattern = fs::temp_directory_path().string() + "/velt_test_XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no scratch directory");
  path_ = pattern;
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;  // if something cannot be removed, the test has failed already
  fs::remove_all(path_, ignored);
}

std::string ReadFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

std::string ReadGzip(std::string const& path) {
  gzFile in = gzopen(path.c_str(), "rb");
  if (in == nullptr) return {};
  std::string text;
  char block[65536];
  int got = 0;
  while ((got = gzread(in, block, sizeof block)) > 0) text.append(block, static_cast<std::size_t>(got));
  gzclose(in);
  return text;
}

void WriteFile(std::string const& path, std::string const& content) {
  std::ofstream(path, std::ios::binary) << content;
}

bool Exists(std::string const& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0;
}

mode_t ModeOf(std::string const& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

std::vector<std::string> ListDir(std::string const& path) {
  std::vector<std::string> names;
  std::error_code failed;
  for (auto const& entry : fs::directory_iterator(path, failed))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> FilesOf(std::string const& directory, std::string const& prefix,
                                 std::string const& suffix) {
  std::vector<std::string> found;
  for (auto const& name : ListDir(directory)) {
    bool const fits = name.size() >= prefix.size() + suffix.size() &&
                      name.compare(0, prefix.size(), prefix) == 0 &&
                      name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
    if (fits) found.push_back(name);
  }
  return found;
}

std::string ReadFamily(std::string const& directory, std::string const& prefix) {
  std::map<std::string, std::string> content;  // by the name of the plain file
  for (auto const& name : FilesOf(directory, prefix, ".log"))
    content[name] = ReadFile(directory + "/" + name);
  for (auto const& name : FilesOf(directory, prefix, ".log.gz")) {
    content[name.substr(0, name.size() - 3)] = ReadGzip(directory + "/" + name);
  }
  std::string text;
  for (auto const& file : content) text += file.second;
  return text;
}

std::vector<std::string> Lines(std::string const& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::size_t CountOf(std::string const& text, std::string const& piece) {
  std::size_t count = 0;
  for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + piece.size()))
    ++count;
  return count;
}

}  // namespace velt::test
