// A value whose Print shows that the output thread has come to its record.
#ifndef VELT_FUZZ_SUPPORT_BELL_H
#define VELT_FUZZ_SUPPORT_BELL_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>

#include "velt/types.h"

#include "fuzz/support/check.h"

namespace velt::fuzz {

class Bell : public AsnType {
 public:
  Bell() : tower_(&own_) {}
  Bell(Bell const& other) : AsnType(other), tower_(other.tower_) {}
  Bell& operator=(Bell const&) = delete;

  AsnType* Clone() const override { return new Bell(*this); }
  void Print(std::ostream& out, int, int) const override {
    out << kSound;
    std::lock_guard<std::mutex> const lock(tower_->mutex);
    tower_->rung = true;
    tower_->changed.notify_all();
  }
  void Wait() {
    std::unique_lock<std::mutex> lock(own_.mutex);
    Check(own_.changed.wait_for(lock, std::chrono::seconds(60), [this] { return own_.rung; }),
          "a record was not dealt with in a minute");
  }

  inline static std::string const kSound = "ding";

 private:
  struct Tower {
    std::mutex mutex;
    std::condition_variable changed;
    bool rung = false;
  };
  Tower own_;
  Tower* tower_;  // of the bell that this one is a copy of
};

// A value of a given text, for records that carry one.
class Value : public AsnType {
 public:
  explicit Value(std::string text) : text_(std::move(text)) {}
  AsnType* Clone() const override { return new Value(text_); }
  void Print(std::ostream& out, int, int) const override { out << text_; }

 private:
  std::string text_;
};

}  // namespace velt::fuzz

#endif
