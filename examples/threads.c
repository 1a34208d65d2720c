/* Balances the colors of a page on four threads, a band of lines each. They share the curves, which
 * a first call has built. */
#include <pthread.h>
#include <rast.h>
#include <stdio.h>

enum { kWidth = 1240, kHeight = 1754, kThreads = 4, kCurves = 1025 };

static uint8_t planes[3][kWidth * kHeight];
static uint8_t curves[kCurves];
static const RastColBalanceParam balance = {.nCurve = 1, .nLevel = {6, 5, 4, 5}};

static uint32_t adjust(int first, int lines) {
  const RastArea area = {
      .nLineWidth = kWidth, .nWidth = kWidth, .nStartY = first, .nHeight = lines};
  const RastPlaneSet set = {.pIn = {planes[0], planes[1], planes[2]},
                            .pOut = {planes[0], planes[1], planes[2]},
                            .nSize = kWidth * kHeight};
  return rastColBalance(&area, &set, &balance, curves);
}

static void* work(void* band) {
  const int k = *(const int*)band;
  const int first = 1 + (kHeight - 1) * k / kThreads;
  const int end = 1 + (kHeight - 1) * (k + 1) / kThreads;
  return adjust(first, end - first) == RAST_OK ? band : NULL;
}

int main(void) {
  for (int i = 0; i < kWidth * kHeight; ++i) {
    for (int k = 0; k < 3; ++k) planes[k][i] = (uint8_t)(i / kWidth * (k + 1) / 21);
  }
  if (adjust(0, 1) != RAST_OK) return 1; /* builds the curves */

  pthread_t threads[kThreads];
  int bands[kThreads];
  for (int k = 0; k < kThreads; ++k) {
    bands[k] = k;
    if (pthread_create(&threads[k], NULL, work, &bands[k]) != 0) return 1;
  }
  int complete = 1;
  for (int k = 0; k < kThreads; ++k) {
    void* done = NULL;
    complete &= pthread_join(threads[k], &done) == 0 && done != NULL;
  }
  const int last = kWidth * kHeight - 1;
  printf("the last pixel is %d %d %d\n", planes[0][last], planes[1][last], planes[2][last]);
  return complete ? 0 : 1;
}
