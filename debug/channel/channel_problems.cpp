#include "debug/channel/channel_problems.h"

#include <exception>
#include <utility>

#include "debug/channel/channel_state.h"

namespace velt {
namespace {

std::string Number(std::uint64_t count, char const* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// Counts `count` more, and makes the report if one is due. `sentence` is called with the count since the last
// report. If memory for the text runs out, no report is made.
template <typename Sentence>
void Tell(ProblemGate& gate, VeltProblemKind kind, std::string const& path, int error, std::uint64_t count,
          Sentence const& sentence) {
  std::uint64_t all = 0;
  if (!gate.Pass(count, all)) return;
  try {
    TellProblem(kind, sentence(all), path, error, all);
  } catch (std::exception const&) {
    return;
  }
}

// Makes the report that a problem has ended, unless `count`, of what failed, is 0. If that is too early, the
// count is kept and a later call makes the report: else the last report would be that of the problem.
template <typename Sentence>
void TellEnd(ProblemGate& gate, VeltProblemKind kind, std::string const& path, std::uint64_t& count,
             Sentence const& sentence) {
  std::uint64_t unused = 0;
  if (count == 0 || !gate.Pass(0, unused)) return;
  std::uint64_t const all = std::exchange(count, 0);
  try {
    TellProblem(kind, sentence(all), path, 0, all);
  } catch (std::exception const&) {
    return;  // no memory for the text
  }
}

}  // namespace

void FileNotOpened(ChannelState& state, int error) {
  ++state.m_problems.failed_opens;
  std::string const& path = state.m_strCurFileName;
  Tell(state.m_problems.cannot_open, VeltProblemKind::kCannotOpen, path, error, 1, [&](std::uint64_t all) {
    return "cannot open the log file " + path + ", " + Number(all, "attempt") +
           ", tried again every second, records wait in the queue";
  });
}

void FileOpened(ChannelState& state) {
  std::string const& path = state.m_strCurFileName;
  TellEnd(state.m_problems.open_again, VeltProblemKind::kOpenAgain, path, state.m_problems.failed_opens,
          [&](std::uint64_t failed) {
            return "opened the log file " + path + " after " + Number(failed, "failed attempt");
          });
}

void RecordNotWritten(ChannelState& state, int error) {
  ++state.m_problems.refused_writes;
  std::string const& path = state.m_strCurFileName;
  Tell(state.m_problems.write_refused, VeltProblemKind::kWriteRefused, path, error, 1,
       [&](std::uint64_t all) {
         return "cannot write to the log file " + path + ", " + Number(all, "record") + " lost";
       });
}

void RecordWritten(ChannelState& state) {
  FileOpened(state);  // if it was too early to tell that when the file was opened
  std::string const& path = state.m_strCurFileName;
  TellEnd(state.m_problems.writes_again, VeltProblemKind::kWritesAgain, path, state.m_problems.refused_writes,
          [&](std::uint64_t lost) {
            return "the log file " + path + " takes records again, " + Number(lost, "record") +
                   " lost meanwhile";
          });
}

void FileNotArchived(ChannelState& state, std::string const& path, int error) {
  Tell(state.m_problems.cannot_archive, VeltProblemKind::kCannotArchive, path, error, 1,
       [&](std::uint64_t all) {
         return "cannot compress the log file " + path + ", " + Number(all, "failure") +
                ", it stays and is tried again at the next rotation";
       });
}

void RecordRefused(ChannelState& state) {
  std::string const& family = state.m_strLogPath;
  Tell(state.m_problems.records_refused, VeltProblemKind::kRecordsRefused, family + state.m_strFilePrefix, 0,
       1, [&](std::uint64_t all) {
         return "the queue of the log family " + family + state.m_strFilePrefix + " is full, " +
                Number(all, "record") + " refused";
       });
}

}  // namespace velt
