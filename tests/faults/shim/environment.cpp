// Reads rules from VELT_SHIM, for programs that the shim is preloaded into.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "tests/faults/shim/shim.h"

namespace velt::shim {
namespace {

template <typename Value>
using Name = std::pair<char const*, Value>;

constexpr Name<Call> kCallNames[] = {
    {"create", Call::kCreate},   {"open", Call::kOpen},       {"write", Call::kWrite},
    {"close", Call::kClose},     {"rename", Call::kRename},   {"remove", Call::kRemove},
    {"unlink", Call::kUnlink},   {"mkdir", Call::kMkdir},     {"opendir", Call::kOpendir},
    {"gzwrite", Call::kGzwrite}, {"gzclose", Call::kGzclose}, {"pthread_create", Call::kPthreadCreate},
    {"malloc", Call::kMalloc},   {"new", Call::kNew}};
constexpr Name<Action> kActionNames[] = {{"fail", Action::kFail},
                                         {"short", Action::kShort},
                                         {"delay", Action::kDelay},
                                         {"stop", Action::kStop},
                                         {"stall", Action::kStall}};
constexpr Name<int> kErrorNames[] = {{"ENOSPC", ENOSPC}, {"EIO", EIO},       {"EDQUOT", EDQUOT},
                                     {"EINTR", EINTR},   {"EMFILE", EMFILE}, {"EPERM", EPERM},
                                     {"EACCES", EACCES}, {"ENOMEM", ENOMEM}, {"EAGAIN", EAGAIN},
                                     {"ENOENT", ENOENT}, {"EROFS", EROFS}};

// A rule that is not understood would make a scenario pass without testing anything.
[[noreturn]] void Refuse(std::string const& word) {
  std::fprintf(stderr, "VELT_SHIM: cannot use '%s'\n", word.c_str());
  std::abort();
}

template <typename Value, std::size_t count>
Value Find(Name<Value> const (&names)[count], std::string const& name) {
  for (auto const& entry : names)
    if (name == entry.first) return entry.second;
  Refuse(name);
}

void Apply(Rule& rule, std::string const& word, std::string& path) {
  std::size_t const equal = word.find('=');
  if (equal == std::string::npos) Refuse(word);
  std::string const key = word.substr(0, equal);
  std::string const value = word.substr(equal + 1);
  if (key == "first") {
    rule.first = static_cast<unsigned>(std::stoul(value));
  } else if (key == "count") {
    rule.count = static_cast<unsigned>(std::stoul(value));
  } else if (key == "ms") {
    rule.delay_ms = static_cast<unsigned>(std::stoul(value));
  } else if (key == "errno") {
    rule.error = Find(kErrorNames, value);
  } else if (key == "action") {
    rule.action = Find(kActionNames, value);
  } else if (key == "path") {
    path = value;
  } else {
    Refuse(word);
  }
}

// Removes the beginning of `text`, up to the next `mark`, and returns it.
std::string Take(std::string& text, char mark) {
  std::size_t const end = text.find(mark);
  std::string part = text.substr(0, end);
  text.erase(0, end == std::string::npos ? end : end + 1);
  return part;
}

}  // namespace

void ReadEnvironment() {
  char const* const value = std::getenv("VELT_SHIM");
  std::string rules = value == nullptr ? "" : value;
  while (!rules.empty()) {
    std::string words = Take(rules, ';');
    Rule rule;
    std::string path;
    rule.call = Find(kCallNames, Take(words, ','));
    while (!words.empty()) Apply(rule, Take(words, ','), path);
    rule.path = path.c_str();
    AddRule(rule);
  }
}

namespace {
// Before main, for a program that was started with the variable.
[[maybe_unused]] bool const environment_read = (ReadEnvironment(), true);
}  // namespace

}  // namespace velt::shim
