// What the tests of the output thread share. Where no thread has to wait, the test itself does the thread's
// work on a channel that has none.
#ifndef VELT_TESTS_SUPPORT_OUTPUT_H
#define VELT_TESTS_SUPPORT_OUTPUT_H

#include <gtest/gtest.h>

#include <cstddef>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace velt::test {

inline constexpr std::size_t kLongestWrite = 2'097'152;
inline constexpr std::size_t kLineHeadLength = 27;  // of kLineHead

// Replaces the buffer behind std::cout, keeps the text and counts flushes.
class CoutToText : public std::streambuf {
 public:
  CoutToText() : before_(std::cout.rdbuf(this)) {}
  ~CoutToText() override { std::cout.rdbuf(before_); }  // also makes the stream good again
  CoutToText(CoutToText const&) = delete;
  CoutToText& operator=(CoutToText const&) = delete;

  std::string const& Text() const { return text_; }
  int Flushes() const { return flushes_; }

 protected:
  int_type overflow(int_type c) override {
    if (c != traits_type::eof()) text_ += static_cast<char>(c);
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(char const* s, std::streamsize n) override {
    text_.append(s, static_cast<std::size_t>(n));
    return n;
  }
  int sync() override {
    ++flushes_;
    return 0;
  }

 private:
  std::streambuf* before_;
  std::string text_;
  int flushes_ = 0;
};

// Prints `head`, then throws.
class AsnThatBreaks : public AsnType {
 public:
  explicit AsnThatBreaks(std::string head) : head_(std::move(head)) {}
  AsnType* Clone() const override { return new AsnThatBreaks(head_); }
  void Print(std::ostream& out, int, int) const override {
    out << head_;
    throw std::runtime_error("cannot print the rest");
  }

 private:
  std::string head_;
};

// Prints the two numbers that it is called with.
class AsnOfArguments : public AsnType {
 public:
  AsnType* Clone() const override { return new AsnOfArguments; }
  void Print(std::ostream& out, int first, int second) const override { out << first << " and " << second; }
};

inline OutDataUnit* WithAsn(OutDataUnit* rec, AsnType* value) {
  rec->m_pAsn = value;
  return rec;
}

inline OutDataUnit* WithStamp(OutDataUnit* rec, std::string const& stamp) {
  delete[] rec->m_pTimeStamp;
  rec->m_pTimeStamp = NewText(stamp);
  return rec;
}

inline OutDataUnit* WithoutText(OutDataUnit* rec) {
  delete[] rec->m_pText;
  rec->m_pText = nullptr;
  return rec;
}

inline OutDataUnit* WithoutStamp(OutDataUnit* rec) {
  delete[] rec->m_pTimeStamp;
  rec->m_pTimeStamp = nullptr;
  return rec;
}

class OutputTest : public ::testing::Test {
 protected:
  // A channel with an open file. The process has seen a record of the 15th, so no day line comes before the
  // next.
  VeltDebugInfo& Open() {
    OpenUnprepared();
    SeeDay("2026-11-15 00:00:00.000000");
    return *channel;
  }
  VeltDebugInfo& OpenUnprepared() {
    channel = MakeIdleChannel(setup);
    EXPECT_TRUE(channel->OpenNewFile());
    return *channel;
  }
  void SeeDay(std::string const& stamp) const {
    EXPECT_TRUE(Output(*channel, WithStamp(NewRecord("", 3, false, false), stamp)));
  }

  // What follows the head of the newest log file.
  std::string Body() const {
    auto const logs = FilesOf(setup.directory, setup.prefix, ".log");
    if (logs.empty()) return "no log file";
    std::string const content = ReadFile(setup.directory + "/" + logs.back());
    std::string const head = HeadOf(logs.back(), setup);
    return content.compare(0, head.size(), head) == 0 ? content.substr(head.size()) : "no head: " + content;
  }
  std::vector<std::string> Archives() const { return FilesOf(setup.directory, setup.prefix, ".log.gz"); }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
  std::unique_ptr<VeltDebugInfo> channel;
};

}  // namespace velt::test

#endif
