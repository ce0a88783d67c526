// An engine that keeps its last call; the objects of the class are counted.
#ifndef VELT_FUZZ_SUPPORT_ENGINE_H
#define VELT_FUZZ_SUPPORT_ENGINE_H

#include <string>

#include "velt/manager.h"

namespace velt::fuzz {

class Engine : public VeltDebugEngine {
 public:
  Engine() { ++live; }
  ~Engine() override { --live; }
  Engine(Engine const&) = delete;
  Engine& operator=(Engine const&) = delete;

  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const*, bool print,
             bool log) override {
    said = module + '/' + std::to_string(level) + '/' + text + (print ? "/print" : "") + (log ? "/log" : "");
    return said.size() % 2 == 0;
  }
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool print, bool log, std::string const& sub_name) override {
    bool const answer = Trace(module, level, text, asn, print, log);
    said += '/' + sub_name;
    return answer;
  }

  static inline int live = 0;
  static inline std::string said;
};

}  // namespace velt::fuzz

#endif
