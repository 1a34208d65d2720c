/* Adjusts the hue of many bands through one buffer: its products are worked out by the first call
 * and used as they stand by the others. */
#include <rast.h>
#include <stdio.h>
#include <string.h>

enum { kWidth = 2480, kLines = 16, kBands = 20 };

static uint8_t planes[3][kWidth * kLines];
static RastHueLut products; /* not built: all of it is 0 */

int main(void) {
  const RastHueParam warmer = {
      .nMatrix = {{268, 0, 0, 0, 0}, {0, 256, 0, 0, 0}, {0, 0, 236, 0, 0}}};
  const RastArea area = {.nLineWidth = kWidth, .nWidth = kWidth, .nHeight = kLines};
  const RastPlaneSet set = {.pIn = {planes[0], planes[1], planes[2]},
                            .pOut = {planes[0], planes[1], planes[2]},
                            .nSize = sizeof planes[0]};
  for (int band = 0; band < kBands; ++band) {
    memset(planes, band * 10, sizeof planes);
    /* The parameters are needed by the first call alone, and not read by the others. */
    if (rastHueAdjust(&area, &set, &warmer, &products) != RAST_OK) return 1;
    printf("gray %3d became %3d %3d %3d\n", band * 10, planes[0][0], planes[1][0], planes[2][0]);
  }
  return 0;
}
