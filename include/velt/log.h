// A thin layer over VeltDebugMgr: named levels, formats in the style of {fmt}, a module as an object.
//
//   velt::Module const net("net");
//   net.Register(velt::UpTo(velt::kInfo), velt::kToFile);  // once, after Init
//   net.Error("link to {} lost after {} s", peer, seconds);
//   VELT_INFO(net, "{} connections", Count());             // Count() is called only if the record is wanted
//
// It needs {fmt} 9 or later; `veltbaseutil::log` (CMake) and `veltbaseutil-log` (pkg-config) add it. All of
// it is in this header and calls VeltDebugMgr; nothing of it is in the shared library.
#ifndef VELT_LOG_H
#define VELT_LOG_H

#include <bitset>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

#include "velt/manager.h"

namespace velt {

// The levels that have a tag of their own in the log.
inline constexpr VeltLogLevel kAlert{0};    // "A: "; also writes the filtered records that the ring kept
inline constexpr VeltLogLevel kError{1};    // "E: "
inline constexpr VeltLogLevel kWarning{2};  // "W: "
inline constexpr VeltLogLevel kInfo{3};     // "I: "

inline constexpr unsigned kToStandardOutput = 1;  // the output set of standard output
inline constexpr unsigned kToFile = 2;            // of the log file; both: kToStandardOutput | kToFile

// The set of the levels 0 to `level`: none for a negative one, all 32 from 31 on.
constexpr std::bitset<32> UpTo(VeltLogLevel level) {
  if (level < 0) return {};
  return level >= 31 ? 0xFFFF'FFFFULL : (2ULL << static_cast<unsigned>(level)) - 1;
}

namespace detail {
class Line;
}  // namespace detail

// A module's name, and the calls that trace under it.
//
// Use:     make one object for each source file or class; a copy costs a reference count. All objects of one
//          name mean the same module of the manager. Making an object registers nothing.
// Threads: every operation from any thread, once the object is made.
// Errors:  Log, Alert, Error, Warning, Info and the macros never throw; false means that nothing was traced.
//          The manager counts such a record as refused, unless it went to an engine.
class Module {
 public:
  // Traces go to the main log family. An empty name has the sets of "debug".
  explicit Module(std::string name) : Module(std::move(name), std::string()) {}

  // Traces go to the family <name of the manager><subName>_, as with VeltDebugMgr::AppTrace. An empty
  // `subName` means the main family.
  Module(std::string name, std::string subName)
      : m_pNames(std::make_shared<Names const>(Names{std::move(name), std::move(subName)})) {}

  // A copy shares the names. There is no move, since it would leave an object without names.
  Module(Module const&) = default;
  // The same.
  Module& operator=(Module const&) = default;
  ~Module() = default;

  // Registers the module with these sets, as VeltDebugMgr::RegSubModuleInfo does, also when the configuration
  // has others for it. For example: Register(UpTo(kWarning), kToFile).
  //
  // Returns false before Init, for an empty name, and in a forked child. May throw std::bad_alloc.
  bool Register(std::bitset<32> levels, std::bitset<32> outputs) const {
    VeltDebugMgr* const manager = VeltDebugMgr::Instance();
    return manager != nullptr && manager->RegSubModuleInfo(m_pNames->module, levels, outputs, false);
  }

  // Expands `format` as fmt::format does and traces the text with neither flag, by VeltDebugMgr::Trace or,
  // with a sub-name, AppTrace; the text is cut at 2048 characters. Returns what that call returns; false when
  // the expansion, an engine or a level outside 0 to 31 throws. A wrong format does not compile in C++20; in
  // C++17 the macros below and FMT_STRING("...") are checked in the same way. Cost: no allocation for a text
  // of up to 2048 characters; may wait as Trace does.
  template <typename... Args>
  bool Log(VeltLogLevel level, fmt::format_string<Args...> format, Args&&... args) const noexcept;

