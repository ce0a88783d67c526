// Random programs of a host against the model of the manager, with all files and standard output read back.
//
// An input is a line for each call; "~" in it is a newline:
//
//   C<text>                       the configuration file of the next I; none when it is empty
//   I<flags><name>                Init; flags: 1 silent; the name is one of four
//   D                             Destroy
//   T<level><flags><module>|<text>          Trace; flags: 1 print, 2 log, 4 with a value
//   A<level><flags><sub><module>|<text>     AppTrace; the sub-name is one of five
//   P<level><form><module>|<text>           one of the three Printf
//   L<level><on><module>  O<output><on><module>          SetLogLevel, SetLogOutput
//   R<inherit><levels> <outputs> <module>   RegSubModuleInfo
//   S<use debug><levels> <outputs>          SetAllModuleInfo
//   E                             a new engine;  U<which> the engine, another, or null unregistered
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "velt/manager.h"

#include "fuzz/model/manager.h"
#include "fuzz/support/answer.h"
#include "fuzz/support/bell.h"
#include "fuzz/support/channel_output.h"
#include "fuzz/support/check.h"
#include "fuzz/support/engine.h"
#include "fuzz/support/input.h"
#include "fuzz/support/memory_file.h"
#include "fuzz/support/scratch.h"
#include "tests/support/files.h"

namespace velt::fuzz {
namespace {

using Bits = std::bitset<32>;

constexpr int kMostCalls = 60;
constexpr int kMostOpenings = 2;  // ending each costs a poll for every channel
constexpr std::size_t kLongestText = 500;
constexpr char const* kHeader = "host of a fuzz target\n";

int LevelOf(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  constexpr std::array<int, 6> kOthers = {31, 32, 33, -1, 99, 12};
  return kOthers[static_cast<unsigned char>(letter) % kOthers.size()];
}

class Host {
 public:
  Host(Scratch const& scratch, CapturedOutput& output) : scratch_(scratch), output_(output) {
    unsetenv("APP_ROOT");
  }
  Host(Host const&) = delete;
  Host& operator=(Host const&) = delete;
  ~Host() { Destroy(); }

  void Call(Input line) {
    char const operation = Choose(line.Character(), "TPALORSCIDEU");
    if (operation == 'C') SetConfiguration(line);
    if (operation == 'I') Init(line);
    if (operation == 'D') Destroy();
    if (operation == 'T' || operation == 'A') Trace(line, operation == 'A');
    if (operation == 'P') Printf(line);
    if (operation == 'L' || operation == 'O') SetBit(line, operation == 'L');
    if (operation == 'R' || operation == 'S') SetModules(line, operation == 'R');
    if (operation == 'E') RegisterEngine();
    if (operation == 'U') UnregisterEngine(line);
    CheckState();
  }

 private:
  static VeltDebugMgr& Manager() { return *VeltDebugMgr::Instance(); }

  void SetConfiguration(Input line) {
    configuration_ = line.Rest();
    for (char& character : configuration_) character = character == '~' ? '\n' : character;
    file_.Write(configuration_);
  }

  void Init(Input line) {
    bool const silent = (line.Byte() & 1U) != 0;
    constexpr std::array<char const*, 4> kNames = {"host_", "a/b", "", "VELTMrb_p2_"};
    char const* const name = kNames[line.AtEnd() || line.Rest()[0] == 'h' ? 0 : line.Byte() % kNames.size()];
    if (!silent && !model_.initialised && ++openings_ > kMostOpenings) return;
    // Another directory each time: two files of one second would share a name.
    if (!model_.initialised) directory_ = scratch_.Path() + "/" + std::to_string(openings_) + "/";
    std::string_view const text = configuration_;
    bool const expected = model_.Init(name, text.empty() ? nullptr : &text, kHeader, silent);
    CheckEqual(Manager().Init(name, text.empty() ? "" : file_.Path(), directory_, kHeader, true, silent),
               expected, "Init");
  }

  void Destroy() {
    CheckEqual(VeltDebugMgr::Destroy(), 0, "Destroy");
    if (model_.has_engine) engine_ = nullptr;
    CheckEqual(Engine::live, engine_ == nullptr ? 0 : 1, "engines after Destroy");
    if (!model_.families.empty()) CheckFiles();
    CheckEqual(output_.Take(), "", "standard output of no channel");
    if (!directory_.empty()) std::filesystem::remove_all(directory_);
    model_ = ModelManager();
  }

