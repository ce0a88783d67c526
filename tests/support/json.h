// JSON read back strictly, as any reader of it would.
#ifndef VELT_TESTS_SUPPORT_JSON_H
#define VELT_TESTS_SUPPORT_JSON_H

#include <cctype>
#include <cstddef>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace velt::test {

// A value of JSON. Numbers and the three words are kept as their text. Asking for what is not there throws.
struct Json {
  enum class Kind { kObject, kArray, kString, kNumber, kWord };

  Kind kind = Kind::kWord;
  std::string text;  // of a string, unescaped to UTF-8; of a number or word, as it stands
  std::vector<Json> list;
  std::map<std::string, Json> members;

  Json const& operator[](std::string const& name) const { return members.at(name); }
  bool IsNull() const { return kind == Kind::kWord && text == "null"; }
};

// Reads one value and nothing behind it but blanks. Throws std::runtime_error for anything that is no JSON, a
// name that stands twice in an object and a control character in a string included.
class JsonReader {
 public:
  static Json Read(std::string_view text) {
    JsonReader reader(text);
    Json value = reader.Value();
    reader.Blanks();
    if (reader.at_ != text.size()) reader.Fail("something behind the value");
    return value;
  }

 private:
  explicit JsonReader(std::string_view text) : text_(text) {}

  [[noreturn]] void Fail(std::string const& what) const {
    throw std::runtime_error(what + " at byte " + std::to_string(at_));
  }
  char Peek() const {
    if (at_ >= text_.size()) Fail("the text ends");
    return text_[at_];
  }
  void Blanks() {
    while (at_ < text_.size() && std::string_view(" \t\r\n").find(text_[at_]) != std::string_view::npos)
      ++at_;
  }
  void Take(char expected) {
    if (Peek() != expected) Fail(std::string("not a ") + expected);
    ++at_;
  }
  bool TakeIf(char wanted) {
    Blanks();
    if (Peek() != wanted) return false;
    ++at_;
    return true;
  }

  Json Value() {
    Blanks();
    Json value;
    if (Peek() == '{') return Object();
    if (Peek() == '[') return Array();
    if (Peek() == '"') {
      value.kind = Json::Kind::kString;
      value.text = String();
      return value;
    }
    bool const number = Peek() == '-' || std::isdigit(static_cast<unsigned char>(Peek())) != 0;
    value.kind = number ? Json::Kind::kNumber : Json::Kind::kWord;
    value.text = number ? Number() : Word();
    return value;
  }

  Json Object() {
    Json value;
    value.kind = Json::Kind::kObject;
    Take('{');
    if (TakeIf('}')) return value;
    do {
      Blanks();
      std::string const name = String();
      Blanks();
      Take(':');
      if (!value.members.emplace(name, Value()).second) Fail("a second " + name);
    } while (TakeIf(','));
    Take('}');
    return value;
  }

  Json Array() {
    Json value;
    value.kind = Json::Kind::kArray;
    Take('[');
    if (TakeIf(']')) return value;
    do value.list.push_back(Value());
    while (TakeIf(','));
    Take(']');
    return value;
  }

  std::string String() {
    std::string text;
    for (Take('"'); Peek() != '"'; ++at_) {
      if (static_cast<unsigned char>(Peek()) < 0x20) Fail("a control character");
      if (Peek() != '\\') {
        text += Peek();
        continue;
      }
      ++at_;
      text += Escaped();
    }
    ++at_;
    return text;
  }

  // Leaves the position on the last character of the escape. Of \u only what is below U+10000 comes up here.
  std::string Escaped() {
    std::string const from = "\"\\/bfnrt";
    std::size_t const simple = from.find(Peek());
    if (simple != std::string::npos) return std::string(1, "\"\\/\b\f\n\r\t"[simple]);
    if (Peek() != 'u') Fail("an unknown escape");
    unsigned code = 0;
    for (int digit = 0; digit < 4; ++digit) {
      ++at_;
      if (std::isxdigit(static_cast<unsigned char>(Peek())) == 0) Fail("no hexadecimal digit");
      code = code * 16 + static_cast<unsigned>(std::stoi(std::string(1, Peek()), nullptr, 16));
    }
    auto const byte = [](unsigned value) { return static_cast<char>(value); };
    if (code < 0x80) return {byte(code)};
    if (code < 0x800) return {byte(0xC0U | code >> 6U), byte(0x80U | (code & 0x3FU))};
    return {byte(0xE0U | code >> 12U), byte(0x80U | (code >> 6U & 0x3FU)), byte(0x80U | (code & 0x3FU))};
  }

  // Whole numbers only: no other is written here.
  std::string Number() {
    std::size_t const begin = at_;
    if (Peek() == '-') ++at_;
    std::size_t const digits = at_;
    while (at_ < text_.size() && std::isdigit(static_cast<unsigned char>(text_[at_])) != 0) ++at_;
    bool const leading_zero = at_ - digits > 1 && text_[digits] == '0';
    if (at_ == digits || leading_zero) Fail("no number");
    return std::string(text_.substr(begin, at_ - begin));
  }

  std::string Word() {
    for (char const* const word : {"true", "false", "null"}) {
      if (text_.compare(at_, std::string_view(word).size(), word) != 0) continue;
      at_ += std::string_view(word).size();
      return word;
    }
    Fail("no value");
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace velt::test

#endif
