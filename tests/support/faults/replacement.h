// How a platform operation is replaced: the test program defines it, asks the gate, and forwards to
// the real one. One operation a file, so that the compiler cannot inline across it; the program is
// linked with -rdynamic, so that the library binds to this definition.
#pragma once

#include <dlfcn.h>

#include "support/faults.h"

#define KIVO_TEST_REAL(name) \
  static const auto real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

// Body of a replacement that fails without doing anything: for what takes memory or changes
// something.
#define KIVO_TEST_FAIL_OR_FORWARD(name, failure, ...) \
  KIVO_TEST_REAL(name);                               \
  if (kivo_test::fault_is_due(#name)) return failure; \
  return real(__VA_ARGS__)

// Body of one that fails after it has written its outputs, which a caller must not trust then: for
// look-ups.
#define KIVO_TEST_FORWARD_THEN_FAIL(name, ...) \
  KIVO_TEST_REAL(name);                        \
  const uint32_t status = real(__VA_ARGS__);   \
  return kivo_test::fault_is_due(#name) ? kivo_test::fault_status() : status
