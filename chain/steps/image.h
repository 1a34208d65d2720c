// An image that the caller's function reads, line by line, into a stored page.
#pragma once

#include <rast_chain.h>

#include "steps/pageStore.h"
#include "steps/step.h"

struct RastChainImage {
  rast::chain::Context& context;
  bool interleaved;  // form of the stored image
  rast::chain::StoredPage stored = {};
  bool begun = false;
  bool lacksMemory = false;
};
