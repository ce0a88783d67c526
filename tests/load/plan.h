// What each producer of the load run traces: computed by the producers, and once more by the check.
#ifndef VELT_TESTS_LOAD_PLAN_H
#define VELT_TESTS_LOAD_PLAN_H

#include <cstddef>
#include <string>

#include "tests/checker/record_text.h"

namespace velt::load {

inline constexpr unsigned kProducers = 64;
inline constexpr unsigned kFamilies = 9;  // the main one and eight sub-names
inline constexpr unsigned kRingCapacity = 10;
inline constexpr unsigned kArchivesKept = 200;
inline constexpr char const* kModule = "load";

struct Scale {
  unsigned records_each;        // calls of one producer
  unsigned file_megabytes;      // nEachFileMaxSize
  unsigned records_per_second;  // of all producers together, at most
  std::size_t window_bytes;     // accepted and not yet written, of one family; see Pacer
  unsigned least_rotations;
};
Scale CurrentScale();

enum class Kind {
  kOrdinary,  // level 1: to the file
  kAlarm,     // level 0: to the file, and the ring before it
  kFiltered,  // level 3, which the module's set does not hold: into the ring
  kBadLevel,  // level 33: refused
};
enum class Call { kPrintf, kTrace, kAppTrace };

struct Step {
  Kind kind;
  unsigned family;
  Call call;
  std::size_t length;  // of the message before it is cut
};
Step StepOf(unsigned producer, unsigned index);

int LevelOf(Kind kind);
char TagOf(Kind kind);
std::size_t LimitOf(Call call);  // characters that are kept of a message

std::string SubNameOf(unsigned family);  // empty: the main one
std::string PrefixOf(unsigned family);
std::string HeaderOf(unsigned family);

// Messages are those of the checker. Their run says what they are:
//   0     ordinary: producer and index of its step
//   1     filtered: family and number, counted in the order in which the records went into its ring
//   2 + n alarm: producer and index of its step, traced after n records had gone into the ring of its family
inline constexpr unsigned kOrdinaryRun = 0;
inline constexpr unsigned kFilteredRun = 1;
inline constexpr unsigned kFirstAlarmRun = 2;

// The payload with which a message of `id` has `length` characters; one less where no payload gives that.
std::size_t PayloadOf(checker::RecordId const& id, std::size_t length);
std::size_t SizeOf(checker::RecordId const& id, std::size_t length);  // of MessageOf
std::string MessageOf(checker::RecordId const& id, std::size_t length);

}  // namespace velt::load

#endif
