// A moment of tracing as fast as it goes, and what became of the records.
#ifndef EXAMPLES_FLAT_OUT_H
#define EXAMPLES_FLAT_OUT_H

#include <filesystem>

// Traces from four threads without a pause into the family flat_out_ in `log`, with the library's default
// settings, waits until all of it is written, prints the counts of the family and lists the accepted messages
// in `list`, one a line. Throws std::runtime_error when something of that cannot be done.
void TraceFlatOut(std::filesystem::path const& log, std::filesystem::path const& list);

#endif
