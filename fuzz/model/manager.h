// The trace manager: its modules, its engine, its channels, and what each call returns.
#ifndef VELT_FUZZ_MODEL_MANAGER_H
#define VELT_FUZZ_MODEL_MANAGER_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "fuzz/model/channel.h"
#include "fuzz/model/debug_config.h"

namespace velt::fuzz {

enum class Answer { kFalse, kTrue, kOutOfRange };

inline Answer AnswerOf(bool result) { return result ? Answer::kTrue : Answer::kFalse; }

struct ModelTrace {
  std::string module;
  int level = 0;
  std::string text;
  std::string const* asn = nullptr;
  bool print = false;
  bool log = false;
};

struct ModelManager {
  struct Family {
    std::string header;
    ModelChannel channel;
  };

  bool initialised = false;
  bool silent = false;
  bool has_engine = false;
  std::string name;
  ModelConfig config;  // its modules are those that are registered now
  std::map<std::string, Family> families;

  // `file` is null without a configuration file. The name with the directory is that of nothing there is.
  bool Init(std::string const& new_name, std::string_view const* file, std::string const& header,
            bool be_silent) {
    if (initialised) return true;
    silent = be_silent;
    if (new_name.empty()) return false;
    name = new_name;
    ModelConfig const read = file == nullptr ? ModelConfig() : ModelConfigOf(*file);
    config.ring = read.ring;
    config.most_channels = read.most_channels;
    for (auto const& [module, sets] : read.modules) config.modules[module] = sets;
    if (!silent && name.find('/') != std::string::npos) return false;
    if (!silent) families[name] = {header, NewChannel()};
    initialised = true;
    return true;
  }

  bool Register(std::string const& module, ModelSet levels, ModelSet outputs, bool inherit) {
    if (!initialised || module.empty()) return false;
    bool const known = config.modules.count(module) != 0;
    if (!known && inherit && config.modules.count("debug") == 0) return false;
    config.modules[module] = !known && inherit ? config.modules["debug"] : std::pair(levels, outputs);
    return true;
  }

  bool SetAll(ModelSet levels, ModelSet outputs, bool use_debug) {
    if (!initialised || (use_debug && config.modules.count("debug") == 0)) return false;
    auto const sets = use_debug ? config.modules["debug"] : std::pair(levels, outputs);
    for (auto& module : config.modules) module.second = sets;
    return true;
  }

  Answer SetBit(std::string const& module, ModelSet std::pair<ModelSet, ModelSet>::*set, int index, bool on) {
    auto const found = config.modules.find(module.empty() ? "debug" : module);
    if (index > 32 || index < 0 || found == config.modules.end()) return Answer::kFalse;
    if (index == 32) return Answer::kOutOfRange;
    ModelSet const bit = ModelSet{1} << index;
    ModelSet& bits = found->second.*set;
    bits = on ? bits | bit : bits & ~bit;
    return Answer::kTrue;
  }

  // Not for a call that goes to an engine. `brings_ring_out` becomes true when the record does.
  Answer Trace(ModelTrace const& trace, bool& brings_ring_out) {
    if (!initialised || silent || trace.level > 32) return Answer::kFalse;
    return Give(families[name].channel, trace, brings_ring_out);
  }

  Answer AppTrace(ModelTrace const& trace, std::string const& sub_name, bool& brings_ring_out) {
    if (!initialised) return Answer::kFalse;
    if (silent) return Answer::kTrue;
    if (trace.level > 32 || sub_name.size() >= 129) return Answer::kFalse;
    if (families.size() > static_cast<std::size_t>(config.most_channels)) return Answer::kFalse;
    std::string const key = sub_name.empty() ? name : name + sub_name + "_";
    auto const header = trace.module.substr(0, trace.module.find('\0'));
    auto const found = families.try_emplace(key, Family{header, NewChannel()}).first;
    return Give(found->second.channel, trace, brings_ring_out);
  }

 private:
  ModelChannel NewChannel() const {
    ModelChannel channel;
    channel.ring_size = static_cast<std::size_t>(config.ring);
    return channel;
  }

  Answer Give(ModelChannel& channel, ModelTrace const& trace, bool& brings_ring_out) const {
    bool print = trace.print;
    bool log = trace.log;
    auto module = config.modules.find(trace.module);
    if (module == config.modules.end()) module = config.modules.find("debug");
    if (!(print && log) && module != config.modules.end()) {
      if (trace.level < 0 || trace.level > 31) return Answer::kOutOfRange;
      bool const passes = (module->second.first >> trace.level & 1U) != 0;
      print = print || (passes && (module->second.second & 1U) != 0);
      log = log || (passes && (module->second.second & 2U) != 0);
    }
    channel.Trace(trace.module, trace.level, trace.text, trace.asn, print, log);
    brings_ring_out = trace.level == 0 && (print || log);
    return Answer::kTrue;
  }
};

}  // namespace velt::fuzz

#endif
