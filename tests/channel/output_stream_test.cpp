// What the output thread prints to standard output.
#include <gtest/gtest.h>

#include <iostream>
#include <streambuf>
#include <string>
#include <thread>

#include "tests/support/output.h"

namespace velt::test {
namespace {

using StandardOutputTest = OutputTest;

// Replaces the buffer behind std::cout; a thread that writes to it waits at the gate.
class CoutAtGate : public std::streambuf {
 public:
  explicit CoutAtGate(Gate& gate) : gate_(gate), before_(std::cout.rdbuf(this)) {}
  ~CoutAtGate() override { std::cout.rdbuf(before_); }
  CoutAtGate(CoutAtGate const&) = delete;
  CoutAtGate& operator=(CoutAtGate const&) = delete;

 protected:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(char const* /*s*/, std::streamsize n) override {
    gate_.Pass();
    return n;
  }

 private:
  Gate& gate_;
  std::streambuf* before_;
};

TEST_F(StandardOutputTest, AChildPrintsThoughAThreadOfItsParentWasPrinting) {
  Open();
  Gate gate;
  CoutAtGate const stalled(gate);
  std::thread printing([this] { Output(*channel, NewRecord(" parent", 3, false, true)); });
  gate.WaitForVisitor();

  int const code = InFork([this] {
    CoutToText const out;
    Output(*channel, NewRecord(" child", 3, false, true));
    return out.Text() == "11-15 08:52:13.123456.T4711 child\n" ? 0 : 1;
  });
  gate.Open();
  printing.join();

  EXPECT_EQ(code, 0);
}

TEST_F(StandardOutputTest, ATextWithoutNewlineIsPrintedWithOneAndFlushed) {
  Open();
  CoutToText out;

  Output(*channel, NewRecord(" m I: text", 3, false, true));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 m I: text\n");
  EXPECT_EQ(out.Flushes(), 1);
}

TEST_F(StandardOutputTest, ATextThatEndsInANewlineIsNotFlushed) {
  Open();
  CoutToText out;

  Output(*channel, NewRecord(" m I: text\n", 3, false, true));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 m I: text\n");
  EXPECT_EQ(out.Flushes(), 0);
}

TEST_F(StandardOutputTest, AnEmptyTextPrintsTheHeadWithoutAFlush) {
  Open();
  CoutToText out;

  Output(*channel, NewRecord("", 3, false, true));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711");
  EXPECT_EQ(out.Flushes(), 0);
}

TEST_F(StandardOutputTest, AValueIsPrintedWithANewlineAndFlushed) {
  Open();
  CoutToText out;

  Output(*channel, WithAsn(NewRecord(" text\n", 3, false, true), new AsnText("value")));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 text\nASN Trace:\nvalue\n");
  EXPECT_GE(out.Flushes(), 1);
}

TEST_F(StandardOutputTest, AValueIsNotCutThere) {
  Open();
  CoutToText out;

  Output(*channel, WithAsn(NewRecord(" text", 3, false, true), new AsnText(std::string(3'000'000, 'v'))));

  EXPECT_EQ(out.Text().size(), kLineHeadLength + 6 + 11 + 3'000'000 + 1);
}

TEST_F(StandardOutputTest, ANullTextPutsTheStreamIntoItsBadState) {
  Open();
  CoutToText out;

  bool const done =
      Output(*channel, WithAsn(WithoutText(NewRecord("", 3, false, true)), new AsnText("value")));

  EXPECT_TRUE(done);
  EXPECT_TRUE(std::cout.bad());
  EXPECT_EQ(out.Text(), kLineHead);
}

TEST_F(StandardOutputTest, ABadStreamTakesNothingUntilTheHostClearsIt) {
  Open();
  CoutToText out;
  std::cout.setstate(std::ios_base::badbit);
  Output(*channel, NewRecord(" lost", 3, true, true));
  std::cout.clear();

  Output(*channel, NewRecord(" printed", 3, true, true));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 printed\n");
  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 lost\n11-15 08:52:13.123456.T4711 printed\n");
}

TEST_F(StandardOutputTest, AStreamThatThrowsDoesNotReachTheCaller) {
  Open();
  CoutToText out;
  std::cout.exceptions(std::ios_base::badbit);
  bool done = false;

  EXPECT_NO_THROW(done = Output(*channel, WithoutText(NewRecord("", 3, true, true))));
  std::cout.exceptions(std::ios_base::goodbit);

  EXPECT_TRUE(done);
}

}  // namespace
}  // namespace velt::test
