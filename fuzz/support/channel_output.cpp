#include "fuzz/support/channel_output.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cctype>
#include <iostream>
#include <sstream>

#include "fuzz/support/check.h"

namespace velt::fuzz {
namespace {

constexpr char const* kStamp = "0000-00-00 00:00:00.000000";

std::ostringstream& Captured() {
  static std::ostringstream stream;
  return stream;
}

void ExpectStampedLine(OutputText& text, std::string const& rest) {
  text.ExpectShape(kStamp);
  text.Expect(rest);
}

void CheckHead(OutputText& text, std::string const& header) {
  text.Expect(
      "\xEF\xBB\xBF"
      "File create at time ");
  text.ExpectShape("0000-00-00 00:00:00");
  text.Expect(". Current ospid is " + std::to_string(getpid()) + "\n" + header +
              "This is the first log file\n");
  text.Expect("Thread handle output string is 0x");
  text.ExpectRest("0123456789abcdef");
}

void CheckTail(OutputText& text, ModelChannel const& channel) {
  text.Expect("thread handle output string exit\n");
  ExpectStampedLine(text, " about to clear m_DiscardQueue(" + std::to_string(channel.ring.size()) + ")\n");
  text.ExpectShape(kStamp);
  // The line says 1 when the thread ended before the stop marker was queued: the marker is then left in the
  // queue.
  if (!text.Skip(" about to clear m_OutputQueue(1)\n")) text.Expect(" about to clear m_OutputQueue(0)\n");
  ExpectStampedLine(text, " after m_OutputQueue cleared\n");
  text.Expect("File close at ");
  text.ExpectRest("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-: ");
  text.ExpectEnd();
}

}  // namespace

bool OutputText::Skip(std::string_view literal) {
  if (!StartsWith(literal)) return false;
  rest_.remove_prefix(literal.size());
  return true;
}

void OutputText::Expect(std::string_view literal) {
  if (!Skip(literal)) {
    Fail("output is " + Shown(rest_.substr(0, literal.size() + 80)) + ", should go on with " +
         Shown(literal));
  }
}

std::string_view OutputText::ExpectShape(std::string_view shape) {
  std::string_view const piece = rest_.substr(0, shape.size());
  bool fits = piece.size() == shape.size();
  for (std::size_t at = 0; fits && at < shape.size(); ++at) {
    bool const is_digit = std::isdigit(static_cast<unsigned char>(piece[at])) != 0;
    fits = shape[at] == '0' ? is_digit : piece[at] == shape[at];
  }
  if (!fits) Fail("output is " + Shown(rest_.substr(0, 120)) + ", should look like " + Shown(shape));
  rest_.remove_prefix(piece.size());
  return piece;
}

void OutputText::ExpectRest(std::string_view set) {
  std::size_t const length = rest_.find_first_not_of(set);
  bool const whole = length != std::string_view::npos && length > 0 && rest_[length] == '\n';
  if (!whole) Fail("output is " + Shown(rest_.substr(0, 120)) + ", should be a line of " + Shown(set));
  rest_.remove_prefix(length + 1);
}

void OutputText::ExpectEnd() const {
  if (!rest_.empty()) Fail("output goes on with " + Shown(rest_.substr(0, 200)));
}

std::string OutputText::ExpectLineHead() {
  std::string day(ExpectShape("00-00 00:00:00.000000").substr(0, 5));
  Expect(".T" + std::to_string(syscall(SYS_gettid)));
  return day;
}

CapturedOutput::CapturedOutput() { std::cout.rdbuf(Captured().rdbuf()); }

std::string CapturedOutput::Take() {
  std::string text = Captured().str();
  Captured().str("");
  return text;
}

void CheckFile(std::string const& text, std::string const& header, ModelChannel const& channel,
               OutputText* printed) {
  static std::string last_day;  // of the record that this process dealt with last
  OutputText file(text);
  CheckHead(file, header);
  for (ModelRecord const& record : channel.outputs) {
    std::string day;
    if (record.log) {
      bool const has_day_line = file.Skip("Current date&time:");
      std::string const announced = has_day_line ? std::string(file.ExpectShape(kStamp).substr(5, 5)) : "";
      if (has_day_line) file.Expect("\n");
      day = file.ExpectLineHead();
      file.Expect(record.text);
      if (has_day_line) CheckEqual(announced, day, "day of a day line");
      bool const due = last_day.empty() || last_day.substr(3) != day.substr(3);
      if (printed != nullptr) CheckEqual(has_day_line, due, "day line");
    }
    if (record.print && printed != nullptr) {
      std::string const printed_day = printed->ExpectLineHead();
      printed->Expect(record.text);
      if (record.log) CheckEqual(printed_day, day, "day of a record that is printed and logged");
      day = printed_day;
    }
    last_day = day.empty() ? last_day : day;
  }
  CheckTail(file, channel);
}

void CheckPrinted(std::string const& text, std::vector<ModelChannel const*> const& channels) {
  OutputText printed(text);
  std::vector<std::size_t> next(channels.size(), 0);
  auto const skip_unprinted = [&](std::size_t i) {
    while (next[i] < channels[i]->outputs.size() && !channels[i]->outputs[next[i]].print) ++next[i];
    return next[i] < channels[i]->outputs.size();
  };
  while (!printed.AtEnd()) {
    printed.ExpectLineHead();
    bool found = false;
    for (std::size_t i = 0; i < channels.size() && !found; ++i) {
      found = skip_unprinted(i) && printed.Skip(channels[i]->outputs[next[i]].text);
      if (found) ++next[i];
    }
    Check(found, "a printed record is no channel's next");
  }
  for (std::size_t i = 0; i < channels.size(); ++i) Check(!skip_unprinted(i), "a record was not printed");
}

}  // namespace velt::fuzz