  // Log at level kAlert.
  template <typename... Args>
  bool Alert(fmt::format_string<Args...> format, Args&&... args) const noexcept {
    return Log(kAlert, format, std::forward<Args>(args)...);
  }
  // Log at level kError.
  template <typename... Args>
  bool Error(fmt::format_string<Args...> format, Args&&... args) const noexcept {
    return Log(kError, format, std::forward<Args>(args)...);
  }
  // Log at level kWarning.
  template <typename... Args>
  bool Warning(fmt::format_string<Args...> format, Args&&... args) const noexcept {
    return Log(kWarning, format, std::forward<Args>(args)...);
  }
  // Log at level kInfo.
  template <typename... Args>
  bool Info(fmt::format_string<Args...> format, Args&&... args) const noexcept {
    return Log(kInfo, format, std::forward<Args>(args)...);
  }

  // Whether an engine, an output or a ring would take a record of this level: VeltDebugMgr::IsWanted.
  bool Wanted(VeltLogLevel level) const;

 private:
  friend class detail::Line;

  struct Names {
    std::string module;
    std::string sub;
  };

  std::shared_ptr<Names const> m_pNames;  // shared by the copies; never null, never changed
};

namespace detail {

constexpr std::size_t kLongestText = 2048;  // a trace call cuts longer texts

// The last name of a path; empty when that ends in '/'.
constexpr char const* BaseName(char const* path) {
  char const* name = path;
  for (char const* at = path; *at != '\0'; ++at) {
    if (*at == '/') name = at + 1;
  }
  return name;
}

// A place in the source as text: " (file.cpp:12)".
template <std::size_t kCapacity>
struct Place {
  char text[kCapacity]{};  // no NUL at its end
  std::size_t size = 0;    // of the text
};

// The text of `line` in `path`, made at compile time.
template <std::size_t kPathSize>
constexpr auto MakePlace(char const (&path)[kPathSize], int line) {
  constexpr std::size_t kDigits = 10;
  Place<kPathSize + kDigits + 4> place;
  place.text[place.size++] = ' ';
  place.text[place.size++] = '(';
  for (char const* at = BaseName(path); *at != '\0'; ++at) place.text[place.size++] = *at;
  place.text[place.size++] = ':';
  int unit = 1;
  while (line / unit >= 10) unit *= 10;
  for (; unit > 0; unit /= 10) place.text[place.size++] = static_cast<char>('0' + line / unit % 10);
  place.text[place.size++] = ')';
  return place;
}

// Whether Line can expand {} for this type without {fmt}'s general formatter: integers, characters, strings.
template <typename T>
inline constexpr bool kIsText =
    std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view> ||
    std::is_same_v<T, fmt::string_view> || std::is_same_v<T, char const*> || std::is_same_v<T, char*>;
template <typename T>
inline constexpr bool kIsNumber =
    std::is_same_v<T, short> || std::is_same_v<T, unsigned short> || std::is_same_v<T, int> ||
    std::is_same_v<T, unsigned> || std::is_same_v<T, long> || std::is_same_v<T, unsigned long> ||
    std::is_same_v<T, long long> || std::is_same_v<T, unsigned long long>;
template <typename T>
inline constexpr bool kIsPlain = kIsText<T> || kIsNumber<T> || std::is_same_v<T, char>;

// The text of one record. Expand throws what an argument's formatter throws, Trace what an engine throws.
class Line {
 public:
  // `module` must outlive the object.
  Line(Module const& module, VeltLogLevel level)
      : m_names(*module.m_pNames), m_level(level), m_pManager(VeltDebugMgr::Instance()) {}

  // Whether there is a manager to trace with.
  bool Ready() const { return m_pManager != nullptr; }

