// What steps of chains make of whole pages, by calls of librast on whole planes.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "pages.h"

namespace rast::test {

/// Nothing where the operation does not take such a page.
using Reference = std::function<std::optional<Picture>(const Picture&)>;

struct ReferenceStep {
  std::string text;
  Reference apply;
};

/// Steps of every operation with many values of every parameter; `image` gives the overlays, of the
/// kind of the page.
std::vector<ReferenceStep> referenceSteps();

/// The image that overlays of such pages show.
Picture overlayImage(uint32_t components);

}  // namespace rast::test
