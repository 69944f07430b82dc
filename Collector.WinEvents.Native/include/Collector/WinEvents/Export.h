// Marks the few declarations that the collector's shared library exports. Everything else in
// the library is built with hidden visibility, so only what carries NATC_COLLECTOR_API (and the
// kernel runtime that the public headers call into) is reachable from outside.
//   class NATC_COLLECTOR_API CSomething { ... };   NATC_COLLECTOR_API void f();
#pragma once

#if defined(_WIN32)
#  if defined(NATC_COLLECTOR_BUILDING)
#    define NATC_COLLECTOR_API __declspec(dllexport)
#  elif defined(NATC_COLLECTOR_STATIC)
#    define NATC_COLLECTOR_API
#  else
#    define NATC_COLLECTOR_API __declspec(dllimport)
#  endif
#else
#  define NATC_COLLECTOR_API __attribute__((visibility("default")))
#endif
