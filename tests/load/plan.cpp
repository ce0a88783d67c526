#include "tests/load/plan.h"

#include <array>
#include <cstdint>

#include "tests/faults/scale.h"

namespace velt::load {
namespace {

constexpr std::size_t kFilteredLength = 64;
constexpr std::size_t kChecksumPart = 10;  // " C" and 8 digits

// A hash of producer and index, the same in every run.
std::uint32_t Mixed(unsigned producer, unsigned index) {
  std::uint32_t value = (producer * 0x9E3779B1U) ^ (index * 0x85EBCA6BU);
  value ^= value >> 15U;
  value *= 0x2C1B3C6DU;
  return value ^ value >> 12U;
}

std::size_t LengthOf(std::uint32_t mixed) {
  // Lengths around both cuts, and far beyond them.
  constexpr std::array<std::size_t, 5> kRare = {2'046, 2'047, 2'048, 2'049, 16'384};
  std::uint32_t const which = mixed % 1'000;
  return which < kRare.size() ? kRare[which] : 40 + mixed / 1'000 % 161;
}

std::size_t Digits(std::size_t number) {
  std::size_t digits = 1;
  for (; number >= 10; number /= 10) ++digits;
  return digits;
}

// Characters of "R<run> P<producer> S<sequence> L<length> " without the last number, and of the checksum.
std::size_t Around(checker::RecordId const& id) {
  constexpr std::size_t kMarksAndSpaces = 8;
  return kMarksAndSpaces + Digits(id.run) + Digits(id.producer) + Digits(id.sequence) + kChecksumPart;
}

}  // namespace

Scale CurrentScale() {
  // One file a family every five seconds in the long run, and nine families: some 600 rotations, and far from
  // the 200 archives at which a family would be pruned.
  if (faults::FullScale()) return {312'500, 5, 60'000, 1'048'576, 200};
  return {3'125, 1, 60'000, 262'144, 10};
}

Step StepOf(unsigned producer, unsigned index) {
  Step step{Kind::kOrdinary, (index + producer) % kFamilies, Call::kAppTrace,
            LengthOf(Mixed(producer, index))};
  if (step.family == 0) step.call = static_cast<Call>(index / kFamilies % 3);
  // Primes: every producer meets every combination of kind and family.
  if ((index + producer * 157) % 10'007 == 0) {
    step.kind = Kind::kBadLevel;
    if (step.call == Call::kPrintf) step.call = Call::kTrace;  // Printf returns nothing
  } else if ((index + producer * 31) % 2'003 == 0) {
    step.kind = Kind::kAlarm;
  } else if ((index + producer * 13) % 211 == 0) {
    step.kind = Kind::kFiltered;
    step.length = kFilteredLength;
    if (step.call == Call::kPrintf) step.call = Call::kTrace;
  }
  return step;
}

int LevelOf(Kind kind) {
  switch (kind) {
    case Kind::kAlarm:
      return 0;
    case Kind::kOrdinary:
      return 1;
    case Kind::kFiltered:
      return 3;
    case Kind::kBadLevel:
      break;
  }
  return 33;
}

char TagOf(Kind kind) { return kind == Kind::kAlarm ? 'A' : kind == Kind::kOrdinary ? 'E' : 'I'; }

std::size_t LimitOf(Call call) { return call == Call::kPrintf ? 2'046 : 2'048; }

std::string SubNameOf(unsigned family) { return family == 0 ? "" : "s" + std::to_string(family); }

std::string PrefixOf(unsigned family) { return family == 0 ? "load_" : "load_" + SubNameOf(family) + "_"; }

// A family of a sub-name begins its files with the module of its first record.
std::string HeaderOf(unsigned family) { return family == 0 ? "load header\n" : kModule; }

std::size_t PayloadOf(checker::RecordId const& id, std::size_t length) {
  std::size_t const rest = length - Around(id);  // the payload and the digits of its length
  std::size_t payload = rest - Digits(rest);
  if (payload + 1 + Digits(payload + 1) == rest) ++payload;
  return payload;
}

std::size_t SizeOf(checker::RecordId const& id, std::size_t length) {
  std::size_t const payload = PayloadOf(id, length);
  return Around(id) + Digits(payload) + payload;
}

std::string MessageOf(checker::RecordId const& id, std::size_t length) {
  return checker::MakeRecord(id, PayloadOf(id, length));
}

}  // namespace velt::load
