// Pins the binary interface: sizes, offsets and values that programs have compiled in. C and C++
// both compile this file, without any other header before rast.h.
#include "rast.h"

#include <assert.h>
#include <stddef.h>

#define AT(record, member, offset) \
  static_assert(offsetof(record, member) == (offset), #record "." #member)
#define SIZE(record, size) static_assert(sizeof(record) == (size), #record)

enum { kPointer = sizeof(void*) };
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

// Records that end in a 32-bit field are padded to whole pointers.
SIZE(RastRotateBand, kPointer == 8 ? 96 : 60);
AT(RastRotateBand, nPlaneNum, 0);
AT(RastRotateBand, pIn, kPointer);
AT(RastRotateBand, pOut, 5 * kPointer);
AT(RastRotateBand, nLines, 9 * kPointer);
AT(RastRotateBand, nOutStartX, 9 * kPointer + 4);
AT(RastRotateBand, nOutStartY, 9 * kPointer + 8);
AT(RastRotateBand, nOutLineWidth, 9 * kPointer + 12);
AT(RastRotateBand, nOutHeight, 9 * kPointer + 16);
AT(RastRotateBand, nReserved, 9 * kPointer + 20);

SIZE(RastRotateBandEntry, 5 * kPointer);
AT(RastRotateBandEntry, pPlane, 0);
AT(RastRotateBandEntry, nLines, 4 * kPointer);

SIZE(RastRotateCtx, kPointer == 8 ? 5208 : 2640);
AT(RastRotateCtx, nPlaneNum, 0);
AT(RastRotateCtx, nOutStartX, 4);
AT(RastRotateCtx, nOutStartY, 8);
AT(RastRotateCtx, nOutLineWidth, 12);
AT(RastRotateCtx, nOutHeight, 16);
AT(RastRotateCtx, nRotWidth, 20);
AT(RastRotateCtx, nRotHeight, 24);
AT(RastRotateCtx, nReserved, 28);
AT(RastRotateCtx, stArea, 32);
AT(RastRotateCtx, nRotate, 52);
AT(RastRotateCtx, stBand, 56);
AT(RastRotateCtx, pCurBand, 56 + 640 * kPointer);
AT(RastRotateCtx, nCurLine, 56 + 641 * kPointer);
AT(RastRotateCtx, nSrcX, 60 + 641 * kPointer);
AT(RastRotateCtx, nOutPos, 64 + 641 * kPointer);
AT(RastRotateCtx, nBandNum, 68 + 641 * kPointer);
AT(RastRotateCtx, nTotalLines, 72 + 641 * kPointer);

SIZE(RastZoomParam, 12);
AT(RastZoomParam, nPlaneNum, 0);
AT(RastZoomParam, nRatioX, 4);
AT(RastZoomParam, nRatioY, 8);

SIZE(RastShiftParam, 20);
AT(RastShiftParam, nShiftX, 0);
AT(RastShiftParam, nShiftY, 4);
AT(RastShiftParam, nOutLineWidth, 8);
AT(RastShiftParam, nOutHeight, 12);
AT(RastShiftParam, nFillMode, 16);

static_assert(RAST_ROTATE_CCW90 == 0, "counter-clockwise");
static_assert(RAST_ROTATE_SAME_SIZE == 1, "same size");
static_assert(RAST_ROTATE_CW90 == 2, "clockwise");

static_assert(RAST_OK == 0, "done");
static_assert(RAST_COMPLETE == 16, "rotation complete");
static_assert(RAST_ERR_GENERIC == 0x8000, "generic");
static_assert(RAST_ERR_INVALID_ARG == 0x8001, "invalid argument");
static_assert(RAST_ERR_NO_MEMORY == 0x8004, "no memory");
static_assert(RAST_ERR_NOT_SUPPORTED == 0x8007, "not supported");

int main(void) {
  void* const objects[] = {fp_prm, fpo_c, fpo_m,   fpo_y,   fpo_k,  fpi_c,
                           fpi_m,  fpi_y, fp_tbl1, fp_tbl2, fp_tbl3};
  for (size_t i = 0; i < sizeof objects / sizeof *objects; ++i) {
    if (objects[i] != NULL) return 1;
  }
  return rastExpGamma(NULL, NULL, NULL, NULL) == RAST_ERR_INVALID_ARG ? 0 : 1;
}
