// Arguments of the form --name value, the result line, and an error exit for a measurement that is not valid.
#ifndef VELT_BENCH_HARNESS_OPTIONS_H
#define VELT_BENCH_HARNESS_OPTIONS_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace velt::bench {

class Options {
 public:
  // The first argument is what to do; the rest are pairs.
  Options(int argc, char** argv);

  std::string const& Action() const { return action_; }
  std::string Text(std::string const& name, std::string const& otherwise) const;
  std::size_t Count(std::string const& name, std::size_t otherwise) const;

  // The scratch directory of this measurement, and the directory in it where only log files are.
  std::string Scratch() const { return Text("dir", "."); }
  std::string LogDirectory() const { return Scratch() + "/log/"; }

 private:
  std::string action_;
  std::map<std::string, std::string> values_;
};

// Collects figures and prints them as one line of JSON.
class Result {
 public:
  void Add(std::string const& name, double value);
  void Print() const;

 private:
  std::vector<std::pair<std::string, double>> figures_;
};

// Says why on standard error and ends the process at once: threads of a logger may still be running.
[[noreturn]] void Fail(std::string const& reason);

}  // namespace velt::bench

#endif
