// Housekeeping over random directories: other files are never touched, and the channel's files become what
// the model says. The directory is in memory (/dev/shm) where there is one.
//
// An input is a line of the operation (p: all of it, r: pruning, z: compression of the first name), digits of
// the prefix and of the archives to keep, and a 1 when the channel has opened a file; then a line for each
// name: a letter of its kind (f file, e empty, b large, d directory, l link, x dead link, s socket, p pipe)
// and the name. "@" in a name is the beginning of the name of the file that the channel has opened.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>

#include "velt/channel.h"

#include "fuzz/model/log_family.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"
#include "fuzz/support/scratch.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace velt::fuzz {
namespace {

constexpr std::array<char const*, 4> kPrefixes = {"abc_", "", "host_gw_", "a.b_"};
constexpr std::size_t kMostNames = 24;
constexpr mode_t kPlainMode = 0644;
constexpr mode_t kArchiveMode = 0440;
constexpr char const* kElsewhereText = "a file elsewhere that links lead to\n";

struct Channel {
  Family family;
  std::unique_ptr<VeltDebugInfo> channel;
};

class Directory {
 public:
  Directory() {
    mkdir(Path("").c_str(), 0755);
    test::WriteFile(Elsewhere(), kElsewhereText);
    chmod(Elsewhere().c_str(), 0600);
  }
  std::string Path(std::string const& name) const { return scratch_.Path() + "/logs/" + name; }

  // Channels without a thread, with or without an open file; each is made once.
  Channel& ChannelOf(std::size_t prefix, std::size_t keep, bool opened) {
    Channel& wanted = channels_[prefix % kPrefixes.size()][keep % kKeeps][opened ? 1 : 0];
    if (wanted.channel != nullptr) return wanted;
    test::ChannelSetup setup(Path(""));
    setup.prefix = wanted.family.prefix = kPrefixes[prefix % kPrefixes.size()];
    setup.keep = static_cast<unsigned>(keep % kKeeps);
    wanted.family.keep = keep % kKeeps;
    wanted.channel = test::MakeIdleChannel(setup);
    if (opened) {
      Check(wanted.channel->OpenNewFile(), "a log file cannot be opened");
      wanted.channel->CloseFile();
      wanted.family.first_file = test::ListDir(Path("")).at(0);
      unlink(Path(wanted.family.first_file).c_str());
    }
    return wanted;
  }

  void Make(Listing& listing) const {
    for (auto& [name, entry] : listing) {
      std::string const path = Path(name);
      bool made = true;
      if (entry.kind == 'f') made = MakeFile(path, entry.content);
      if (entry.kind == 'd') made = mkdir(path.c_str(), 0755) == 0;
      if (entry.kind == 'l') made = symlink(Elsewhere().c_str(), path.c_str()) == 0;
      if (entry.kind == 'x') made = symlink("nowhere/at/all", path.c_str()) == 0;
      if (entry.kind == 's') made = mknod(path.c_str(), S_IFSOCK | kPlainMode, 0) == 0;
      if (entry.kind == 'p') made = mkfifo(path.c_str(), kPlainMode) == 0;
      Check(made, "a name cannot be made");
      entry.identity = StatusOf(name).st_ino;
    }
  }

  void CheckIs(Listing const& expected) const {
    std::size_t present = 0;
    for (std::string const& name : test::ListDir(Path(""))) {
      if (expected.count(name) == 0) Fail("should be gone: " + Shown(name));
      ++present;
    }
    CheckEqual(present, expected.size(), "number of names afterwards");
    for (auto const& [name, entry] : expected) CheckEntry(name, entry);
    CheckEqual(test::ReadFile(Elsewhere()), kElsewhereText, "the file elsewhere");
    CheckEqual(test::ModeOf(Elsewhere()), mode_t{0600}, "mode of the file elsewhere");
  }

  void Clear() const {
    for (std::string const& name : test::ListDir(Path(""))) std::remove(Path(name).c_str());
  }

 private:
  static constexpr std::size_t kKeeps = 4;

  std::string Elsewhere() const { return scratch_.Path() + "/elsewhere"; }

  static bool MakeFile(std::string const& path, std::string const& content) {
    int const file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kPlainMode);
    if (file == -1) return false;
    bool const whole = write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    return fchmod(file, kPlainMode) == 0 && close(file) == 0 && whole;
  }

  struct stat StatusOf(std::string const& name) const {
    struct stat status {};
    Check(lstat(Path(name).c_str(), &status) == 0, "a name that should be there is missing");
    return status;
  }

