/* Inverts and turns a small color page through the installed chain library. */
#include <rast_chain.h>
#include <stdio.h>

enum { kWidth = 7, kHeight = 5 };

int main(void) {
  uint8_t page[kHeight][kWidth][3];
  uint8_t turned[kWidth][kHeight][3] = {{{0}}};
  for (int i = 0; i < kHeight * kWidth * 3; ++i) (&page[0][0][0])[i] = (uint8_t)(i * 2);
  RastChain* chain = NULL;
  RastChainError error = {.nCode = RAST_CHAIN_OK};
  const RastChainPage in = {.nWidth = kWidth, .nHeight = kHeight, .nComponents = 3};
  RastChainPage out = {.nWidth = 0};
  RastChainLines linesIn = {{&page[0][0][0]}, sizeof page[0], kHeight, 0};
  RastChainLines linesOut = {{&turned[0][0][0]}, sizeof turned[0], kWidth, 0};
  if (rastChainOpen("colgamma invert : rotate cw", NULL, &chain, &error) != RAST_CHAIN_OK ||
      rastChainBegin(chain, &in, &out, &error) != RAST_CHAIN_OK || out.nWidth != kHeight ||
      rastChainRun(chain, &linesIn, &linesOut, &error) != RAST_CHAIN_DONE) {
    printf("code %u: %s\n", error.nCode, error.sMessage);
    return 1;
  }
  rastChainClose(chain);
  for (int y = 0; y < kWidth; ++y) {
    for (int x = 0; x < kHeight; ++x) {
      for (int c = 0; c < 3; ++c) {
        if (turned[y][x][c] != 255 - page[kHeight - 1 - x][y][c]) {
          printf("column %d, line %d: %d\n", x, y, turned[y][x][c]);
          return 1;
        }
      }
    }
  }
  return 0;
}