  // Expands as fmt::format does.
  template <typename... Args>
  void Expand(fmt::string_view format, Args&... args) {
    if constexpr ((kIsPlain<std::decay_t<Args>> && ...)) {
      Cursor cursor{format.data(), format.data() + format.size(), m_text.data(),
                    m_text.data() + kLongestText};
      if ((ExpandNext(cursor, args) && ...) && CopyLiteral(cursor) && cursor.at == cursor.end) {
        m_text.resize(static_cast<std::size_t>(cursor.out - m_text.data()));
        return;
      }
    }
    fmt::vformat_to(fmt::appender(m_text), format, fmt::make_format_args(args...));
  }

  // Appends the place to the text. If both do not fit, the text is cut, not the place.
  void Append(fmt::string_view place) {
    std::size_t const room = place.size() < kLongestText ? kLongestText - place.size() : 0;
    if (m_text.size() > room) m_text.resize(room);
    void const* const nul = std::memchr(m_text.data(), '\0', m_text.size());  // a NUL ends the text
    if (nul != nullptr)
      m_text.resize(static_cast<std::size_t>(static_cast<char const*>(nul) - m_text.data()));
    m_text.append(place.data(), place.data() + place.size());
  }

  // Passes the text to the manager. Returns what the trace call returns.
  bool Trace() {
    m_text.push_back('\0');
    if (m_names.sub.empty())
      return m_pManager->Trace(m_names.module, m_level, m_text.data(), nullptr, false, false);
    return m_pManager->AppTrace(m_names.module, m_level, m_text.data(), nullptr, false, false, m_names.sub);
  }

  // Counts the record as refused with the main channel: it has no text, since Expand has thrown. An engine
  // would get that call and is left out. Returns false.
  bool GiveUp() const noexcept {
    try {
      return m_pManager->GetDebugEngine() == nullptr &&
             m_pManager->Trace(m_names.module, m_level, nullptr, nullptr, false, false);
    } catch (...) {
      return false;
    }
  }

 private:
  // Where the expansion of a plain format reads and writes; `limit` is the end of the buffer's inline part.
  struct Cursor {
    char const* at;
    char const* end;
    char* out;
    char* limit;
  };

  // Copies up to the next brace. Returns false when there is no room.
  static bool CopyLiteral(Cursor& cursor) {
    char const* at = cursor.at;
    char const* const end = cursor.end;  // local copies stay in registers: `out` might point at the cursor
    char* out = cursor.out;
    if (end - at > cursor.limit - out) return false;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    constexpr std::uint64_t kOnes = 0x0101'0101'0101'0101U;
    while (end - at >= 8) {
      std::uint64_t word = 0;
      std::memcpy(&word, at, sizeof word);
      std::memcpy(out, &word, sizeof word);  // what is behind a brace is overwritten later
      // Marks the bytes from '{' on, with 5 added they are 128 or more; the lowest mark is always right.
      std::uint64_t const marks = ((word + 5 * kOnes) | word) & (kOnes << 7U);
      int const before = marks == 0 ? 8 : __builtin_ctzll(marks) / 8;
      at += before;
      out += before;
      if (marks == 0) continue;
      if (*at == '{' || *at == '}') break;
      ++at;  // another character, which is copied already
      ++out;
    }
#endif
    while (at != end && *at != '{' && *at != '}') *out++ = *at++;
    cursor.at = at;
    cursor.out = out;
    return true;
  }

  static bool Copy(Cursor& cursor, char const* text, std::size_t size) {
    if (size > static_cast<std::size_t>(cursor.limit - cursor.out)) return false;
    std::memcpy(cursor.out, text, size);
    cursor.out += size;
    return true;
  }

