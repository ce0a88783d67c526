#include "harness/line.h"

#include <unistd.h>

#include <algorithm>

#include "harness/options.h"

namespace velt::bench {

std::size_t ThreadIdLength(std::size_t width) { return std::max(std::to_string(ThreadId()).size(), width); }

Modules MakeModules(std::size_t rest) {
  constexpr std::size_t kNumberLength = 3;  // "m07"
  if (rest + kNumberLength > kLineLength) Fail("the line has no room for a module name");
  std::size_t const length = kLineLength - rest;
  Modules modules;
  for (std::size_t i = 0; i < kModules; ++i) {
    std::string name = (i < 10 ? "m0" : "m") + std::to_string(i) + "_order_routing_and_delivery";
    name.resize(length);
    modules.at(i) = name;
  }
  return modules;
}

char const* Customer(std::size_t index) {
  static constexpr std::array<char const*, 16> kCustomers = {
      "customer-0017", "customer-0104", "customer-0236", "customer-0377", "customer-0410", "customer-0555",
      "customer-0602", "customer-0791", "customer-0848", "customer-0919", "customer-1023", "customer-1166",
      "customer-1290", "customer-1384", "customer-1475", "customer-1533"};
  return kCustomers[index % kCustomers.size()];
}

long ThreadId() {
  static thread_local long const id = gettid();
  return id;
}

}  // namespace velt::bench
