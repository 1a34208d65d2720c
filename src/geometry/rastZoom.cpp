// Reduction by averaging.
#include <stdlib.h>
#include <string.h>

#include "frame/frame.h"
#include "frame/operations.h"

namespace rast {
uint32_t zoom(const Rows*, const RastArea*, const RastPlaneSet*, const RastZoomParam*) { return 0; }
}
uint32_t rastZoom(const RastArea* pArea, const RastPlaneSet* pPlanes, const RastZoomParam* pParam) {
  return rast::zoom(rast::rows(), pArea, pPlanes, pParam);
}
