#ifndef ORBTDEFINES_H
#define ORBTDEFINES_H

// Symbols of the shared library are hidden by default; ORBT_API marks the
// exported interface.
#if defined(_WIN32)
#  define ORBT_API
#elif defined(__GNUC__) || defined(__clang__)
#  define ORBT_API __attribute__((visibility("default")))
#else
#  define ORBT_API
#endif

#endif