  void CheckFiles() {
    std::vector<std::string> const names = test::ListDir(directory_);
    CheckEqual(names.size(), model_.families.size(), "number of files");
    std::vector<ModelChannel const*> channels;
    for (auto const& [prefix, family] : model_.families) {
      channels.push_back(&family.channel);
      bool found = false;
      for (std::string const& name : names) {
        if (name.size() != prefix.size() + 19 || name.rfind(prefix, 0) != 0) continue;
        found = true;
        CheckFile(test::ReadFile(directory_ + name), family.header, family.channel, nullptr);
      }
      Check(found, "a channel has no file");
    }
    CheckPrinted(output_.Take(), channels);
  }

  ModelTrace ReadTrace(Input& line) {
    ModelTrace trace;
    trace.module = line.Until('|');
    trace.text = line.Rest().substr(0, kLongestText);
    trace.text.resize(std::min(trace.text.size(), trace.text.find('\0')));
    trace.text += " #" + std::to_string(++serial_);  // no two are the same
    return trace;
  }

  void Trace(Input line, bool is_app) {
    int const level = LevelOf(line.Character());
    unsigned const flags = line.Byte();
    std::array<std::string, 5> const sub_names = {"gw", "", "a", std::string(128, 'n'),
                                                  std::string(129, 'n')};
    char const sub = is_app ? line.Character() : '\0';
    std::string const& sub_name = sub == 'g' ? sub_names[0] : sub_names[static_cast<unsigned char>(sub) % 5];
    ModelTrace trace = ReadTrace(line);
    std::string const printed = "value of " + trace.text;
    Value const value(printed);
    trace.level = level;
    trace.print = (flags & 1U) != 0;
    trace.log = (flags & 2U) != 0;
    trace.asn = (flags & 4U) != 0 ? &printed : nullptr;
    std::string const* const to = is_app ? &sub_name : nullptr;
    bool brings_ring_out = false;
    Carry(trace, trace.asn == nullptr ? nullptr : &value, to, brings_ring_out);
    if (brings_ring_out) WaitForOutput(to);
  }

  // One Trace, or AppTrace when there is a sub-name.
  Answer Carry(ModelTrace const& trace, AsnType const* value, std::string const* sub_name,
               bool& brings_ring_out) {
    Engine::said.clear();
    VeltLogLevel const level{trace.level};
    char const* const text = trace.text.c_str();
    Answer const answer = Try([&] {
      return sub_name == nullptr
                 ? Manager().Trace(trace.module, level, text, value, trace.print, trace.log)
                 : Manager().AppTrace(trace.module, level, text, value, trace.print, trace.log, *sub_name);
    });
    CheckAnswer(answer, Expected(trace, sub_name, brings_ring_out), "answer of a trace call");
    return answer;
  }

  // A record that is filtered before the output thread writes the one of level 0 might still get into the
  // ring.
  void WaitForOutput(std::string const* sub_name) {
    Bell bell;
    ModelTrace const sync{"sync", 3, "bell #" + std::to_string(++serial_), &Bell::kSound, true, true};
    bool brings_ring_out = false;
    if (Carry(sync, &bell, sub_name, brings_ring_out) == Answer::kTrue) bell.Wait();
  }

  Answer Expected(ModelTrace const& trace, std::string const* sub_name, bool& brings_ring_out) {
    if (model_.has_engine && model_.initialised) {
      std::string said = trace.module + '/' + std::to_string(trace.level) + '/' + trace.text +
                         (trace.print ? "/print" : "") + (trace.log ? "/log" : "");
      Answer const answer = AnswerOf(said.size() % 2 == 0);
      if (sub_name != nullptr) said += '/' + *sub_name;
      CheckEqual(Engine::said, said, "what the engine was told");
      return answer;
    }
    CheckEqual(Engine::said, "", "an engine that is not registered");
    return sub_name == nullptr ? model_.Trace(trace, brings_ring_out)
                               : model_.AppTrace(trace, *sub_name, brings_ring_out);
  }

