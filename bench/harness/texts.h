// Messages of the kinds that servers write, with numbers that hardly repeat; about 58 characters on average.
#ifndef VELT_BENCH_HARNESS_TEXTS_H
#define VELT_BENCH_HARNESS_TEXTS_H

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "harness/line.h"

namespace velt::bench {

class Texts {
 public:
  explicit Texts(bool varied);  // else the plain ones of every other measurement

  char const* At(std::size_t index) const { return texts_[index % texts_.size()].c_str(); }

 private:
  static std::string Plain(std::size_t i);
  unsigned Below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_); }
  std::string Varied();

  std::mt19937 random_{20'261'115};  // the same texts in every run
  std::vector<std::string> texts_;
};

}  // namespace velt::bench

#endif
