// Writes one JSON value, with a line for each member of the outer two levels.
#ifndef VELT_TOOLS_VELTCFG_JSON_WRITER_H
#define VELT_TOOLS_VELTCFG_JSON_WRITER_H

#include <string>
#include <vector>

#include "tools/veltcfg/bytes.h"

namespace velt::tools::cfg {

// The caller keeps Begin and End in pairs, and calls Key before each value of an object.
class JsonWriter {
 public:
  void BeginObject() { Begin('{'); }
  void EndObject() { End('}'); }
  void BeginArray() { Begin('['); }
  void EndArray() { End(']'); }

  void Key(char const* name) {
    Separate();
    text_ += JsonString(name) + ": ";
    after_key_ = true;
  }
  void String(std::string const& value) { Value(JsonString(value)); }
  void Number(long long value) { Value(std::to_string(value)); }
  void Bool(bool value) { Value(value ? "true" : "false"); }
  void Null() { Value("null"); }

  std::string const& Text() const { return text_; }

 private:
  void Begin(char bracket) {
    Value(std::string(1, bracket));
    is_first_.push_back(true);
  }
  void End(char bracket) {
    bool const empty = is_first_.back();
    is_first_.pop_back();
    if (!empty) BreakLine();
    text_ += bracket;
  }
  void Value(std::string const& text) {
    if (!after_key_) Separate();
    after_key_ = false;
    text_ += text;
  }
  void Separate() {
    if (is_first_.empty()) return;
    if (!is_first_.back()) text_ += ',';
    if (!is_first_.back() && is_first_.size() > kLineDepth) text_ += ' ';
    is_first_.back() = false;
    BreakLine();
  }
  void BreakLine() {
    if (is_first_.size() <= kLineDepth) text_ += '\n' + std::string(2 * is_first_.size(), ' ');
  }

  static constexpr std::size_t kLineDepth = 2;

  std::string text_;
  std::vector<bool> is_first_;  // of each value that is open: nothing stands in it yet
  bool after_key_ = false;
};

}  // namespace velt::tools::cfg

#endif
