// Whole-render suites run again on several threads (CTest sets
// TARVO_TEST_THREADS): the same bytes, the same faults, the same stops.
#pragma once

#include <stdlib.h>

#include "module.h"

namespace tarvo::host {

// Asks the module for TARVO_TEST_THREADS threads when it is set; returns
// the count in effect.
inline int32_t RequestTestThreads(Module& module) {
  const char* env = getenv("TARVO_TEST_THREADS");
  return module.RequestThreads(env && *env ? atoi(env) : 1);
}

}  // namespace tarvo::host
