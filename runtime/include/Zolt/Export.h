// Symbol visibility for the runtime library (Vek and Zolt). The library builds
// with hidden visibility; what its headers declare with these macros is its
// exported interface.
#pragma once

#define VEK_RUNTIME_EXPORT __attribute__((visibility("default")))
#define ZOLT_EXPORT VEK_RUNTIME_EXPORT
#define VEK_EXPORT VEK_RUNTIME_EXPORT
