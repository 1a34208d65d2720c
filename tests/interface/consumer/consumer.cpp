// The library as a C++ program uses it.
#include <rast.h>

#include <vector>

int main() {
  std::vector<uint8_t> plane(100, 90);
  RastArea area{};
  area.nLineWidth = area.nWidth = 10;
  area.nHeight = 10;
  RastPlaneSet planes{};
  planes.pIn[3] = planes.pOut[3] = plane.data();
  planes.nSize = static_cast<int32_t>(plane.size());
  const RastExpGammaParam param{40, 5, 512};
  if (rastExpGamma(&area, &planes, &param, nullptr) != RAST_OK) return 1;
  return plane == std::vector<uint8_t>(100, 105) ? 0 : 1;
}