  void CheckEntry(std::string const& name, Entry const& entry) const {
    struct stat const status = StatusOf(name);
    static std::map<char, mode_t> const kTypes = {{'f', S_IFREG}, {'d', S_IFDIR},  {'l', S_IFLNK},
                                                  {'x', S_IFLNK}, {'s', S_IFSOCK}, {'p', S_IFIFO}};
    CheckEqual(status.st_mode & S_IFMT, kTypes.at(entry.kind), "kind of a file");
    if (entry.identity != 0) CheckEqual(status.st_ino, entry.identity, "identity of a file");
    if (entry.kind != 'f') return;
    CheckEqual(status.st_mode & 07777U, entry.packed ? kArchiveMode : kPlainMode, "mode of a file");
    Check((entry.packed ? test::ReadGzip(Path(name)) : test::ReadFile(Path(name))) == entry.content,
          "content of a file");
    if (entry.packed) CheckEqual(test::ReadFile(Path(name)).substr(0, 2), "\x1F\x8B", "head of an archive");
  }

  Scratch scratch_;
  std::array<std::array<std::array<Channel, 2>, kKeeps>, kPrefixes.size()> channels_;
};

Entry EntryOf(char letter, std::string const& name) {
  Entry entry;
  entry.kind = Choose(letter, "febdlxsp");
  if (entry.kind == 'l') entry.content = kElsewhereText;
  if (entry.kind == 'f') entry.content = "text of " + name + "\n";
  if (entry.kind == 'b') {  // more than one block of the compression
    for (int line = 0; entry.content.size() < 70'000; ++line)
      entry.content += name + std::to_string(line) + "\n";
  }
  if (entry.kind == 'e' || entry.kind == 'b') entry.kind = 'f';
  return entry;
}

// Returns the first name, which one of the operations uses.
std::string ReadListing(Input& input, Family const& family, Listing& listing) {
  std::string first;
  while (!input.AtEnd() && listing.size() < kMostNames) {
    Input line(input.Line());
    char const letter = line.Character();
    std::string name(line.Rest());
    std::size_t const stem = name.find('@');
    std::string const opened =
        family.first_file.empty() ? family.prefix + "20260101_000000" : family.first_file;
    if (stem != std::string::npos) name.replace(stem, 1, opened.substr(0, family.prefix.size() + 15));
    bool const usable = !name.empty() && name != "." && name != ".." && name.size() <= 255 &&
                        name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
    if (!usable || listing.count(name) != 0) continue;
    if (listing.empty()) first = name;
    listing[name] = EntryOf(letter, name);
  }
  // Removes links and pipes from what is compressed: they would lead out of the directory, or block.
  for (auto at = listing.begin(); at != listing.end();) {
    std::string const& name = at->first;
    bool const is_archive_of_another =
        Family::EndsIn(name, ".gz") && listing.count(name.substr(0, name.size() - 3));
    bool const leads_out = std::string_view("lxp").find(at->second.kind) != std::string_view::npos;
    at = is_archive_of_another && leads_out ? listing.erase(at) : std::next(at);
  }
  return listing.count(first) != 0 ? first : std::string();
}

void CheckTypes(Channel const& channel, Listing const& listing) {
  for (auto const& [name, entry] : listing) {
    CheckEqual(channel.channel->GetFileType(name), channel.family.TypeOf(listing, name), "type of a name");
    for (int type = -1; type < 6; ++type) {
      CheckEqual(channel.channel->CheckFileLength(name, type), channel.family.HasLength(name, type),
                 "length of a name");
    }
    CheckEqual(channel.channel->GetFileType(name + "?"), channel.family.TypeOf(listing, name + "?"),
               "type of a name that is not there");
  }
}

}  // namespace
}  // namespace velt::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace velt::fuzz;
  static Directory directory;
  Input input(data, size);
  Input head(input.Line());
  char const operation = Choose(head.Character(), "prz");
  std::size_t const prefix = head.Byte() - '0';
  std::size_t const keep = head.Byte() - '0';
  Channel const& channel = directory.ChannelOf(prefix, keep, head.Character() == '1');
  Listing listing;
  std::string const first = ReadListing(input, channel.family, listing);
  directory.Make(listing);

  CheckTypes(channel, listing);
  if (operation == 'p') {
    channel.channel->ProcessLogFileBeforeCreateNew();
    channel.family.KeepHouse(listing);
  } else if (operation == 'r') {
    channel.channel->RemoveSpilthFile();
    channel.family.Prune(listing);
  } else if (first.empty() || (listing[first].kind != 'p' && first.size() <= 252)) {
    channel.channel->ZipLogFiles(first);
    if (!first.empty()) channel.family.Pack(listing, first);
  }

  directory.CheckIs(listing);
  directory.Clear();
  return 0;
}
