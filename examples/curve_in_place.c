/* Brightens a gray page in place: reads a binary PGM from standard input, writes one to standard
 * output. */
#include <rast.h>
#include <stdio.h>
#include <stdlib.h>

int main(void) {
  int width = 0;
  int height = 0;
  if (scanf("P5 %d %d 255", &width, &height) != 2 || width < 1 || height < 1 ||
      width > INT32_MAX / height || getchar() == EOF) {
    fputs("expected a binary PGM with maximum value 255\n", stderr);
    return 1;
  }
  const size_t size = (size_t)width * (size_t)height;
  uint8_t* const page = malloc(size);
  if (!page || fread(page, 1, size, stdin) != size) {
    fputs("the page ends early\n", stderr);
    free(page);
    return 1;
  }

  uint8_t curve[256];
  for (int i = 0; i < 256; ++i) curve[i] = (uint8_t)(255 - (255 - i) * (255 - i) / 255);
  const RastArea area = {.nLineWidth = width, .nWidth = width, .nHeight = height};
  const RastPlaneSet planes = {
      .pIn = {0, 0, 0, page}, .pOut = {0, 0, 0, page}, .nSize = width * height};
  const int curved = rastColGamma(&area, &planes, curve) == RAST_OK;

  if (curved) printf("P5\n%d %d\n255\n", width, height);
  const int complete = curved && fwrite(page, 1, size, stdout) == size && fflush(stdout) == 0;
  free(page);
  return complete ? 0 : 1;
}
