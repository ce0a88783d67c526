// What the tests of veltpipe share: its command line, its input, and the records in its log family.
#ifndef VELT_TESTS_TOOLS_VELTPIPE_H
#define VELT_TESTS_TOOLS_VELTPIPE_H

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"

namespace velt::test {

inline std::string const kProgram = std::string(VELT_TOOLS_DIR) + "/veltpipe";

inline std::vector<std::string> Command(std::string const& directory,
                                        std::vector<std::string> const& options = {}) {
  std::vector<std::string> command{kProgram, "--name", "t_", "--dir", directory};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

inline Outcome Trace(std::string const& input, std::string const& directory,
                     std::vector<std::string> const& options = {}) {
  return RunProgram(Command(directory, options), input);
}

// What follows `label` ("app I: ") in the records of a text, in order.
inline std::vector<std::string> MessagesIn(std::string const& text, std::string const& label = "app I: ") {
  std::vector<std::string> messages;
  for (auto const& line : Lines(text)) {
    std::size_t const thread = line.find(".T");
    std::size_t const at = line.find(" " + label);
    if (thread == 21 && at != std::string::npos) messages.push_back(line.substr(at + 1 + label.size()));
  }
  return messages;
}

inline std::vector<std::string> Traced(std::string const& directory, std::string const& label = "app I: ") {
  return MessagesIn(ReadFamily(directory, "t_"), label);
}

inline std::size_t CountLogs(std::string const& directory) { return FilesOf(directory, "t_", ".log").size(); }
inline std::size_t CountArchives(std::string const& directory) {
  return FilesOf(directory, "t_", ".log.gz").size();
}

// Numbered lines of 100 characters each, newline included.
inline std::string NumberedLines(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    std::string line = "line " + std::to_string(i) + " ";
    line.resize(99, '.');
    text += line + "\n";
  }
  return text;
}

// Empty when both hold the same lines in the same order; otherwise what the first difference is.
inline std::string FirstDifference(std::vector<std::string> const& expected,
                                   std::vector<std::string> const& found) {
  for (std::size_t i = 0; i < expected.size() && i < found.size(); ++i) {
    if (expected[i] != found[i]) return "expected \"" + expected[i] + "\", found \"" + found[i] + "\"";
  }
  if (expected.size() == found.size()) return {};
  return std::to_string(expected.size()) + " lines expected, " + std::to_string(found.size()) + " found";
}

inline Descriptor OpenInput(std::string const& path) {
  return Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}
inline Descriptor OpenOutput(std::string const& path) {
  return Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
}

// Reads on until `text` holds at least `bytes` bytes; false when the other end is closed before.
inline bool ReadOn(Descriptor const& from, std::string& text, std::size_t bytes) {
  char block[65536];
  while (text.size() < bytes) {
    ssize_t const count = read(from, block, sizeof block);
    if (count <= 0) return false;
    text.append(block, static_cast<std::size_t>(count));
  }
  return true;
}

inline void WriteAll(Descriptor const& to, std::string const& text) {
  for (std::size_t done = 0; done < text.size();) {
    ssize_t const count = write(to, text.data() + done, text.size() - done);
    if (count < 0) throw std::runtime_error("the program does not read");
    done += static_cast<std::size_t>(count);
  }
}

// Whether the program has read everything that was written into the pipe.
inline bool IsDrained(Descriptor const& pipe) {
  int waiting = -1;
  return ioctl(pipe, FIONREAD, &waiting) == 0 && waiting == 0;
}

}  // namespace velt::test

#endif
