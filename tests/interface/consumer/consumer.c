/* Calls the installed library on a small plane; 100 samples go through vector and tail code. */
#include <rast.h>
#include <stdio.h>

int main(void) {
  uint8_t in[100];
  uint8_t out[100] = {0};
  for (int i = 0; i < 100; ++i) in[i] = (uint8_t)(i * 2);
  const RastArea area = {.nLineWidth = 50, .nStartX = 0, .nWidth = 50, .nStartY = 0, .nHeight = 2};
  const RastPlaneSet planes = {.pIn = {0, 0, 0, in}, .pOut = {0, 0, 0, out}, .nSize = 100};
  const RastExpGammaParam param = {.nThreshold = 40, .nOffset = 5, .nGain = 512};
  if (rastExpGamma(&area, &planes, &param, NULL) != RAST_OK) return 1;
  for (int i = 0; i < 100; ++i) {
    const int curved = (in[i] - 40) * 2 + 5;
    const int expected = in[i] <= 40 ? 0 : curved > 255 ? 255 : curved;
    if (out[i] != expected) {
      printf("sample %d: %d, not %d\n", i, out[i], expected);
      return 1;
    }
  }
  return 0;
}
