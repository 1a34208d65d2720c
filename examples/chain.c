/* Puts a page through a chain, line by line: chain 'satadjust raise : rotate cw' <in.ppm >out.ppm */
#include <inttypes.h>
#include <rast_chain.h>
#include <stdio.h>
#include <stdlib.h>

static int writeLines(void* file, const RastChainLines* lines) {
  const size_t count = fwrite(lines->pPlane[0], (size_t)lines->nPitch, lines->nCount, file);
  return count == lines->nCount ? 0 : 1;
}

int main(int argc, char** argv) {
  RastChainPage in = {.nComponents = 3};
  if (argc != 2 || scanf("P6 %" SCNu32 " %" SCNu32 " 255", &in.nWidth, &in.nHeight) != 2 ||
      getchar() == EOF) {
    fputs("expected a chain, and a binary PPM with maximum value 255\n", stderr);
    return 2;
  }
  const RastChainSettings settings = {.pUser = stdout, .pWriteLines = writeLines};
  RastChainError error = {.sMessage = "the page ends early"};
  RastChain* chain = NULL;
  RastChainPage out;
  uint32_t result = rastChainOpen(argv[1], &settings, &chain, &error);
  if (result == RAST_CHAIN_OK) result = rastChainBegin(chain, &in, &out, &error);
  if (result == RAST_CHAIN_OK) {
    const char kind = out.nComponents == 3 ? '6' : '5';
    printf("P%c\n%" PRIu32 " %" PRIu32 "\n255\n", kind, out.nWidth, out.nHeight);
    const size_t bytes = (size_t)in.nWidth * 3;
    RastChainLines line = {.pPlane = {malloc(bytes)}, .nPitch = (ptrdiff_t)bytes, .nCount = 1};
    while (result == RAST_CHAIN_OK && line.pPlane[0] &&
           fread(line.pPlane[0], bytes, 1, stdin) == 1) {
      result = rastChainWrite(chain, &line, &error);
    }
    free(line.pPlane[0]);
  }
  if (result != RAST_CHAIN_DONE) fprintf(stderr, "%s\n", error.sMessage);
  rastChainClose(chain);
  return result == RAST_CHAIN_DONE && fflush(stdout) == 0 ? 0 : 1;
}
