// The short trace functions, all under the module "MRB".
#include <array>
#include <atomic>
#include <cstdarg>
#include <string>

#include "velt/config.h"
#include "velt/manager.h"
#include "velt/process.h"

#include "platform/message_format.h"

namespace {

constexpr char const* kModule = "MRB";
constexpr char const* kPrintKey = "EnablePrint";
constexpr char const* kLogKey = "EnableLog";
constexpr VeltLogLevel kLevel{2};
constexpr std::size_t kMessageCapacity = 2048;

// Two threads may both read the file at first use; they store the same values.
std::atomic<bool> loaded{false};  // stored with release after the switches, loaded with acquire before them
std::atomic<bool> print_enabled{false};
std::atomic<bool> log_enabled{true};

void LoadSwitch(char const* key, std::atomic<bool>& enabled) {
  int value = 0;
  if (VeltGetCfgInt(key, value, VeltGetDefaultCfgFile().c_str()))
    enabled.store(value != 0, std::memory_order_relaxed);
}

void TraceUnderModule(VeltLogLevel level, char const* text, bool print, bool log) {
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  if (manager == nullptr) return;  // its lock failed; these functions report no errors
  manager->Trace(kModule, level, text, nullptr, print, log);
}

}  // namespace

void VeltMrbTraceSatus() {
  if (loaded.load(std::memory_order_acquire)) return;
  LoadSwitch(kPrintKey, print_enabled);
  LoadSwitch(kLogKey, log_enabled);
  loaded.store(true, std::memory_order_release);  // even without a file: it is looked for only once
}

void VeltMrbTrace(char const* text, int print, int log) {
  TraceUnderModule(kLevel, text, print != 0, log != 0);
}

void VeltOutputFrmtString(char const* format, ...) {
  std::array<char, kMessageCapacity> message;
  std::va_list args;
  va_start(args, format);
  (void)velt::FormatMessage(message.data(), message.size(), format, args);  // an empty message is traced too
  va_end(args);
  VeltOutputString_i(message.data());
}

void VeltOutputMrbLog(VeltLogLevel level, char const* format, ...) {
  std::array<char, kMessageCapacity> message;
  std::va_list args;
  va_start(args, format);
  (void)velt::FormatMessage(message.data(), message.size(), format, args);
  va_end(args);
  VeltMrbTraceSatus();
  TraceUnderModule(level, message.data(), print_enabled.load(std::memory_order_relaxed),
                   log_enabled.load(std::memory_order_relaxed));
}

void VeltOutputString_i(char const* text) {
  VeltMrbTraceSatus();
  VeltMrbTrace(text, print_enabled.load(std::memory_order_relaxed) ? 1 : 0,
               log_enabled.load(std::memory_order_relaxed) ? 1 : 0);
}
