// family_check: reads log families back, archives too, and compares their records with what was traced.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include <zlib.h>

namespace {

namespace fs = std::filesystem;

struct Tally {
  long traced = 0;
  long found = 0;
};
using Tallies = std::unordered_map<std::string, Tally>;  // by message

struct GzipCloser {
  void operator()(gzFile_s* file) const { gzclose(file); }
};

bool EndsIn(std::string const& text, std::string const& tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Reads a plain or compressed file. False when it cannot be read to its end.
bool ReadWhole(fs::path const& path, std::string& text) {
  std::unique_ptr<gzFile_s, GzipCloser> in(gzopen(path.c_str(), "rb"));
  if (in == nullptr) return false;
  std::string block(65536, '\0');
  int count = 0;
  while ((count = gzread(in.get(), block.data(), static_cast<unsigned>(block.size()))) > 0) {
    text.append(block, 0, static_cast<std::size_t>(count));
  }
  // Only gzclose reports an archive that ends too early.
  return gzclose(in.release()) == Z_OK && count == 0;
}

// Where the message of a line begins, such as "11-15 08:52:13.123456.T4711 module I: message"; npos when the
// line is not a record.
std::size_t MessageStart(std::string const& line) {
  std::size_t const thread = 21;  // behind the stamp
  if (line.size() < thread + 2 || line[2] != '-' || line[5] != ' ' || line[14] != '.' ||
      line.compare(thread, 2, ".T") != 0) {
    return std::string::npos;
  }
  std::size_t const module = line.find(' ', thread);
  if (module == std::string::npos) return module;
  std::size_t const module_end = line.find(' ', module + 1);
  if (module_end == std::string::npos) return module_end;
  std::size_t const text = module_end + 1;
  bool const tagged = line.size() >= text + 3 && std::strchr("AEWI", line[text]) != nullptr &&
                      line.compare(text + 1, 2, ": ") == 0;
  return tagged ? text + 3 : text;
}

void TallyRecords(std::string const& content, Tallies& tallies) {
  for (std::size_t at = 0; at < content.size();) {
    std::size_t const end = std::min(content.find('\n', at), content.size());
    std::string const line = content.substr(at, end - at);
    std::size_t const message = MessageStart(line);
    if (message != std::string::npos) ++tallies[line.substr(message)].found;
    at = end + 1;
  }
}

// The names of the family's files. Of a file that exists both plain and compressed, only the archive.
std::set<std::string> FamilyFiles(fs::path const& directory, std::string const& prefix) {
  std::size_t const log_length = prefix.size() + 19;  // the time and ".log"
  std::set<std::string> logs;
  std::set<std::string> files;
  for (auto const& entry : fs::directory_iterator(directory)) {
    std::string const name = entry.path().filename().string();
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    if (name.size() == log_length && EndsIn(name, ".log")) logs.insert(name);
    if (name.size() == log_length + 3 && EndsIn(name, ".log.gz")) files.insert(name);
  }
  for (auto const& log : logs) {
    if (files.count(log + ".gz") == 0) files.insert(log);
  }
  return files;
}

int Compare(Tallies const& tallies, std::size_t files) {
  long traced = 0;
  long found = 0;
  std::string first_wrong;
  for (auto const& [message, tally] : tallies) {
    traced += tally.traced;
    found += tally.found;
    bool const wrong = tally.traced != tally.found;
    if (wrong && (first_wrong.empty() || message < first_wrong)) first_wrong = message;
  }
  std::printf("traced %ld, found %ld (in %zu files)\n", traced, found, files);
  if (first_wrong.empty()) return 0;
  Tally const& tally = tallies.at(first_wrong);
  std::printf("traced %ld times but found %ld times: %s\n", tally.traced, tally.found, first_wrong.c_str());
  return 1;
}

int Check(fs::path const& directory, std::string const& prefix, char const* traced_file) {
  Tallies tallies;
  std::ifstream traced(traced_file);
  if (!traced) {
    std::fprintf(stderr, "family_check: cannot read %s\n", traced_file);
    return 2;
  }
  for (std::string message; std::getline(traced, message);) ++tallies[message].traced;

  std::set<std::string> const files = FamilyFiles(directory, prefix);
  for (auto const& name : files) {
    std::string content;
    if (!ReadWhole(directory / name, content)) {
      std::fprintf(stderr, "family_check: cannot read %s\n", name.c_str());
      return 2;
    }
    TallyRecords(content, tallies);
  }
  return Compare(tallies, files.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs(
        "Usage: family_check DIR NAME TRACED\n"
        "Compare the records of the log family NAME in DIR, archives included, with the messages that TRACED "
        "lists one\n"
        "a line: each has to be there exactly as often, and nothing else. Module names must not hold a "
        "space.\n"
        "Exit status: 0 when they agree, 1 when not, 2 when something could not be read.\n",
        stderr);
    return 2;
  }
  try {
    return Check(argv[1], argv[2], argv[3]);
  } catch (std::exception const& problem) {
    std::fprintf(stderr, "family_check: %s\n", problem.what());
    return 2;
  }
}
