// What a channel writes and prints for the calls that it gets.
#ifndef VELT_FUZZ_MODEL_CHANNEL_H
#define VELT_FUZZ_MODEL_CHANNEL_H

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace velt::fuzz {

inline constexpr std::size_t kLongestMessage = 2048;

struct ModelRecord {
  std::string text;  // what follows the line head, up to the last newline of the record
  bool print = false;
  bool log = false;
};

struct ModelChannel {
  std::size_t ring_size = 0;
  bool print = false;
  bool log = false;
  std::deque<ModelRecord> ring;
  std::vector<ModelRecord> outputs;  // in the order in which the output thread deals with them

  // `asn` is null, or what the value prints.
  void Trace(std::string_view module, int level, std::string_view message, std::string const* asn,
             bool asked_print, bool asked_log) {
    ModelRecord record;
    record.print = asked_print || print;
    record.log = asked_log || log;
    constexpr char const* kTags[] = {"A: ", "E: ", "W: ", "I: "};
    std::string line = " " + std::string(module) + " ";
    if (level >= 0 && level <= 3) line += kTags[level];
    line += message.substr(0, kLongestMessage);
    record.text = line.substr(0, line.find('\0'));
    if (record.text.back() != '\n') record.text += '\n';
    if (asn != nullptr) record.text += "ASN Trace:\n" + asn->substr(0, asn->find('\0')) + '\n';

    if (!record.print && !record.log) {
      ring.push_back(record);
      if (ring.size() > ring_size) ring.pop_front();
      return;
    }
    if (level == 0) BringRingOut();
    outputs.push_back(record);
  }

 private:
  void BringRingOut() {
    for (ModelRecord& record : ring) {
      record.print = record.log = true;
      outputs.push_back(record);
    }
    ring.clear();
  }
};

}  // namespace velt::fuzz

#endif
