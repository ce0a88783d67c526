// Messages and formats through a channel, with its file and standard output read back.
//
// An input is a line of the records in the ring and the channel's own flags (1 print, 2 log), one digit each;
// then a line for each call, in which "~" is a newline and "`" 500 of them:
//
//   t<level><flags><module>|<text>   Trace; flags: 1 print, 2 log, 4 with a value
//   f<kind><argument>|<format>       FmtTrace; arguments are d int, l long, s text, e double, all the same
//   a<flags><text>                   ASNTrace
//   n                                calls with nulls
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "velt/channel.h"

#include "fuzz/model/channel.h"
#include "fuzz/model/config_file.h"
#include "fuzz/support/bell.h"
#include "fuzz/support/channel_output.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"
#include "fuzz/support/scratch.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace velt::fuzz {
namespace {

constexpr int kMostCalls = 40;
constexpr std::size_t kFormatRoom = 2047;  // 2046 characters and a NUL
constexpr char const* kHeader = "channel of a fuzz target\n";

std::string Written(std::string_view shorthand) {
  std::string text = Lengthened(shorthand);
  std::replace(text.begin(), text.end(), '~', '\n');
  return text;
}

int LevelOf(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  constexpr std::array<int, 6> kOthers = {32, -1, 31, 99, -2147483647 - 1, 2147483647};
  return kOthers[static_cast<unsigned char>(letter) % kOthers.size()];
}

// A format all of whose conversions take an argument of one kind: flags, width and precision are the input's,
// its other letters behind a '%' become a conversion of that kind. A '%' at the very end is left, and is an
// error. At most eight conversions.
std::string FormatOf(std::string_view text, char kind) {
  std::string_view const letters = kind == 's' ? "s" : kind == 'e' ? "feg" : "duxcioX";
  std::string format;
  for (int conversions = 0; !text.empty();) {
    format += text[0];
    bool const is_percent = text[0] == '%';
    text.remove_prefix(1);
    if (!is_percent || text.empty()) continue;
    bool const is_last = ++conversions > 8;
    auto const take_all_of = [&](std::string_view set) {
      for (; !text.empty() && OneOf(text[0], set); text.remove_prefix(1)) format += text[0];
    };
    if (text[0] == '%' || is_last) {
      format += '%';
    } else {
      take_all_of("-+ #0");
      take_all_of("0123456789");
      if (!text.empty() && text[0] == '.') format += '.', text.remove_prefix(1), take_all_of("0123456789");
      if (kind == 'l') format += 'l';
      char const letter = Choose(text.empty() ? 'd' : text[0], letters);
      format += kind == 'l' && letter == 'c' ? 'd' : letter;  // a long character is a wide one
    }
    if (!text.empty()) text.remove_prefix(1);
  }
  return format;
}

// Whether a width or precision of a format of FormatOf has seven digits or more.
bool IsGiant(std::string_view format) {
  for (std::size_t at = 0; at < format.size(); ++at) {
    if (format[at] != '%') continue;
    if (at + 1 < format.size() && format[at + 1] == '%') {
      ++at;
      continue;
    }
    std::size_t digits = 0;
    for (++at; at < format.size() && OneOf(format[at], "-+ #0"); ++at) {
    }
    for (; at < format.size() && OneOf(format[at], "0123456789."); ++at) {
      digits = format[at] == '.' ? 0 : digits + 1;
      if (digits >= 7) return true;
    }
  }
  return false;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // formats are what is tested
#pragma GCC diagnostic ignored "-Wformat-security"
template <typename Argument>
void CheckFormat(VeltDebugInfo& channel, ModelChannel& model, std::string const& format, Argument a) {
  std::array<char, kFormatRoom> message{};
  char const* const text = format.c_str();
  int const length =
      IsGiant(text) ? -1 : std::snprintf(message.data(), message.size(), text, a, a, a, a, a, a, a, a);
  channel.FmtTrace(text, a, a, a, a, a, a, a, a);
  if (length > 0) model.Trace(" ", 3, message.data(), nullptr, true, true);
}
#pragma GCC diagnostic pop

class Conversation {
 public:
  Conversation(VeltDebugInfo& channel, ModelChannel& model) : channel_(channel), model_(model) {}

  void Call(Input line) {
    char const operation = Choose(line.Character(), "tfan");
    if (operation == 't') Trace(line);
    if (operation == 'f') Format(line);
    if (operation == 'a') PrintValue(line);
    if (operation == 'n') PassNulls();
  }

 private:
  void Trace(Input line) {
    int const level = LevelOf(line.Character());
    unsigned const flags = line.Byte();
    bool const print = (flags & 1U) != 0;
    bool const log = (flags & 2U) != 0;
    std::string const module(line.Until('|'));
    std::string const text = Written(line.Rest());
    std::string const printed_value = "value of " + text;
    Value const value(printed_value);
    bool const with_value = (flags & 4U) != 0;
    bool const traced =
        channel_.Trace(module, VeltLogLevel(level), text.c_str(), with_value ? &value : nullptr, print, log);
    Check(traced, "Trace answers false");
    model_.Trace(module, level, text.c_str(), with_value ? &printed_value : nullptr, print, log);
    bool const filtered = !(print || log || model_.print || model_.log);
    if (level == 0 && !filtered) WaitForOutput();
  }

  void Format(Input line) {
    char const kind = Choose(line.Character(), "dlse");
    std::string const argument = Written(line.Until('|'));
    std::string const format = FormatOf(Written(line.Rest()).c_str(), kind);
    int const number = ModelNumber(argument);
    if (kind == 'd') CheckFormat(channel_, model_, format, number);
    if (kind == 'l') CheckFormat(channel_, model_, format, long{number} * 1'000'003);
    if (kind == 's') CheckFormat(channel_, model_, format, argument.c_str());
    if (kind == 'e') CheckFormat(channel_, model_, format, number / 7.0);
  }

  void PrintValue(Input line) {
    unsigned const flags = line.Byte();
    std::string const text = Written(line.Rest());
    Value const value(text);
    channel_.ASNTrace(&value, (flags & 1U) != 0, (flags & 2U) != 0);
    std::string const printed = "ASN Trace:\n" + text.substr(0, text.find('\0'));
    model_.Trace(" ", 3, printed, nullptr, (flags & 1U) != 0, (flags & 2U) != 0);
  }

  void PassNulls() {
    Check(!channel_.Trace("net", VeltLogLevel(1), nullptr, nullptr, true, true), "a null text is traced");
    channel_.FmtTrace(nullptr);
    channel_.ASNTrace(nullptr, true, true);
  }

  // The ring is written when the output thread comes to a record of level 0. A record that is filtered before
  // that might still get into it.
  void WaitForOutput() {
    Bell bell;
    Check(channel_.Trace("sync", VeltLogLevel(3), "bell", &bell, true, true), "Trace answers false");
    model_.Trace("sync", 3, "bell", &Bell::kSound, true, true);
    bell.Wait();
  }

  VeltDebugInfo& channel_;
  ModelChannel& model_;
};

}  // namespace
}  // namespace velt::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace velt::fuzz;
  static Scratch const scratch;
  static CapturedOutput output;
  Input input(data, size);
  Input head(input.Line());
  ModelChannel model;
  model.ring_size = head.Byte() % 8;
  unsigned const flags = head.Byte();
  velt::test::ChannelSetup setup(scratch.Path());
  setup.header = kHeader;
  setup.ring = static_cast<unsigned>(model.ring_size);
  setup.print = model.print = (flags & 1U) != 0;
  setup.log = model.log = (flags & 2U) != 0;

  std::unique_ptr<VeltDebugInfo> channel = velt::test::MakeChannel(setup);
  Conversation conversation(*channel, model);
  for (int call = 0; call < kMostCalls && !input.AtEnd(); ++call) conversation.Call(Input(input.Line()));
  channel.reset();

  std::vector<std::string> const files = velt::test::ListDir(scratch.Path());
  CheckEqual(files.size(), 1U, "number of files");
  std::string const path = scratch.Path() + "/" + files[0];
  OutputText printed(output.Take());
  CheckFile(velt::test::ReadFile(path), kHeader, model, &printed);
  printed.ExpectEnd();
  std::remove(path.c_str());
  return 0;
}
