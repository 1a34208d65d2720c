/*
 * librast: raster filters for page images.
 *
 * Every function works on 8-bit sample planes that the caller owns. It checks its arguments in the
 * order given at the function, returns at the first failure with nothing written, and otherwise
 * processes the rectangle line by line, left to right, on the caller's thread. Nothing is kept
 * between calls and nothing is allocated unless the function says so.
 *
 * Addressing. Line r (0 .. nHeight - 1) of the rectangle starts, in every plane of the call, at byte
 * (nStartY + r) * nLineWidth + nStartX from the plane's pointer, computed in 32-bit wrap-around
 * arithmetic and applied as a signed 32-bit value; it covers nWidth consecutive bytes. Nothing is
 * checked against the real size of a plane, and negative starts are taken as they stand: the
 * caller answers for a rectangle that lies inside its planes.
 *
 * Overlap. The result is always the one of the plain order: at each position every input sample is
 * read before any output sample is written, outputs are written in ascending plane order, and
 * positions go from left to right and from top to bottom. An output plane may be the input plane
 * of the same component (in place) at full speed; any other overlap, of planes with each other, with
 * a lookup buffer or with a parameter block, is honoured byte for byte at the speed of plain code. The
 * RastArea, the RastPlaneSet and its pointers are read once, before the first sample.
 *
 * Null pointers. A record or buffer that a function needs and is not given is answered with
 * RAST_ERR_INVALID_ARG at the point where it would first be read.
 *
 * Threads. Every function may run on any number of threads at once as long as no call writes what
 * another one reads or writes.
 */
#ifndef RAST_H
#define RAST_H

#include <stdint.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes, the unsigned 32-bit return value of every function. */
enum {
  RAST_OK = 0,                     /* done */
  RAST_COMPLETE = 16,              /* rotation: the last line is in, or out; stop calling */
  RAST_ERR_GENERIC = 0x8000,       /* a mode that the interface admits but the function refuses */
  RAST_ERR_INVALID_ARG = 0x8001,   /* an argument failed a check; nothing was written */
  RAST_ERR_NO_MEMORY = 0x8004,     /* a working buffer could not be allocated */
  RAST_ERR_NOT_SUPPORTED = 0x8007, /* a mode that the interface names but does not provide */
};

/* The rectangle of a plane that a call processes. */
typedef struct RastArea {
  int32_t nLineWidth; /* line pitch in bytes: from one line of a plane to the next */
  int32_t nStartX;    /* first column */
  int32_t nWidth;     /* number of columns */
  int32_t nStartY;    /* first line */
  int32_t nHeight;    /* number of lines */
} RastArea;

/*
 * The planes of a call: indices 0 to 2 are the three colour components, 3 is the mono plane. Which
 * pointers must be set and which must be null is stated at each function; a pointer that a
 * function neither reads nor checks may hold anything.
 */
typedef struct RastPlaneSet {
  const uint8_t *pIn[4]; /* source planes, only read */
  uint8_t *pOut[4];      /* destination planes */
  int32_t nSize;         /* size of one plane in bytes; only its sign matters: below 1 is refused */
} RastPlaneSet;

/*
 * Pointer-sized objects of the interface, zero at load time. No function reads or writes them.
 */
extern void *fp_prm;
extern void *fpo_c;
extern void *fpo_m;
extern void *fpo_y;
extern void *fpo_k;
extern void *fpi_c;
extern void *fpi_m;
extern void *fpi_y;
extern void *fp_tbl1;
extern void *fp_tbl2;
extern void *fp_tbl3;

/* The threshold-gain curve of rastExpGamma. */
typedef struct RastExpGammaParam {
  uint8_t nThreshold; /* samples less than or equal to this become 0 */
  uint8_t nOffset;    /* output level added above the threshold */
  uint16_t nGain;     /* slope above the threshold in 1/256: 256 is 1.0 */
} RastExpGammaParam;

/*
 * Threshold-gain curve on the mono plane. A sample x at or below nThreshold becomes 0; any other
 * becomes ((x - nThreshold) * nGain >> 8) + nOffset, at most 255. The shift truncates.
 *
 *   pArea    the rectangle
 *   pPlanes  pIn[3] is read, pOut[3] is written; every other plane pointer must be null
 *   pParam   the curve; may be null when pLut holds a built table, and is not read then
 *   pLut     null, or 257 bytes: 0 .. 255 the output for each input sample, 256 the built flag.
 *            Flag 0: the table is filled from pParam, then used. Any other value: the table is
 *            used as it stands. The flag is never written: to reuse a table, the caller sets it.
 *
 * Both ways give the same samples. In place (pOut[3] equal to pIn[3]) is fine.
 *
 * Returns RAST_OK, or RAST_ERR_INVALID_ARG at the first of these that holds:
 *   1. nLineWidth < nStartX + nWidth (the sum wraps at 32 bits)
 *   2. pIn[0], pIn[1] or pIn[2] is set
 *   3. pOut[0], pOut[1] or pOut[2] is set
 *   4. pIn[3] is null; pOut[3] is null
 *   5. nSize < 1; prints one line to standard output
 *   6. nLineWidth < 1; nWidth < 1; nHeight < 1
 *   7. pParam is null, unless pLut holds a built table
 *
 * Threads that share a table build it first, set the flag, and then share it.
 */
uint32_t rastExpGamma(const RastArea *pArea, const RastPlaneSet *pPlanes,
                      const RastExpGammaParam *pParam, uint8_t *pLut);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop

#endif
