/* Turns a page clockwise that arrives in bands and leaves in bands: what comes in must stay until
 * all has gone out, what goes out is reused. */
#include <rast.h>
#include <stdio.h>
#include <stdlib.h>

enum { kWidth = 620, kHeight = 877, kInLines = 128, kOutLines = 100 };

/* Stands for a scanner: lines that get lighter downwards, with a dark left margin. */
static void scan(uint8_t* band, int first, int lines) {
  for (int y = 0; y < lines; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      band[y * kWidth + x] = (uint8_t)(x < 20 ? 0 : (first + y) * 255 / kHeight);
    }
  }
}

int main(void) {
  static RastRotateCtx rotation; /* all of it 0: nothing has come in yet */
  static uint8_t page[kHeight * kWidth];
  static uint8_t out[kOutLines * kHeight];
  const RastArea area = {.nLineWidth = kWidth, .nWidth = kWidth, .nHeight = kHeight};
  RastRotateBand band = {.nPlaneNum = 1, .nOutLineWidth = kHeight, .nOutHeight = kWidth};

  uint32_t result = RAST_OK;
  for (int y = 0; result == RAST_OK; y += band.nLines) {
    band.nLines = kHeight - y < kInLines ? kHeight - y : kInLines;
    band.pIn[0] = page + y * kWidth;
    scan(page + y * kWidth, y, band.nLines);
    result = rastRotateInputAccumulate(&area, &band, &rotation, RAST_ROTATE_CW90);
  }
  if (result != RAST_COMPLETE) return 1;

  printf("P5\n%d %d\n255\n", kHeight, kWidth);
  for (int y = 0; y < kWidth; y += band.nLines) {
    band.nLines = kWidth - y < kOutLines ? kWidth - y : kOutLines;
    band.pOut[0] = out;
    result = rastRotateSockOutput(&band, &rotation);
    if (result != RAST_OK && result != RAST_COMPLETE) return 1;
    fwrite(out, kHeight, (size_t)band.nLines, stdout);
  }
  return fflush(stdout) == 0 && result == RAST_COMPLETE ? 0 : 1;
}
