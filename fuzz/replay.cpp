// Feeds every file that is named, and every file of a directory that is named, to a fuzz target. Ends with 1
// when there was none.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> FilesOf(fs::path const& place) {
  if (!fs::is_directory(place)) return {place};
  std::vector<fs::path> files;
  for (auto const& entry : fs::directory_iterator(place)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int count, char** places) {
  std::vector<fs::path> files;
  for (int i = 1; i < count; ++i) {
    for (fs::path const& file : FilesOf(places[i])) files.push_back(file);
  }
  for (fs::path const& file : files) {
    std::ifstream in(file, std::ios::binary);
    std::string const text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::fprintf(stderr, "%s\n",
                 file.filename().c_str());  // after a crash, the last name is that of the input
    LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(text.data()), text.size());
  }
  std::fprintf(stderr, "%zu inputs\n", files.size());
  return files.empty() ? 1 : 0;
}
