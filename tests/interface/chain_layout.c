// Pins the binary interface of the chain library: sizes, offsets and values that programs have
// compiled in. C and C++ both compile this file, without any other header before rast_chain.h.
#include "rast_chain.h"

#include <assert.h>

#define AT(record, member, offset) \
  static_assert(offsetof(record, member) == (offset), #record "." #member)
#define SIZE(record, size) static_assert(sizeof(record) == (size), #record)

enum { kPointer = sizeof(void*) };
static_assert(kPointer == 4 || kPointer == 8, "pointers of 32 or 64 bits");

// 32-bit x86 aligns members of 64 bits to 32.
struct Aligned {
  uint8_t nFirst;
  uint64_t nLong;
};
enum { kLong = offsetof(struct Aligned, nLong) };

SIZE(RastChainError, 616 + kLong);
AT(RastChainError, nCode, 0);
AT(RastChainError, nStep, 4);
AT(RastChainError, nLine, 8);
AT(RastChainError, nBegin, 12);
AT(RastChainError, nEnd, 16);
AT(RastChainError, nNeeded, 16 + kLong);
AT(RastChainError, sOperation, 24 + kLong);
AT(RastChainError, sSuggestion, 40 + kLong);
AT(RastChainError, sMessage, 104 + kLong);

SIZE(RastChainPage, 48 + kLong);
AT(RastChainPage, nWidth, 0);
AT(RastChainPage, nHeight, 4);
AT(RastChainPage, nComponents, 8);
AT(RastChainPage, nTurns, 12);
AT(RastChainPage, nResolutionX, 16);
AT(RastChainPage, nResolutionY, 24);
AT(RastChainPage, nMemory, 32);
AT(RastChainPage, nTaken, 40);
AT(RastChainPage, nLines, 48);

SIZE(RastChainLines, 5 * kPointer + 8);
AT(RastChainLines, pPlane, 0);
AT(RastChainLines, nPitch, 4 * kPointer);
AT(RastChainLines, nCount, 5 * kPointer);
AT(RastChainLines, nPlanar, 5 * kPointer + 4);

SIZE(RastChainSettings, (kLong + 16 + 5 * kPointer + kLong - 1) / kLong * kLong);
AT(RastChainSettings, nSize, 0);
AT(RastChainSettings, nMemory, kLong);
AT(RastChainSettings, nLines, kLong + 8);
AT(RastChainSettings, nGray, kLong + 12);
AT(RastChainSettings, nFiles, kLong + 16);
AT(RastChainSettings, pFolder, kLong + 16 + kPointer);
AT(RastChainSettings, pUser, kLong + 16 + 2 * kPointer);
AT(RastChainSettings, pReadImage, kLong + 16 + 3 * kPointer);
AT(RastChainSettings, pWriteLines, kLong + 16 + 4 * kPointer);

static_assert(RAST_CHAIN_OK == 0, "more lines");
static_assert(RAST_CHAIN_DONE == 1, "the page is complete");
static_assert(RAST_CHAIN_ERR_TEXT == 2, "the text");
static_assert(RAST_CHAIN_ERR_PAGE == 3, "the size of the page");
static_assert(RAST_CHAIN_ERR_UNSUPPORTED == 4, "the kind of the page");
static_assert(RAST_CHAIN_ERR_MEMORY == 5, "memory");
static_assert(RAST_CHAIN_ERR_FILE == 6, "a file");
static_assert(RAST_CHAIN_ERR_CALLER == 7, "a function of the caller");
static_assert(RAST_CHAIN_ERR_USE == 8, "the call");
static_assert(RAST_CHAIN_NO_BACKGROUND == -1, "no background");

int main(void) {
  RastChainError error;
  if (rastChainOpen(NULL, NULL, NULL, &error) != RAST_CHAIN_ERR_USE) return 1;
  rastChainClose(NULL);
  return error.nCode == RAST_CHAIN_ERR_USE && error.sMessage[0] != '\0' ? 0 : 1;
}
