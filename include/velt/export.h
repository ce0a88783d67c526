// Marks what the library exports, and lets the compiler check a host's printf-style calls.
#ifndef VELT_EXPORT_H
#define VELT_EXPORT_H

// On every class, function and variable that hosts may use; everything else is hidden.
#define VELT_EXPORT __attribute__((visibility("default")))

// `fmt` and `first` count parameters from 1; in a member function the object itself is parameter 1.
#define VELT_PRINTF_FORMAT(fmt, first) __attribute__((format(printf, fmt, first)))

#endif
