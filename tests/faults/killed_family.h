// A family of log files whose host runs as a program of its own, is killed and started again.
#ifndef VELT_TESTS_FAULTS_KILLED_FAMILY_H
#define VELT_TESTS_FAULTS_KILLED_FAMILY_H

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/checker/outcomes.h"
#include "tests/checker/report.h"
#include "tests/faults/counted.h"
#include "tests/faults/host.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::faults {

class KilledFamily {
 public:
  explicit KilledFamily(std::string const& root)
      : directory_(root + "/logs"), side_(root + "/side"), witness_(root + "/witness") {}
  ~KilledFamily() {
    if (pid_ > 0) Kill();
  }
  KilledFamily(KilledFamily const&) = delete;
  KilledFamily& operator=(KilledFamily const&) = delete;

  // Starts the next run. `rules` are for the shim in the host; "" for none.
  void Start(std::vector<std::string> const& more, std::string const& rules) {
    std::vector<std::string> words = {VELT_FAULT_HOST,
                                      "directory=" + directory_,
                                      "prefix=t_",
                                      "side=" + side_,
                                      "run=" + std::to_string(next_run_++),
                                      "keep=" + std::to_string(keep),
                                      "max_bytes=" + std::to_string(max_bytes)};
    words.insert(words.end(), more.begin(), more.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    std::string const variable = "VELT_SHIM=" + rules;
    // By its descriptor: an ordinary user may not be allowed into the program's directory.
    int const program = open(VELT_FAULT_HOST, O_RDONLY | O_CLOEXEC);
    pid_ = fork();
    if (pid_ != 0) {
      close(program);
      return;
    }
    int const null = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(null, 1);
    putenv(const_cast<char*>(variable.c_str()));
    bool const changes = user_ != 0;
    if (changes && (setgroups(0, nullptr) != 0 || setgid(user_) != 0 || setuid(user_) != 0)) _exit(126);
    fexecve(program, argv.data(), environ);
    _exit(127);
  }

  // Hosts started from here on run as an ordinary user.
  void BecomeOrdinaryUser(std::string const& root) {
    if (geteuid() != 0) return;
    user_ = 65'534;
    EXPECT_EQ(chown(root.c_str(), user_, user_), 0);
  }

  bool WaitUntilStopped() {
    int status = 0;
    bool const changed = test::WaitUntil([&] {
      LinkNow();
      return waitpid(pid_, &status, WUNTRACED | WNOHANG) == pid_;
    });
    if (changed && !WIFSTOPPED(status)) pid_ = -1;
    return changed && WIFSTOPPED(status);
  }

  void Kill() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
    LinkNow();
  }

  // Whether the run has ended; it must have done so in order.
  bool HasEnded() {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) return false;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    pid_ = -1;
    LinkNow();
    return true;
  }

  // A run of its own that traces some records and ends.
  bool RunInOrder(unsigned records) {
    Start({"records=" + std::to_string(records)}, "");
    return test::WaitUntil([this] {
      LinkNow();
      return HasEnded();
    });
  }

  void LinkNow() const { LinkLogs(directory_, "t_", witness_); }

  // Compares the family as it is now with what was written into each of its files.
  checker::Report Look() const {
    checker::Expectation expected;
    expected.directory = directory_;
    expected.prefix = "t_";
    expected.max_bytes = max_bytes;
    expected.witness_directory = witness_;
    expected.killed = true;
    expected.headless_allowed = true;
    return Check(expected, checker::ReadOutcomes(side_));
  }

  // The counts of the last run, which ended in order, and what it left of its records.
  void ExpectLastRunCounted(checker::Report const& report, unsigned producers) const {
    unsigned const run = next_run_ - 1;
    std::size_t found = 0;
    for (unsigned i = 0; i < producers; ++i) found += report.found_of.at({run, i});
    ExpectCounts(ReadCounts(side_, run), found, 0, found);
  }

  // How many records that were in the files of `before` are neither in those of `after` nor pruned.
  static std::size_t LostSince(checker::Report const& before, checker::Report const& after) {
    std::size_t gone = 0;
    for (auto const& entry : before.found_of) {
      auto const now = after.found_of.find(entry.first);
      std::size_t const found = now == after.found_of.end() ? 0 : now->second;
      if (found < entry.second) gone += entry.second - found;
    }
    return gone > after.pruned ? gone - after.pruned : 0;
  }

  // How many plain files also have an archive.
  std::size_t PlainFilesWithArchive() const {
    std::size_t count = 0;
    for (auto const& name : LogNames(directory_, "t_"))
      count += test::Exists(directory_ + "/" + name + ".gz") ? 1 : 0;
    return count;
  }

  unsigned keep = 200;
  unsigned max_bytes = 300'000;

 private:
  std::string directory_;
  std::string side_;
  std::string witness_;
  unsigned next_run_ = 0;
  uid_t user_ = 0;  // of the hosts; 0: that of the test
  pid_t pid_ = -1;
};

}  // namespace velt::faults

#endif
