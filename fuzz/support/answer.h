// The result of a call of the manager: what it returns, or its exception.
#ifndef VELT_FUZZ_SUPPORT_ANSWER_H
#define VELT_FUZZ_SUPPORT_ANSWER_H

#include <stdexcept>

#include "fuzz/model/manager.h"
#include "fuzz/support/check.h"

namespace velt::fuzz {

template <typename Call>
Answer Try(Call call) {
  try {
    return AnswerOf(call());
  } catch (std::out_of_range const&) {
    return Answer::kOutOfRange;
  }
}

inline void CheckAnswer(Answer answer, Answer expected, char const* what) {
  CheckEqual(static_cast<int>(answer), static_cast<int>(expected), what);
}

}  // namespace velt::fuzz

#endif
