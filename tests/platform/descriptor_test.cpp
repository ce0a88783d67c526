// Descriptors of the library's own files: their numbers, and what programs inherit.
#include "platform/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "tests/support/files.h"

namespace velt::test {
namespace {

// Closes 0 to 2 and opens them again at its end. Nothing may be printed meanwhile.
class WithoutStandard {
 public:
  WithoutStandard() {
    for (int number = 0; number < 3; ++number) {
      kept_.at(static_cast<std::size_t>(number)) = fcntl(number, F_DUPFD_CLOEXEC, 100);
      close(number);
    }
  }
  ~WithoutStandard() {
    for (int number = 0; number < 3; ++number) {
      dup2(kept_.at(static_cast<std::size_t>(number)), number);
      close(kept_.at(static_cast<std::size_t>(number)));
    }
  }
  WithoutStandard(WithoutStandard const&) = delete;
  WithoutStandard& operator=(WithoutStandard const&) = delete;

 private:
  std::array<int, 3> kept_{};
};

bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

TEST(DescriptorTest, AFileIsCreatedWithItsModeAndClosedInOtherPrograms) {
  ScratchDir const dir;

  int const file = OpenAboveStandard((dir / "new").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);

  ASSERT_GT(file, 2);
  EXPECT_EQ(write(file, "abc", 3), 3);
  EXPECT_EQ(fcntl(file, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(close(file), 0);
  EXPECT_EQ(ReadFile(dir / "new"), "abc");
  EXPECT_EQ(ModeOf(dir / "new"), 0600U);
}

TEST(DescriptorTest, WithTheStandardDescriptorsClosedItTakesNoneOfThem) {
  ScratchDir const dir;
  WriteFile(dir / "source", "abc");
  std::string const path = dir / "source";
  int file = -1;
  int flags = 0;
  bool standard_taken = false;
  {
    WithoutStandard const closed;
    file = OpenAboveStandard(path.c_str(), O_RDONLY);
    flags = fcntl(file, F_GETFD);
    standard_taken = IsOpen(0) || IsOpen(1) || IsOpen(2);
  }

  EXPECT_GT(file, 2);
  EXPECT_EQ(flags & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_FALSE(standard_taken);
  std::array<char, 3> bytes{};
  EXPECT_EQ(read(file, bytes.data(), bytes.size()), 3);
  close(file);
}

TEST(DescriptorTest, WhenNoneAboveIsToBeHadItFailsAndTakesNothing) {
  ScratchDir const dir;
  WriteFile(dir / "source", "abc");
  std::string const path = dir / "source";
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  int file = 0;
  int reason = 0;
  bool standard_taken = false;
  {
    WithoutStandard const closed;
    rlimit const low{3, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &low);
    file = OpenAboveStandard(path.c_str(), O_RDONLY);
    reason = errno;
    setrlimit(RLIMIT_NOFILE, &before);
    standard_taken = IsOpen(0) || IsOpen(1) || IsOpen(2);
  }

  EXPECT_EQ(file, -1);
  EXPECT_TRUE(reason == EMFILE || reason == EINVAL) << reason;
  EXPECT_FALSE(standard_taken);
}

TEST(DescriptorTest, AFailureToOpenKeepsItsReason) {
  errno = 0;

  EXPECT_EQ(OpenAboveStandard("/nonexistent/file", O_RDONLY), -1);
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
}  // namespace velt::test
