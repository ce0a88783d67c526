// The small types that configuration, channels and the manager share.
#ifndef VELT_TYPES_H
#define VELT_TYPES_H

#include <iosfwd>
#include <string>
#include <utility>

#include "velt/export.h"

// A bit index, 0 to 31, into a module's level set. Levels have no order and no names: a level passes when its
// own bit is set. Four of them have a tag in the log line: 0 "A: ", 1 "E: ", 2 "W: ", 3 "I: ".
enum VeltLogLevel : int {};

// A bit index into a module's output set: 0 is standard output, 1 is the log file; 2 to 31 are kept and
// unused.
enum VeltOutputDirection : int {};

// An ASN.1 value of the host that can travel with a trace record.
//
// Threads: Clone runs on the tracing thread; Print runs on the channel's output thread, or on the caller's
//          thread in ASNTrace. Neither is called with a lock of the library held.
class VELT_EXPORT AsnType {
 public:
  virtual ~AsnType() = default;

  // Returns a new heap copy that the caller deletes; null means no value. If it throws, the trace call queues
  // nothing and passes the exception on.
  virtual AsnType* Clone() const = 0;

  // Writes the value to `out`. The two numbers are always 0 and 1. If it throws on an output thread, what it
  // printed until then is kept; in ASNTrace the exception reaches the caller.
  virtual void Print(std::ostream& out, int, int) const = 0;
};

// The module name of one Printf overload. It converts implicitly from std::string, but only explicitly from a
// character array, so that Printf(level, "%s", "x") is a format and its argument, not a module and a format.
class VELT_EXPORT VeltInterString : public std::string {
 public:
  VeltInterString() = default;
  // A copy of `text`. NOLINTBEGIN(google-explicit-constructor): the class exists for this conversion
  VeltInterString(std::string const& text) : std::string(text) {}
  // Moves `text`.
  VeltInterString(std::string&& text) noexcept : std::string(std::move(text)) {}
  // NOLINTEND(google-explicit-constructor)

  // A copy of `text`; null gives the empty name.
  explicit VeltInterString(char const* text) : std::string(text == nullptr ? "" : text) {}
};

#endif
