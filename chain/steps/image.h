// An image that a function of the caller's reads, line by line, into a store.
#pragma once

#include <rast_chain.h>

#include "steps/pageStore.h"
#include "steps/step.h"

struct RastChainImage {
  rast::chain::Context& context;
  bool interleaved;  // how the image is to be stored
  rast::chain::StoredPage stored = {};
  bool begun = false;
  bool lacksMemory = false;
};
