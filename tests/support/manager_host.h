// A host process of a manager test: a scratch installation, the manager on top of it, and its log families
// read back.
#ifndef VELT_TESTS_SUPPORT_MANAGER_HOST_H
#define VELT_TESTS_SUPPORT_MANAGER_HOST_H

#include <sys/stat.h>

#include <algorithm>
#include <bitset>
#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "velt/manager.h"

#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {

using Bits = std::bitset<32>;

// The set with exactly these bits.
inline Bits BitsOf(std::initializer_list<std::size_t> positions) {
  Bits bits;
  for (std::size_t const position : positions) bits.set(position);
  return bits;
}

// Names of the family with exactly this prefix: "host_" leaves the files of "host_gw_" out.
inline std::vector<std::string> ExactFamily(std::string const& directory, std::string const& prefix) {
  std::vector<std::string> found;
  for (auto const& name : FilesOf(directory, prefix, "")) {
    std::string const rest = name.substr(prefix.size());
    bool const plain = rest.size() == 19 && rest.substr(15) == ".log";
    bool const packed = rest.size() == 22 && rest.substr(15) == ".log.gz";
    if ((plain || packed) && rest[8] == '_' && std::isdigit(static_cast<unsigned char>(rest[0])) != 0) {
      found.push_back(name);
    }
  }
  return found;
}

// The text of that family in the order of its names; a log beside its own archive counts once, as the
// archive.
inline std::string ExactFamilyText(std::string const& directory, std::string const& prefix) {
  std::map<std::string, std::string> content;
  for (auto const& name : ExactFamily(directory, prefix)) {
    std::string const path = directory + "/" + name;
    bool const packed = name.back() == 'z';
    std::string const plain_name = packed ? name.substr(0, name.size() - 3) : name;
    if (packed) content[plain_name] = ReadGzip(path);
    if (!packed) content.emplace(plain_name, ReadFile(path));
  }
  std::string text;
  for (auto const& file : content) text += file.second;
  return text;
}

// Where the body of a record begins in its line, behind "MM-DD hh:mm:ss.uuuuuu.T<thread>"; npos for other
// lines.
inline std::size_t BodyStart(std::string const& line) {
  static std::string const shape = "dd-dd dd:dd:dd.dddddd.Td";
  if (line.size() <= shape.size()) return std::string::npos;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    bool const digit = std::isdigit(static_cast<unsigned char>(line[i])) != 0;
    if (shape[i] == 'd' ? !digit : line[i] != shape[i]) return std::string::npos;
  }
  return line.find_first_not_of("0123456789", shape.size() - 1);
}

// The bodies of the records of a log or of standard output, in order: " net I: text".
inline std::vector<std::string> Bodies(std::string const& text) {
  std::vector<std::string> bodies;
  for (auto const& line : Lines(text)) {
    std::size_t const start = BodyStart(line);
    if (start != std::string::npos) bodies.push_back(line.substr(start));
  }
  return bodies;
}

inline bool Contains(std::vector<std::string> const& list, std::string const& entry) {
  return std::find(list.begin(), list.end(), entry) != list.end();
}

// Runs `body(0)` to `body(count - 1)`, each in a thread of its own, and waits for all of them.
template <typename Body>
void InThreads(int count, Body const& body) {
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) threads.emplace_back(body, i);
  for (auto& thread : threads) thread.join();
}

// Threads and open descriptors of this process.
inline std::size_t ThreadCount() { return ListDir("/proc/self/task").size(); }
inline std::size_t DescriptorCount() { return ListDir("/proc/self/fd").size(); }

// Owns the environment of the manager for one test: no installation root, a default log directory of its own,
// a configuration file and a log directory for Init. Destroys the manager before the directory goes.
class ManagerHost {
 public:
  explicit ManagerHost(std::string const& configuration = {}) {
    unsetenv("APP_ROOT");
    unsetenv("COMMON_LIB_PATH");
    setenv("_APP_LOG_DIR", dir_.Path().c_str(), 1);
    WriteFile(ConfigFile(), configuration);
  }
  ~ManagerHost() { VeltDebugMgr::Destroy(); }
  ManagerHost(ManagerHost const&) = delete;
  ManagerHost& operator=(ManagerHost const&) = delete;

  ScratchDir const& Dir() const { return dir_; }
  std::string ConfigFile() const { return dir_ / "host.cfg"; }
  std::string LogDir() const { return dir_ / "log"; }

  bool Init(std::string const& name = "host_", bool silent = false) const {
    return VeltDebugMgr::Instance()->Init(name, ConfigFile(), LogDir(), "host header\n", true, silent);
  }

  std::string Text(std::string const& prefix = "host_") const { return ExactFamilyText(LogDir(), prefix); }
  std::vector<std::string> Records(std::string const& prefix = "host_") const { return Bodies(Text(prefix)); }

  // Stops the manager, so that everything accepted is in the files, and gives the records of one family.
  std::vector<std::string> StopAndRead(std::string const& prefix = "host_") const {
    VeltDebugMgr::Destroy();
    return Records(prefix);
  }

  // Waits until the family's file is open. A test that then waits for the next second gets another file name.
  bool WaitForFile(std::string const& prefix = "host_") const {
    return WaitUntil([&] { return Text(prefix).find("Thread handle output string") != std::string::npos; });
  }

 private:
  ScratchDir dir_;
};

}  // namespace velt::test

#endif
