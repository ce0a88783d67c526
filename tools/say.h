// Prints what the user asked for, and checks that it was printed.
#ifndef VELT_TOOLS_SAY_H
#define VELT_TOOLS_SAY_H

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace velt::tools {

// Writes `text` to standard output. False, with a message that begins with `program` on standard error, when
// not all of it could be written.
inline bool Say(char const* program, std::string const& text) {
  bool const said = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  if (!said) {
    std::fprintf(stderr, "%s: cannot write to standard output: %s\n", program, std::strerror(errno));
  }
  return said;
}

}  // namespace velt::tools

#endif
