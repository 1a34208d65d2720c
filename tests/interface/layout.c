// Pins the binary interface: sizes, offsets and values that programs have compiled in. C and C++
// both compile this file, without any other header before rast.h.
#include "rast.h"

#include <assert.h>
#include <stddef.h>

#define AT(record, member, offset) \
  static_assert(offsetof(record, member) == (offset), #record "." #member)
#define SIZE(record, size) static_assert(sizeof(record) == (size), #record)

enum { kPointer = sizeof(void *) };
static_assert(kPointer == 4 || kPointer == 8, "pointers of 32 or 64 bits");

SIZE(RastArea, 20);
AT(RastArea, nLineWidth, 0);
AT(RastArea, nStartX, 4);
AT(RastArea, nWidth, 8);
AT(RastArea, nStartY, 12);
AT(RastArea, nHeight, 16);

SIZE(RastPlaneSet, kPointer == 8 ? 72 : 36);
AT(RastPlaneSet, pIn, 0);
AT(RastPlaneSet, pOut, 4 * kPointer);
AT(RastPlaneSet, nSize, 8 * kPointer);

SIZE(RastExpGammaParam, 4);
AT(RastExpGammaParam, nThreshold, 0);
AT(RastExpGammaParam, nOffset, 1);
AT(RastExpGammaParam, nGain, 2);

SIZE(RastHueParam, 34);
AT(RastHueParam, nMatrix, 0);
AT(RastHueParam, nReverse, 30);
AT(RastHueParam, nMirror, 32);

SIZE(RastHueLutRow, 3076);
AT(RastHueLutRow, nProd, 0);
AT(RastHueLutRow, nOutOffset, 3072);

SIZE(RastHueLut, 9232);
AT(RastHueLut, row, 0);
AT(RastHueLut, nReverse, 9228);
AT(RastHueLut, nBuilt, 9230);

SIZE(RastColBalanceParam, 10);
AT(RastColBalanceParam, nCurve, 0);
AT(RastColBalanceParam, nLevel, 2);

SIZE(RastOverlayParam, kPointer == 8 ? 88 : 68);
AT(RastOverlayParam, pOvl, 0);
AT(RastOverlayParam, nOvlLineWidth, 4 * kPointer);
AT(RastOverlayParam, nReserved0, 4 * kPointer + 4);
AT(RastOverlayParam, nOvlStartX, 4 * kPointer + 8);
AT(RastOverlayParam, nOvlWidth, 4 * kPointer + 12);
AT(RastOverlayParam, nOvlStartY, 4 * kPointer + 16);
AT(RastOverlayParam, nOvlHeight, 4 * kPointer + 20);
AT(RastOverlayParam, nReserved1, 4 * kPointer + 24);
AT(RastOverlayParam, nBaseX, 4 * kPointer + 28);
AT(RastOverlayParam, nBaseY, 4 * kPointer + 32);
AT(RastOverlayParam, nOvlX, 4 * kPointer + 36);
AT(RastOverlayParam, nOvlY, 4 * kPointer + 40);
AT(RastOverlayParam, nOutWidth, 4 * kPointer + 44);
AT(RastOverlayParam, nOutHeight, 4 * kPointer + 48);

static_assert(RAST_OK == 0, "done");
static_assert(RAST_COMPLETE == 16, "rotation complete");
static_assert(RAST_ERR_GENERIC == 0x8000, "generic");
static_assert(RAST_ERR_INVALID_ARG == 0x8001, "invalid argument");
static_assert(RAST_ERR_NO_MEMORY == 0x8004, "no memory");
static_assert(RAST_ERR_NOT_SUPPORTED == 0x8007, "not supported");

int main(void) {
  void *const objects[] = {fp_prm, fpo_c, fpo_m, fpo_y, fpo_k,   fpi_c,
                           fpi_m,  fpi_y, fp_tbl1, fp_tbl2, fp_tbl3};
  for (size_t i = 0; i < sizeof objects / sizeof *objects; ++i) {
    if (objects[i] != NULL) return 1;
  }
  return rastExpGamma(NULL, NULL, NULL, NULL) == RAST_ERR_INVALID_ARG ? 0 : 1;
}
