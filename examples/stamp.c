/* Puts a stamp on a plane of ink: where the stamp is blank, the page shows. */
#include <rast.h>
#include <stdio.h>
#include <string.h>

enum { kWidth = 300, kHeight = 200, kStamp = 60 };

static uint8_t page[kWidth * kHeight];
static uint8_t stamp[kStamp * kStamp];
static uint8_t out[kWidth * kHeight];

int main(void) {
  memset(page, 40, sizeof page);
  /* A frame; the rest of the stamp is 0, which is transparent. */
  for (int y = 0; y < kStamp; ++y) {
    for (int x = 0; x < kStamp; ++x) {
      const int edge = x < 4 || y < 4 || x >= kStamp - 4 || y >= kStamp - 4;
      stamp[y * kStamp + x] = edge ? 220 : 0;
    }
  }
  const RastArea base = {.nLineWidth = kWidth, .nWidth = kWidth, .nHeight = kHeight};
  const RastPlaneSet planes = {.pIn = {page}, .pOut = {out}};
  const RastOverlayParam overlay = {.pOvl = {stamp},
                                    .nOvlLineWidth = kStamp,
                                    .nOvlWidth = kStamp,
                                    .nOvlHeight = kStamp,
                                    .nOvlX = kWidth - kStamp - 10,
                                    .nOvlY = kHeight - kStamp - 10,
                                    .nOutWidth = kWidth,
                                    .nOutHeight = kHeight};
  const uint32_t singlePlane = 2;
  const uint32_t replace = 0;
  const uint32_t percent = 90;
  if (rastOverlay(&base, &planes, &overlay, singlePlane, 0, replace, percent, 0) != RAST_OK) {
    return 1;
  }
  printf("P5\n%d %d\n255\n", kWidth, kHeight);
  return fwrite(out, 1, sizeof out, stdout) == sizeof out && fflush(stdout) == 0 ? 0 : 1;
}