  // Copies what is before the next {}, and then `value`. Returns false when the format has anything but {},
  // the value is a null text, or there is no room; the general formatter then does it all.
  template <typename T>
  static bool ExpandNext(Cursor& cursor, T const& value) {
    if (!CopyLiteral(cursor) || cursor.end - cursor.at < 2 || cursor.at[0] != '{' || cursor.at[1] != '}')
      return false;
    cursor.at += 2;
    using Value = std::decay_t<T const>;
    if constexpr (kIsNumber<Value>) {
      std::to_chars_result const digits = std::to_chars(cursor.out, cursor.limit, +value);
      if (digits.ec != std::errc()) return false;
      cursor.out = digits.ptr;
      return true;
    } else if constexpr (std::is_same_v<Value, char>) {
      return Copy(cursor, &value, 1);
    } else if constexpr (std::is_pointer_v<Value>) {
      char const* const text = value;
      return text != nullptr && Copy(cursor, text, std::strlen(text));
    } else {
      return value.size() == 0 || Copy(cursor, value.data(), value.size());
    }
  }

  Module::Names const& m_names;
  VeltLogLevel m_level;
  VeltDebugMgr* m_pManager;
  fmt::basic_memory_buffer<char, kLongestText + 1> m_text;  // longer texts, which engines get, use the heap
};

// What a macro calls. `text` is the literal of `format` again: in C++17 a macro cannot pass on __VA_ARGS__
// without its first argument.
template <typename... Args>
bool LogAt(Module const& module, VeltLogLevel level, fmt::string_view place,
           fmt::format_string<Args...> format, char const* /*text*/, Args&&... args) noexcept {
  try {
    Line line(module, level);
    if (!line.Ready()) return false;
    try {
      line.Expand(format, args...);
      line.Append(place);
    } catch (...) {
      return line.GiveUp();
    }
    return line.Trace();
  } catch (...) {
    return false;  // of an engine, or counted by the call that threw
  }
}

}  // namespace detail

template <typename... Args>
bool Module::Log(VeltLogLevel level, fmt::format_string<Args...> format, Args&&... args) const noexcept {
  try {
    detail::Line line(*this, level);
    if (!line.Ready()) return false;
    try {
      line.Expand(format, args...);
    } catch (...) {
      return line.GiveUp();
    }
    return line.Trace();
  } catch (...) {
    return false;  // of an engine, or counted by the call that threw
  }
}

inline bool Module::Wanted(VeltLogLevel level) const {
  try {
    VeltDebugMgr* const manager = VeltDebugMgr::Instance();
    return manager != nullptr && manager->IsWanted(m_pNames->module, level);
  } catch (...) {
    return false;  // no memory for the manager
  }
}

}  // namespace velt

// VELT_ALERT(module, format, ...) and the like: Log at that level if the record is wanted (Module::Wanted);
// otherwise the arguments are not evaluated. `module` is a velt::Module and is evaluated once. `format` is a
// literal, checked at compile time in C++17 too. The text ends in the macro's place, " (file.cpp:12)"; if
// both are over 2048 characters, the text before the place is cut. Each macro is a statement. Only the
// evaluation of its arguments may throw.
#define VELT_ALERT(module, ...) VELT_DETAIL_LOG(module, ::velt::kAlert, __VA_ARGS__)
#define VELT_ERROR(module, ...) VELT_DETAIL_LOG(module, ::velt::kError, __VA_ARGS__)
#define VELT_WARNING(module, ...) VELT_DETAIL_LOG(module, ::velt::kWarning, __VA_ARGS__)
#define VELT_INFO(module, ...) VELT_DETAIL_LOG(module, ::velt::kInfo, __VA_ARGS__)

#define VELT_DETAIL_FIRST(first, ...) first
#define VELT_DETAIL_LOG(module, level, ...)                                                    \
  do {                                                                                         \
    ::velt::Module const& velt_detail_module = (module);                                       \
    if (velt_detail_module.Wanted(level)) {                                                    \
      static constexpr auto velt_detail_place = ::velt::detail::MakePlace(__FILE__, __LINE__); \
      (void)::velt::detail::LogAt(velt_detail_module, level,                                   \
                                  {velt_detail_place.text, velt_detail_place.size},            \
                                  FMT_STRING(VELT_DETAIL_FIRST(__VA_ARGS__, 0)), __VA_ARGS__); \
    }                                                                                          \
  } while (false)

#endif
