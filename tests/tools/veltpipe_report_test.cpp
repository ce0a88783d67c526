// What veltpipe says while it runs and at its end: the progress line, the statistics as JSON, its complaints.
#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"
#include "tests/tools/veltpipe.h"

namespace velt::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

void WriteText(Descriptor const& to, std::string const& text) {
  ASSERT_EQ(write(to, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// A terminal, and what was written to it so far.
class Terminal {
 public:
  explicit Terminal(unsigned short columns = 80) : Terminal(Open(columns)) {}

  Descriptor& Slave() { return slave_; }

  // Everything until now, without the carriage return that a terminal adds to a newline.
  std::string const& Text() {
    char block[4096];
    for (ssize_t count = 0; (count = read(master_, block, sizeof block)) > 0;)
      text_.append(block, static_cast<std::size_t>(count));
    for (std::size_t at = 0; (at = text_.find("\r\n")) != std::string::npos;) text_.erase(at, 1);
    return text_;
  }

  bool Shows(std::string const& text) {
    return WaitUntil([&] { return Text().find(text) != std::string::npos; });
  }

  // Each text that the progress line showed, in order.
  std::vector<std::string> States() {
    std::vector<std::string> states;
    std::string state;
    for (char const byte : Text() + "\r") {
      if (byte != '\r' && byte != '\n') {
        state += byte;
      } else if (!state.empty()) {
        states.push_back(state);
        state.clear();
      }
    }
    return states;
  }

 private:
  explicit Terminal(std::pair<int, int> ends) : master_(ends.first), slave_(ends.second) {
    fcntl(master_, F_SETFL, O_NONBLOCK);
  }
  static std::pair<int, int> Open(unsigned short columns) {
    int master = -1;
    int slave = -1;
    winsize size{};
    size.ws_col = columns;
    size.ws_row = 24;
    if (openpty(&master, &slave, nullptr, nullptr, &size) != 0) {
      throw std::runtime_error(std::string("openpty: ") + std::strerror(errno));
    }
    fcntl(master, F_SETFD, FD_CLOEXEC);
    fcntl(slave, F_SETFD, FD_CLOEXEC);
    return {master, slave};
  }

  Descriptor master_;
  Descriptor slave_;
  std::string text_;
};

// --- Progress ---

// Tests that look at a terminal. Some containers have no device to make one with.
class VeltpipeTerminalTest : public ::testing::Test {
 protected:
  void SetUp() override {
    int master = -1;
    int slave = -1;
    if (openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) {
      GTEST_SKIP() << "this machine makes no terminal (openpty: " << std::strerror(errno)
                   << "), so the progress line cannot be looked at";
    }
    close(master);
    close(slave);
  }
};

TEST(VeltpipeProgressTest, NothingIsShownWhereStandardErrorIsNoTerminal) {
  ScratchDir const scratch;

  Outcome const outcome = RunProgram(Command(scratch.Path(), {"--progress"}), "one\ntwo\n");

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(VeltpipeTerminalTest, NothingIsShownOnATerminalThatDidNotAskForIt) {
  ScratchDir const scratch;
  Terminal terminal;
  RunningProgram program(Command(scratch.Path(), {}), {-1, -1, terminal.Slave()});

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(terminal.Text(), IsEmpty());
}

TEST_F(VeltpipeTerminalTest, ATerminalShowsTheLineWhileItRunsAndALastOneAtTheEnd) {
  ScratchDir const scratch;
  Terminal terminal;
  PipeEnds input;
  RunningProgram program(Command(scratch.Path(), {"--progress"}), {input.read, -1, terminal.Slave()});
  input.read.Close();

  WriteText(input.write, "one\ntwo\n");
  bool const two_shown = terminal.Shows("\rveltpipe: 2 lines, 0.0 MB, ");
  WriteText(input.write, std::string(2097152 / 2 - 8, 'x') + "\n");
  bool const three_shown = terminal.Shows("\rveltpipe: 3 lines, 1.0 MB, ");
  input.write.Close();

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_TRUE(two_shown);
  EXPECT_TRUE(three_shown);
  EXPECT_THAT(terminal.Text(), EndsWith("\n"));
  EXPECT_EQ(CountOf(terminal.Text(), "\n"), 1U) << "the line is rewritten, not repeated";
  EXPECT_THAT(terminal.States().back(),
              MatchesRegex("veltpipe: 3 lines, 1\\.0 MB, [0-9]+\\.[0-9] MB/s, 0 files rotated *"));
}

TEST_F(VeltpipeTerminalTest, RotationsAreCountedOnTheLine) {
  ScratchDir const scratch;
  std::string text;
  for (int i = 0; i < 9000; ++i) text += std::string(120, 'x') + "\n";
  WriteFile(scratch / "in.txt", text);
  Terminal terminal;
  Descriptor const input(open((scratch / "in.txt").c_str(), O_RDONLY | O_CLOEXEC));
  RunningProgram program(Command(scratch / "logs", {"--progress", "--size", "1"}),
                         {input, -1, terminal.Slave()});

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(terminal.Text(), HasSubstr("veltpipe: 9000 lines, 1.0 MB, "));
  EXPECT_THAT(terminal.Text(), HasSubstr(" MB/s, 1 files rotated"));
}

TEST_F(VeltpipeTerminalTest, ANarrowTerminalGetsNoLineThatWraps) {
  ScratchDir const scratch;
  Terminal terminal(20);
  RunningProgram program(Command(scratch.Path(), {"--progress"}), {-1, -1, terminal.Slave()});

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(terminal.Text(), "\rveltpipe: 0 lines, \n");
}

TEST_F(VeltpipeTerminalTest, StatisticsFollowOnALineOfTheirOwn) {
  ScratchDir const scratch;
  Terminal terminal;
  RunningProgram program(Command(scratch.Path(), {"--progress", "--stats"}), {-1, -1, terminal.Slave()});

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(terminal.Text(),
              EndsWith(" files rotated\nveltpipe: lines in 0, records out 0, retries 0, files "
                       "rotated 0\n"));
}

TEST_F(VeltpipeTerminalTest, ATerminalThatIsHeldDoesNotHoldTheLog) {
  ScratchDir const scratch;
  Terminal terminal;
  ASSERT_EQ(tcflow(terminal.Slave(), TCOOFF), 0);
  PipeEnds input;
  RunningProgram program(Command(scratch.Path(), {"--progress"}), {input.read, -1, terminal.Slave()});
  WriteText(input.write, "one\n");
  input.write.Close();

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(ReadFamily(scratch.Path(), "t_"), HasSubstr("app I: one\n"));
}

// Runs in the child: makes the program a background job, while a shell has the terminal.
void StandBehind() {
  setsid();
  ioctl(STDERR_FILENO, TIOCSCTTY, 0);
  pid_t const job = fork();
  if (job != 0) {
    int status = 0;
    waitpid(job, &status, 0);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 99);
  }
  setpgid(0, 0);
}

TEST_F(VeltpipeTerminalTest, AJobInTheBackgroundShowsNothing) {
  ScratchDir const scratch;
  Terminal terminal;
  RunningProgram program(Command(scratch.Path(), {"--progress"}), {-1, -1, terminal.Slave()}, StandBehind);

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(terminal.Text(), IsEmpty());
}

// --- Statistics ---

TEST(VeltpipeJsonTest, TheStatisticsAreOneLineOfJson) {
  ScratchDir const scratch;

  Outcome const outcome =
      RunProgram(Command(scratch.Path(), {"--stats", "--json"}), "one\n" + std::string(2049, 'x') + "\n");

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(
      outcome.err,
      "{\"lines_in\": 2, \"bytes_in\": 2054, \"records_out\": 3, \"retries\": 0, \"files_rotated\": 0, "
      "\"records_lost\": 0, \"records_given_up\": 0, \"records_dropped\": 0, \"no_log_file\": false}\n");
  EXPECT_TRUE(nlohmann::json::accept(outcome.err));
}

TEST(VeltpipeJsonTest, ALossIsInTheStatisticsToo) {
  ScratchDir const scratch;
  WriteFile(scratch / "in.txt", std::string(20000, '\n'));
  Descriptor const input(open((scratch / "in.txt").c_str(), O_RDONLY | O_CLOEXEC));
  Descriptor const err(open((scratch / "err.txt").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  RunningProgram program(Command(scratch / "logs", {"--stats", "--json"}), {input, -1, err}, [] {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = 300000;
    setrlimit(RLIMIT_FSIZE, &limit);
  });

  EXPECT_EQ(program.Wait(), 1);
  auto const statistics = nlohmann::json::parse(Lines(ReadFile(scratch / "err.txt")).back());
  std::size_t const whole = CountOf(ReadFamily(scratch / "logs", "t_"), " app I: \n");
  EXPECT_LT(whole, 20000U);
  EXPECT_EQ(statistics["records_out"], whole);
  EXPECT_EQ(statistics["records_lost"], 20000 - whole);
}

TEST(VeltpipeJsonTest, JsonWithoutStatisticsIsExitCodeTwo) {
  ScratchDir const scratch;

  Outcome const outcome = RunProgram(Command(scratch / "logs", {"--json"}), "line\n");

  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.err,
            "veltpipe: --json is the form of --stats, which is missing\nTry 'veltpipe --help'.\n");
  EXPECT_FALSE(Exists(scratch / "logs"));
}

// --- Complaints: program, cause, hint ---

TEST(VeltpipeComplaintTest, ADirectoryThatCannotBeUsedSaysWhyAndWhatToDo) {
  ScratchDir const scratch;
  WriteFile(scratch / "file", "");

  Outcome const no_directory = RunProgram(Command(scratch / "file", {}));
  Outcome const below_file = RunProgram(Command(scratch / "file/logs", {}));
  Outcome const dollar = RunProgram(Command(scratch / "$x", {}));

  EXPECT_EQ(no_directory.exit_code, 1);
  EXPECT_EQ(no_directory.err, "veltpipe: cannot write in " + (scratch / "file") +
                                  ": it is not a directory; give another place with --dir\n");
  EXPECT_EQ(below_file.exit_code, 1);
  EXPECT_EQ(below_file.err, "veltpipe: cannot create the directory " + (scratch / "file/logs") +
                                ": Not a directory; give another place with --dir\n");
  EXPECT_EQ(dollar.exit_code, 1);
  EXPECT_THAT(dollar.err, HasSubstr("there is a \"$\" in the path"));
}

TEST(VeltpipeComplaintTest, AMissingConfigurationSaysWhy) {
  ScratchDir const scratch;

  Outcome const outcome = RunProgram(Command(scratch.Path(), {"--config", scratch / "no.cfg"}));

  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.err, "veltpipe: cannot read the configuration \"" + (scratch / "no.cfg") +
                             "\": No such file or directory\nTry 'veltpipe --help'.\n");
}

TEST(VeltpipeComplaintTest, ADirectoryInPlaceOfTheConfigurationSaysWhatItIs) {
  ScratchDir const scratch;

  Outcome const outcome = RunProgram(Command(scratch / "logs", {"--config", scratch.Path()}));

  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.err, "veltpipe: cannot read the configuration \"" + scratch.Path() +
                             "\": it is a directory\nTry 'veltpipe --help'.\n");
}

TEST(VeltpipeComplaintTest, AnythingElseThatIsNoFileCannotBeTheConfiguration) {
  ScratchDir const scratch;
  ASSERT_EQ(mkfifo((scratch / "pipe").c_str(), 0600), 0);

  Outcome const outcome = RunProgram(Command(scratch / "logs", {"--config", scratch / "pipe"}));

  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.err, "veltpipe: cannot read the configuration \"" + (scratch / "pipe") +
                             "\": it is not a regular file\nTry 'veltpipe --help'.\n");
}

}  // namespace
}  // namespace velt::test
