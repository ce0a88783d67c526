// Two threads that first ask for the trace directory at the same time: the C library's getenv is replaced in
// this program, so that a second asker can come in exactly between the first one's look-up and its result.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "velt/config.h"

namespace {

std::function<void()>* meanwhile = nullptr;  // run once, by the next question

}  // namespace

// May run before a sanitizer is ready.
extern "C" __attribute__((visibility("default"), no_sanitize("thread", "address", "undefined"))) char* getenv(
    char const* name) noexcept {
  if (std::function<void()>* const run = std::exchange(meanwhile, nullptr)) (*run)();
  std::size_t const length = std::strlen(name);
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    if (std::strncmp(*entry, name, length) == 0 && (*entry)[length] == '=') return *entry + length + 1;
  }
  return nullptr;
}

namespace velt::test {
namespace {

TEST(PathsFaultTest, TheDirectoryThatWasKnownFirstIsEverybodys) {
  setenv("_APP_LOG_DIR", "/first", 1);
  std::string first;
  std::function<void()> run = [&first] {
    // A thread of its own, as it happens in a host; the variable changes before the first asker reads it.
    std::thread([&first] { first = VeltGetTraceDir(); }).join();
    setenv("_APP_LOG_DIR", "/second", 1);
  };
  meanwhile = &run;

  std::string const second = VeltGetTraceDir();

  EXPECT_EQ(first, "/first/");
  EXPECT_EQ(second, "/first/") << "what it made itself is thrown away";
  EXPECT_EQ(VeltGetLogPath(), "/second/") << "the replaced function does look at the environment";
  EXPECT_EQ(VeltGetTraceDir(), "/first/");
}

}  // namespace
}  // namespace velt::test
