// All bytes of a file.
#ifndef VELT_TESTS_CHECKER_BYTES_H
#define VELT_TESTS_CHECKER_BYTES_H

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace velt::checker {

// Reads to the end that the file has by then, since it may grow meanwhile. Empty when it cannot be read.
inline std::string ReadWhole(std::filesystem::path const& path) {
  constexpr std::size_t kMore = 65'536;
  std::ifstream in(path, std::ios::binary);
  std::error_code none;
  auto const size = std::filesystem::file_size(path, none);
  std::string bytes(none ? kMore : static_cast<std::size_t>(size) + 1,
                    '\0');  // one more byte, so that read() shows the end
  std::size_t got = 0;
  while (true) {
    in.read(bytes.data() + got, static_cast<std::streamsize>(bytes.size() - got));
    got += static_cast<std::size_t>(in.gcount());
    if (got < bytes.size()) break;
    bytes.resize(got + kMore);
  }
  bytes.resize(got);
  return bytes;
}

}  // namespace velt::checker

#endif
