// Severities, heads and escapes of syslog datagrams.
#include "syslog_message.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace velt::examples {
namespace {

struct LevelSeverity {
  int level;
  int severity;
  char const* tag;
};

constexpr std::array<LevelSeverity, 4> kSeverities{{
    {0, 1, "A: "},  // alert; without an engine it also writes the ring
    {1, 3, "E: "},  // error
    {2, 4, "W: "},  // warning
    {3, 6, "I: "},  // informational
}};
constexpr int kOtherSeverity = 7;  // debug: levels without a tag

constexpr std::size_t kLongestName = 32;     // of the tag in RFC 3164; less than the 48 of RFC 5424
constexpr std::size_t kLongestModule = 256;  // leaves room for text in the smallest datagram

LevelSeverity const* Find(int level) {
  auto const* const found = std::find_if(kSeverities.begin(), kSeverities.end(),
                                         [level](auto const& entry) { return entry.level == level; });
  return found == kSeverities.end() ? nullptr : found;
}

char const* TagOf(int level) {
  auto const* const found = Find(level);
  return found == nullptr ? "" : found->tag;
}

std::string ProgramName(std::string name) {
  for (char& c : name) {
    if (c <= ' ' || c == '\x7f' || c == ':' || c == '[' || c == ']' || c == '/') c = '_';
  }
  name.resize(std::min(name.size(), kLongestName));
  return name.empty() ? "-" : name;
}

// English in every locale.
constexpr std::array<char const*, 12> kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string LocalStamp(std::timespec const& time) {
  std::tm local{};
  localtime_r(&time.tv_sec, &local);
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%s %2d %02d:%02d:%02d",
                      kMonths.at(static_cast<std::size_t>(local.tm_mon)), local.tm_mday, local.tm_hour,
                      local.tm_min, local.tm_sec);
  return text.data();
}

std::string UtcStamp(std::timespec const& time) {
  std::tm utc{};
  gmtime_r(&time.tv_sec, &utc);
  std::array<char, 96> text{};
  (void)std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%06ldZ", utc.tm_year + 1900,
                      utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, time.tv_nsec / 1000);
  return text.data();
}

void AppendEscaped(std::string& out, std::string const& text) {
  for (char const c : text) {
    auto const byte = static_cast<unsigned char>(c);
    if ((byte >= 0x20 && byte != 0x7f) || c == '\t') {
      out += c;
      continue;
    }
    std::array<char, 8> octal{};
    (void)std::snprintf(octal.data(), octal.size(), "#%03o", byte);
    out += octal.data();
  }
}

// Shortens `text` to at most `most` bytes without dividing a UTF-8 sequence.
void CutTo(std::string& text, std::size_t most) {
  if (text.size() <= most) return;
  auto const continues = [&](std::size_t at) {
    return (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
  };
  std::size_t end = most;
  while (end > 0 && most - end < 3 && continues(end)) --end;
  text.resize(end);
}

}  // namespace

int SeverityOf(int level) {
  auto const* const found = Find(level);
  return found == nullptr ? kOtherSeverity : found->severity;
}

SyslogFormatter::SyslogFormatter(SyslogFormat format, std::string ident, int facility, std::size_t most_bytes)
    : format_(format),
      ident_(std::move(ident)),
      facility_(std::clamp(facility, 0, 23)),
      most_bytes_(std::max(most_bytes, kFewestBytes)),
      pid_(getpid()) {}

std::string SyslogFormatter::Head(SyslogRecord const& record) const {
  // A sub-name has its own family of log files; here it has its own program name.
  std::string const program = ProgramName(record.sub_name.empty() ? ident_ : ident_ + '_' + record.sub_name);
  std::string head = '<' + std::to_string(facility_ * 8 + SeverityOf(record.level)) + '>';
  if (format_ == SyslogFormat::kRfc5424) {
    return head + "1 " + UtcStamp(record.time) + " - " + program + ' ' + std::to_string(pid_) + " - - ";
  }
  return head + LocalStamp(record.time) + ' ' + program + '[' + std::to_string(pid_) + "]: ";
}

std::string SyslogFormatter::Format(SyslogRecord const& record) const {
  std::string datagram = Head(record) + 'T' + std::to_string(record.thread) + ' ';
  std::string module;
  AppendEscaped(module, record.module);
  CutTo(module, kLongestModule);
  datagram += module + ' ' + TagOf(record.level);

  std::string text = record.text;
  if (!record.cut && !text.empty() && text.back() == '\n') text.pop_back();
  AppendEscaped(datagram, text);
  if (record.cut || datagram.size() > most_bytes_) {
    CutTo(datagram, most_bytes_ - 3);
    datagram += "...";
  }
  return datagram;
}

}  // namespace velt::examples
