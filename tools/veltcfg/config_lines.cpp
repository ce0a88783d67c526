// Reads a configuration file line by line, as the library does.
#include "tools/veltcfg/config_lines.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>

#include "velt/config.h"

namespace velt::tools::cfg {
namespace {

constexpr int kItem = 1;
constexpr std::streamsize kLineCapacity = 2048;  // the library's: 2047 characters and a NUL
constexpr char const* kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kByteOrderMarkLength = 3;

void Examine(ConfigFile& file) {
  struct stat info {};
  if (stat(file.path.c_str(), &info) != 0) {
    bool const missing = errno == ENOENT || errno == ENOTDIR;
    file.state = missing ? FileState::kMissing : FileState::kUnreadable;
    file.reason = std::strerror(errno);
    return;
  }
  if (S_ISDIR(info.st_mode)) {
    file.state = FileState::kUnreadable;
    file.reason = "it is a directory";
    return;
  }
  if (!S_ISREG(info.st_mode)) {
    file.state = FileState::kBlocking;
    file.reason = "it is not a regular file";
    return;
  }
  int const opened = open(file.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  file.state = opened >= 0 ? FileState::kReadable : FileState::kUnreadable;
  if (opened < 0) file.reason = std::strerror(errno);
  if (opened >= 0) close(opened);
}

// Reads the bytes of each line; the library's own functions give the items.
class RawLines {
 public:
  explicit RawLines(std::string const& path) : in_(path) {}

  std::string Next() {
    in_.getline(buffer_.data(), kLineCapacity, '\n');
    auto length = static_cast<std::size_t>(in_.gcount());
    bool const with_newline = length > 0 && !in_.eof() && !in_.fail();  // gcount() includes the newline
    return {buffer_.data(), with_newline ? length - 1 : length};
  }

  // The number of lines after the line that was cut.
  long CountRest() {
    constexpr std::streamsize kAll = std::numeric_limits<std::streamsize>::max();
    in_.clear();
    in_.ignore(kAll, '\n');
    long count = 0;
    while (in_.good() && in_.peek() != std::ifstream::traits_type::eof()) {
      ++count;
      in_.ignore(kAll, '\n');
    }
    return count;
  }

 private:
  std::ifstream in_;
  std::array<char, kLineCapacity> buffer_{};
};

void ExamineLine(ConfigFile& file, std::string const& raw, bool is_item, int number) {
  auto const warn = [&file, number](char const* kind, std::string const& message) {
    AddFinding(file.findings, Severity::kWarning, kind, {file.path, number}, message);
  };
  if (number == 1 && raw.compare(0, kByteOrderMarkLength, kByteOrderMark) == 0) {
    warn("byte-order-mark", "the file begins with a byte order mark, which belongs to the text of this line");
  }
  std::string const text = raw.substr(0, raw.find('\0'));
  if (text.size() < raw.size()) warn("nul-byte", "the line is read up to its first NUL byte");
  std::string const trimmed = TrimString(text, " \t\r\n");
  if (!is_item && !trimmed.empty() && trimmed.front() != '#') {
    warn("no-item", "a line without \"=\" is skipped: " + Quoted(trimmed));
  }
}

std::string CutMessage(long rest) {
  std::string message = "the line is over 2047 characters: it is cut there, and nothing after it is read";
  if (rest > 0) message += " (" + std::to_string(rest) + (rest == 1 ? " more line)" : " more lines)");
  return message;
}

void ReadLines(ConfigFile& file) {
  std::ifstream in(file.path);
  RawLines raw_lines(file.path);
  Item item;
  for (item.line = 1; in.good(); ++item.line) {
    bool const is_item = VeltGetLine(in, item.name, item.value) == kItem;
    if (in.bad()) {
      file.state = FileState::kUnreadable;
      file.reason = "it cannot be read to its end";
      return;
    }
    if (is_item) file.items.push_back(item);
    ExamineLine(file, raw_lines.Next(), is_item, item.line);
    if (in.fail() && !in.eof()) {
      AddFinding(file.findings, Severity::kWarning, "line-too-long", {file.path, item.line},
                 CutMessage(raw_lines.CountRest()));
    }
  }
}

}  // namespace

ConfigFile ReadConfigFile(std::string const& path) {
  ConfigFile file;
  file.path = path;
  Examine(file);
  if (file.state == FileState::kReadable) ReadLines(file);
  return file;
}

Item const* FirstOf(ConfigFile const& file, std::string const& name) {
  auto const found = std::find_if(file.items.begin(), file.items.end(),
                                  [&name](Item const& item) { return item.name == name; });
  return found == file.items.end() ? nullptr : &*found;
}

}  // namespace velt::tools::cfg
