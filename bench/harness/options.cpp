#include "harness/options.h"

#include <cstdio>
#include <cstdlib>

namespace velt::bench {

Options::Options(int argc, char** argv) : action_(argc > 1 ? argv[1] : "") {
  for (int i = 2; i < argc; i += 2) {
    std::string const name = argv[i];
    if (name.rfind("--", 0) != 0 || i + 1 == argc) Fail("expected pairs of --name value, not " + name);
    values_[name.substr(2)] = argv[i + 1];
  }
}

std::string Options::Text(std::string const& name, std::string const& otherwise) const {
  auto const found = values_.find(name);
  return found == values_.end() ? otherwise : found->second;
}

std::size_t Options::Count(std::string const& name, std::size_t otherwise) const {
  auto const found = values_.find(name);
  return found == values_.end() ? otherwise : std::stoul(found->second);
}

void Result::Add(std::string const& name, double value) { figures_.emplace_back(name, value); }

void Result::Print() const {
  char const* separator = "{";
  for (auto const& [name, value] : figures_) {
    std::printf("%s\"%s\": %.6g", separator, name.c_str(), value);
    separator = ", ";
  }
  std::puts("}");
  (void)std::fflush(stdout);  // without a reader there is nobody to report to
}

void Fail(std::string const& reason) {
  std::fprintf(stderr, "benchmark failed: %s\n", reason.c_str());
  (void)std::fflush(stdout);
  std::_Exit(1);
}

}  // namespace velt::bench
