// Marks what leaves the library, and lets the compiler check printf-style calls of a host.
#ifndef VELT_EXPORT_H
#define VELT_EXPORT_H

// Stands on every class, function and datum that hosts may use; everything else stays hidden.
#define VELT_EXPORT __attribute__((visibility("default")))

// `fmt` and `first` count parameters from 1; in a member function the object itself is parameter 1.
#define VELT_PRINTF_FORMAT(fmt, first) __attribute__((format(printf, fmt, first)))

#endif