  void Printf(Input line) {
    int level = LevelOf(line.Character());
    unsigned const form = line.Byte() % 3;
    ModelTrace trace = ReadTrace(line);
    if (form != 1) trace.module.clear();
    if (form == 2) level = 3;
    trace.level = level;
    char const* const text = trace.text.c_str();
    Engine::said.clear();
    Answer const answer = Try([&] {
      if (form == 0) Manager().Printf(VeltLogLevel(level), "%s", text);
      if (form == 1) Manager().Printf(VeltLogLevel(level), VeltInterString(trace.module), "%s", text);
      if (form == 2) Manager().Printf("%s", text);
      return true;
    });
    bool brings_ring_out = false;
    Answer const expected = Expected(trace, nullptr, brings_ring_out);
    CheckEqual(answer == Answer::kOutOfRange, expected == Answer::kOutOfRange, "exception of Printf");
    if (brings_ring_out) WaitForOutput(nullptr);
  }

  void SetBit(Input line, bool is_level) {
    int const index = LevelOf(line.Character());
    bool const on = (line.Byte() & 1U) != 0;
    std::string const module(line.Rest());
    Answer const answer = Try([&] {
      return is_level ? Manager().SetLogLevel(module, VeltLogLevel(index), on)
                      : Manager().SetLogOutput(module, VeltOutputDirection(index), on);
    });
    using Sets = std::pair<ModelSet, ModelSet>;
    CheckAnswer(answer, model_.SetBit(module, is_level ? &Sets::first : &Sets::second, index, on),
                "setting a bit");
  }

  void SetModules(Input line, bool is_registration) {
    bool const from_debug = (line.Byte() & 1U) != 0;
    auto const levels = static_cast<ModelSet>(line.Number(INT32_MAX));
    auto const outputs = static_cast<ModelSet>(line.Number(INT32_MAX));
    std::string const module(line.Rest());
    if (is_registration) {
      CheckEqual(Manager().RegSubModuleInfo(module, Bits(levels), Bits(outputs), from_debug),
                 model_.Register(module, levels, outputs, from_debug), "RegSubModuleInfo");
    } else {
      CheckEqual(Manager().SetAllModuleInfo(Bits(levels), Bits(outputs), from_debug),
                 model_.SetAll(levels, outputs, from_debug), "SetAllModuleInfo");
    }
  }

  void RegisterEngine() {
    std::unique_ptr<Engine> const before(engine_);  // owned by the host again
    engine_ = new Engine;
    Check(!Manager().RegDebugEngine(nullptr), "a null engine is registered");
    Check(Manager().RegDebugEngine(engine_), "RegDebugEngine");
    model_.has_engine = true;
  }

  void UnregisterEngine(Input line) {
    unsigned const which = line.Byte() % 3;
    Engine other;
    VeltDebugEngine* const engine = which == 0   ? engine_
                                    : which == 1 ? static_cast<VeltDebugEngine*>(&other)
                                                 : nullptr;
    bool const registered = engine == (model_.has_engine ? engine_ : nullptr);
    CheckEqual(Manager().UnRegDebugEngine(engine), registered, "UnRegDebugEngine");
    if (registered) engine_ = nullptr;
    if (registered) model_.has_engine = false;
  }

  void CheckState() {
    CheckEqual(Manager().IsInit(), model_.initialised, "IsInit");
    Check(Manager().GetDebugEngine() == (model_.has_engine ? engine_ : nullptr), "GetDebugEngine");
    CheckEqual(Engine::live, engine_ == nullptr ? 0 : 1, "engines that live");
    VeltDebugMgr::ModuleSets all;
    CheckEqual(Manager().GetAllModuleInfo(all), model_.initialised, "GetAllModuleInfo");
    CheckEqual(all.size(), model_.initialised ? model_.config.modules.size() : 0, "number of modules");
    for (auto const& [name, sets] : model_.config.modules) {
      Bits levels;
      Bits outputs;
      Check(Manager().GetSubModuleInfo(name, levels, outputs), "GetSubModuleInfo");
      CheckEqual(levels, Bits(sets.first), "levels of a module");
      CheckEqual(outputs, Bits(sets.second), "outputs of a module");
    }
  }

  Scratch const& scratch_;
  CapturedOutput& output_;
  MemoryFile file_;
  std::string configuration_;
  std::string directory_;
  ModelManager model_;
  Engine* engine_ = nullptr;  // the manager's while the model has one
  int openings_ = 0;
  int serial_ = 0;
};

}  // namespace
}  // namespace velt::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace velt::fuzz;
  static Scratch const scratch;
  static CapturedOutput output;
  Host host(scratch, output);
  Input input(data, size);
  for (int call = 0; call < kMostCalls && !input.AtEnd(); ++call) host.Call(Input(input.Line()));
  return 0;
}
