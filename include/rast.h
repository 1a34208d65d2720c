/**
 * @file
 * librast: raster filters for page images.
 *
 * Every function works on 8-bit sample planes that the caller owns. It checks its arguments in the
 * order given at the function, returns at the first failure with nothing written, and otherwise
 * processes the rectangle line by line, left to right, on the caller's thread. Nothing is kept
 * between calls and nothing is allocated unless the function says so.
 *
 * Addressing. Line r (0 .. nHeight - 1) of the rectangle starts, in every plane of the call, at
 * byte (nStartY + r) * nLineWidth + nStartX from the plane's pointer, computed in 32-bit
 * wrap-around arithmetic and applied as a signed 32-bit value; it covers nWidth consecutive bytes.
 * Nothing is checked against the real size of a plane, and negative starts are taken as they stand:
 * the caller answers for a rectangle that lies inside its planes.
 *
 * Overlap. The result is always the one of the plain order: at each position every input sample is
 * read before any output sample is written, outputs are written in ascending plane order, and
 * positions go from left to right and from top to bottom. An output plane may be the input plane
 * of the same component (in place) at full speed; any other overlap, of planes with each other or
 * of an output with a curve or lookup buffer, is honored byte for byte at the speed of plain code.
 * The RastArea, the RastPlaneSet and the parameter block are read once, before anything is written;
 * curves and lookup buffers are read as each output sample is made. Rotation and reduction have
 * orders of their own, stated there.
 *
 * Null pointers. A record or buffer that a function needs and is not given is answered with
 * RAST_ERR_INVALID_ARG at the point where it would first be read. Plane pointers are checked where
 * the function lists them; any other that it comes to need is the caller's to answer for.
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

/** Result codes, the unsigned 32-bit return value of every function. */
enum {
  RAST_OK = 0,                     /**< done */
  RAST_COMPLETE = 16,              /**< rotation: the last line is in, or out; stop calling */
  RAST_ERR_GENERIC = 0x8000,       /**< a mode that the interface admits but the function refuses */
  RAST_ERR_INVALID_ARG = 0x8001,   /**< an argument failed a check; nothing was written */
  RAST_ERR_NO_MEMORY = 0x8004,     /**< a working buffer could not be allocated */
  RAST_ERR_NOT_SUPPORTED = 0x8007, /**< a mode that the interface names but does not provide */
};

/** The rectangle of a plane that a call processes. */
typedef struct RastArea {
  int32_t nLineWidth; /**< line pitch in bytes: from one line of a plane to the next */
  int32_t nStartX;    /**< first column */
  int32_t nWidth;     /**< number of columns */
  int32_t nStartY;    /**< first line */
  int32_t nHeight;    /**< number of lines */
} RastArea;

/**
 * The planes of a call: indices 0 to 2 are the three color components, 3 is the mono plane. Which
 * pointers must be set and which must be null is stated at each function; a pointer that a
 * function neither reads nor checks may hold anything.
 */
typedef struct RastPlaneSet {
  const uint8_t* pIn[4]; /**< source planes, only read */
  uint8_t* pOut[4];      /**< destination planes */
  int32_t nSize; /**< size of one plane in bytes; only its sign matters: below 1 is refused */
} RastPlaneSet;

/**
 * Pointer-sized objects of the interface, zero at load time. No function reads or writes them.
 */
/** @{ */
extern void* fp_prm;
extern void* fpo_c;
extern void* fpo_m;
extern void* fpo_y;
extern void* fpo_k;
extern void* fpi_c;
extern void* fpi_m;
extern void* fpi_y;
extern void* fp_tbl1;
extern void* fp_tbl2;
extern void* fp_tbl3;
/** @} */

/**
 * Comparison tables for two samples a and b, at [a * 256 + b]: the smaller one, the larger one, and
 * the low 8 bits of the quotient b * 255 / a, truncated (0 where a is 0). For b <= a the last is
 * the ratio b / a on a scale of 0 .. 255: with a the largest and b the range of a pixel's
 * components, its saturation.
 */
/** @{ */
extern const uint8_t g_rastMinCompareTbl[65536];
extern const uint8_t g_rastMaxCompareTbl[65536];
extern const uint8_t g_SatCompareTbl[65536];
/** @} */

/** The threshold-gain curve of rastExpGamma. */
typedef struct RastExpGammaParam {
  uint8_t nThreshold; /**< samples less than or equal to this become 0 */
  uint8_t nOffset;    /**< output level added above the threshold */
  uint16_t nGain;     /**< slope above the threshold in 1/256: 256 is 1.0 */
} RastExpGammaParam;

/**
 * Threshold-gain curve on the mono plane. A sample x at or below nThreshold becomes 0; any other
 * becomes ((x - nThreshold) * nGain >> 8) + nOffset, at most 255. The shift truncates.
 *
 * @param pArea the rectangle
 * @param pPlanes pIn[3] is read, pOut[3] is written; every other plane pointer must be null
 * @param pParam the curve; may be null when pLut holds a built table, and is not read then
 * @param pLut null, or 257 bytes: 0 .. 255 the output for each input sample, 256 the built flag.
 *     Flag 0: the table is filled from pParam, then used. Any other value: the table is used as it
 *     stands. The flag is never written: to reuse a table, the caller sets it.
 *
 * Both ways give the same samples. In place (pOut[3] equal to pIn[3]) is fine.
 *
 * @return RAST_OK, or RAST_ERR_INVALID_ARG at the first of these that holds:
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
uint32_t rastExpGamma(const RastArea* pArea, const RastPlaneSet* pPlanes,
                      const RastExpGammaParam* pParam, uint8_t* pLut);

/**
 * A 256-entry curve applied to the three color planes, or to the mono plane: out = pCurve[in].
 *
 * @param pArea the rectangle
 * @param pPlanes pIn[0] set: three-plane mode, from pIn[0 .. 2] to pOut[0 .. 2]; pIn[3] and pOut[3]
 *     must be null. pIn[0] null: mono mode, from pIn[3] to pOut[3]; no other pointer is looked at.
 * @param pCurve 256 bytes, the output sample for each input sample
 *
 * @return RAST_OK, or RAST_ERR_INVALID_ARG at the first of these that holds:
 *   1. pCurve is null
 *   2. nLineWidth < nStartX + nWidth (the sum wraps at 32 bits)
 *   3. pIn[0] and pIn[3] are both set, or both null
 *   4. mono mode: pOut[3] is null
 *   5. three-plane mode: pOut[3] is set; any of pIn[0 .. 2], pOut[0 .. 2] is null
 *   6. nSize < 1; prints one line to standard output
 *   7. nLineWidth < 1; nWidth < 1; nHeight < 1
 */
uint32_t rastColGamma(const RastArea* pArea, const RastPlaneSet* pPlanes, const uint8_t* pCurve);

/**
 * Two-color conversion. Every pixel is split between a first ink, for neutral pixels, and a second
 * ink, for saturated ones, by a weight that rises with the pixel's saturation up to a limit that
 * depends on its hue. Six built-in color records say what the inks are; in all of them the first
 * ink feeds none of the written planes (neutral pixels come out as 0) and the second carries the
 * pixel's luminance (77 R + 150 G + 29 B) / 256 less 30, times the weight: the weights are those of
 * ITU-R BT.601 (0.299, 0.587, 0.114) in 1/256.
 *
 * @param pArea the rectangle; its width is not held against the line pitch
 * @param pPlanes pIn[0 .. 2] (red, green, blue) are read, pOut[0 .. 2] written; pIn[3] must be
 *     null, pOut[3] is not looked at
 * @param nColor which output planes the second ink feeds: 0: 0; 1: 1; 2: 2; 3: 1 and 2; 4: 0 and 2;
 *     5: 0 and 1. Any other value counts as 0.
 *
 * @return RAST_OK, or RAST_ERR_INVALID_ARG at the first of these that holds:
 *   1. any of pIn[0 .. 2], pOut[0 .. 2] is null
 *   2. pIn[3] is set
 *   3. nSize < 1; prints one line to standard output
 *   4. nLineWidth < 1; nWidth < 1; nHeight < 1
 */
uint32_t rastBinConv(const RastArea* pArea, const RastPlaneSet* pPlanes, uint32_t nColor);

/**
 * Color saturation lowered or raised by a quarter. Each component moves a quarter of the way
 * towards (mode 0) or away from (mode 1) the pixel's gray level Y = (70 c0 + 150 c1 + 29 c2) >> 8,
 * truncating towards zero and clamping to 0 .. 255. The weights add up to 249, not 256: grays get a
 * little darker in mode 0, and in mode 1 the upper ones a little lighter.
 *
 * Within a line every whole group of four pixels comes out mirrored: the result of the group's
 * column x + j is written to column x + 3 - j. All twelve samples of a group are read before any is
 * written. The one, two or three pixels left at the end of a line stay in their columns.
 *
 * @param pArea the rectangle; neither held against the line pitch nor checked for its extent. A
 *     height or width below 1 writes nothing and is no error.
 * @param pPlanes pIn[0 .. 2] (red, green, blue) are read, pOut[0 .. 2] written; pIn[3] must be
 *     null, pOut[3] is not looked at
 * @param nMode 0 lowers, 1 raises
 *
 * @return RAST_OK, or RAST_ERR_INVALID_ARG at the first of these that holds:
 *   1. any of pIn[0 .. 2], pOut[0 .. 2] is null
 *   2. pIn[3] is set
 *   3. nSize < 1; prints one line to standard output
 *   4. nMode > 1; prints one line to standard output
 *   5. pArea is null
 */
uint32_t rastSatAdjust(const RastArea* pArea, const RastPlaneSet* pPlanes, uint32_t nMode);

/** The color matrix of rastHueAdjust. */
typedef struct RastHueParam {
  /** Row k makes output k: [k][0 .. 2] the coefficients of the inputs in 1/256 (256 is 1.0),
   * [k][3] an offset added to input k before it is multiplied, in every row, [k][4] an offset added
   * to output k at the end. */
  int16_t nMatrix[3][5];
  int16_t nReverse; /**< exactly 1: outputs are inverted, 255 - v */
  int16_t nMirror;  /**< not 0: lines are mirrored left to right within the rectangle */
} RastHueParam;

/** One output's part of a RastHueLut. */
typedef struct RastHueLutRow {
  int32_t nProd[3][256]; /**< [j][i] = (i + nMatrix[j][3]) * nMatrix[k][j] for output k */
  int32_t nOutOffset;    /**< nMatrix[k][4] */
} RastHueLutRow;

/** The caller's buffer of products for rastHueAdjust. */
typedef struct RastHueLut {
  RastHueLutRow row[3]; /**< by output */
  int16_t nReverse;     /**< exactly 1: outputs are inverted; set by the caller, never written */
  int16_t nBuilt; /**< 0: the next call fills the rows and sets it to 1; else they are trusted */
} RastHueLut;

/**
 * Hue adjustment by a color matrix. With every input c_j shifted to a_j = c_j + nMatrix[j][3],
 * output k is (a_0 * nMatrix[k][0] + a_1 * nMatrix[k][1] + a_2 * nMatrix[k][2]) / 256 +
 * nMatrix[k][4]: the sum wraps at 32 bits, the division truncates towards zero, the last addition
 * wraps too, and the result is clamped to 0 .. 255 and, on request, inverted. The mono plane uses
 * row 0's first coefficient and offsets alone.
 *
 * @param pArea the rectangle
 * @param pPlanes checked by pIn[3]: set, pOut[3] must be set and nothing else is looked at; null,
 *     all of pIn[0 .. 2] and pOut[0 .. 2] must be set. Computed by pIn[0]: null, mono from pIn[3]
 *     to pOut[3]; set, color from pIn[0 .. 2] to pOut[0 .. 2], whatever pIn[3] holds: a caller who
 *     sets both answers for the six.
 * @param pParam always required, but not read when pLut is built. nReverse and nMirror count only
 *     when pLut is null.
 * @param pLut null: computed from pParam; three trace lines go to standard output first. Set: the
 *     buffer's products and nReverse are used, filled from pParam first if nBuilt is 0; nothing is
 *     mirrored and nothing printed. A built buffer is never compared with pParam.
 *
 * In place is fine unless mirrored: a mirrored line in place reads, in its second half, what its
 * first half has written.
 *
 * @return RAST_OK, or RAST_ERR_INVALID_ARG at the first of these that holds:
 *   1. nLineWidth < nStartX + nWidth (the sum wraps at 32 bits)
 *   2. a plane that pPlanes must have is null
 *   3. nSize < 1
 *   4. pParam is null
 *   5. nLineWidth < 1; nWidth < 1; nHeight < 1
 *
 * Threads that share a buffer build it first.
 */
uint32_t rastHueAdjust(const RastArea* pArea, const RastPlaneSet* pPlanes,
                       const RastHueParam* pParam, RastHueLut* pLut);

/** The curves of rastColBalance. */
typedef struct RastColBalanceParam {
  uint8_t nCurve; /**< 0 .. 4: tone curve of all four channels; 4 is the identity */
  int16_t
      nLevel[4]; /**< 0 .. 11: level of components 0 to 2 and of the gray part. 5 is neutral, a step
                        is 5 sample values; above 5 the curve begins with a ramp from 0; 11 is 10 */
} RastColBalanceParam;

/**
 * Color balance. A pixel is split into its gray part mn, the smallest component, and what each
 * component has above it, scaled to the room left: X' = (X - mn) * 256 / (255 - mn), at most 255
 * (255 where mn is 255). Each passes through its own curve, tone curve then level; the pixel is put
 * together as ((255 - k) * X'' >> 8) + k with k the curved gray part. All divisions truncate.
 *
 * @param pArea the rectangle
 * @param pPlanes pIn[0 .. 2] are read, pOut[0 .. 2] written; pIn[3] and pOut[3] must be null
 * @param pParam always required and checked
 * @param pLut null, or 1025 bytes: the curves of components 0, 1, 2 and of the gray part, 256 bytes
 *     each, then the built flag. Flag 0: the curves are filled and the flag set to 1. Any other
 *     value: the curves are used as they stand.
 *
 * All three outputs of a pixel are made before the first is written. Without pLut pixels are
 * handled in pairs from the start of each line, both read before either is written. Either shows
 * only where planes overlap each other or the buffer.
 *
 * @return RAST_OK, or RAST_ERR_INVALID_ARG at the first of these that holds:
 *   1. nLineWidth < nStartX + nWidth (the sum wraps at 32 bits)
 *   2. any of pIn[0 .. 2], pOut[0 .. 2] is null
 *   3. pIn[3] is set; pOut[3] is set
 *   4. nSize < 1
 *   5. pParam is null
 *   6. nLineWidth < 1; nWidth < 1; nHeight < 1
 *   7. nCurve > 4; any of nLevel[0 .. 3] is outside 0 .. 11
 *
 * Threads that share a buffer build it first.
 */
uint32_t rastColBalance(const RastArea* pArea, const RastPlaneSet* pPlanes,
                        const RastColBalanceParam* pParam, uint8_t* pLut);

/**
 * The overlay image and the placement of both overlay functions. Widths, positions and pitches
 * count pixels: 3 bytes for rastOverlayRGB24bpp, 1 byte of each plane for rastOverlay. A source is
 * read from its start, (nStartX, nStartY) or (nOvlStartX, nOvlStartY), at start line * pitch +
 * start column pixels from its pointer, in 32-bit wrap-around arithmetic, and from there as the
 * function says.
 *
 * Two half-open rectangles in the output: the base at (nBaseX, nBaseY), as large as the RastArea
 * says, and the overlay at (nOvlX, nOvlY). What lies in neither is background: 255 where nBgWhite
 * is 1, else 0.
 *
 * The output is composed from line top = min(nBaseX, nOvlY) on: it is the base's column, not its
 * line, that enters. Above it everything is background, and the sources are at their start there.
 *
 * Nothing of the geometry is checked. The caller keeps positions non-negative, the left edge of the
 * leftmost rectangle within nOutWidth, top within nOutHeight and the rectangles within their
 * buffers.
 */
typedef struct RastOverlayParam {
  const uint8_t* pOvl[4]; /**< interleaved: [0] the image; planes: [0 .. 2]. [3] is never read */
  int32_t nOvlLineWidth;  /**< line pitch of the overlay image */
  uint32_t nReserved0;    /**< not read */
  int32_t nOvlStartX;     /**< first column of the overlay rectangle in its image */
  int32_t nOvlWidth;      /**< its columns */
  int32_t nOvlStartY;     /**< first line of the overlay rectangle in its image */
  int32_t nOvlHeight;     /**< its lines */
  uint32_t nReserved1;    /**< not read */
  int32_t nBaseX;         /**< output column of the base's left edge */
  int32_t nBaseY;         /**< output line of the base's top edge */
  int32_t nOvlX;          /**< output column of the overlay's left edge */
  int32_t nOvlY;          /**< output line of the overlay's top edge */
  int32_t nOutWidth;      /**< output width and line pitch: lines are packed */
  int32_t nOutHeight;     /**< output height in lines */
} RastOverlayParam;

/**
 * Two interleaved RGB images, 3 bytes a pixel, composed into a third. Pixels are copied as they
 * stand.
 *
 * Each source is read as one run of pixels from its start, (nStartX, nStartY) of the base and
 * (nOvlStartX, nOvlStartY) of the overlay: no line pitch is added between lines. A pixel covered by
 * the base alone takes the overlay's next pixel, one covered by the overlay alone the base's next
 * pixel; where both cover, the overlay's next pixel is shown without being consumed, and one pixel
 * of the base is consumed.
 *
 * @param pArea the base image and rectangle, in pixels; none of its fields is checked
 * @param ppRgb [0] the base image, only read; [1] the output, nOutHeight packed lines of nOutWidth
 *     pixels, written completely
 * @param pOvlParam the overlay image and the placement
 * @param nPlaneMode 0 or 1, without difference
 * @param nReserved not read
 * @param nBlendMode 0 or 1, without effect
 * @param nDensity 1 .. 10, without effect
 * @param nBgWhite 0 or 1: the background
 *
 * @return RAST_OK; RAST_ERR_INVALID_ARG at the first of these that holds:
 *   1. pArea or ppRgb is null
 *   2. pOvlParam is null; nPlaneMode > 2
 *   3. nBlendMode > 1
 *   4. nDensity is outside 1 .. 10
 *   5. nBgWhite > 1
 *   6. pOvl[0] is null
 *   7. ppRgb[0] is null
 *   8. ppRgb[1] is null
 * and then RAST_ERR_GENERIC where nPlaneMode is 2, the single plane that only rastOverlay has.
 */
uint32_t rastOverlayRGB24bpp(const RastArea* pArea, uint8_t* const* ppRgb,
                             const RastOverlayParam* pOvlParam, uint32_t nPlaneMode,
                             uint32_t nReserved, uint32_t nBlendMode, uint32_t nDensity,
                             uint32_t nBgWhite);

/**
 * Two images in planes composed into a third. Overlay samples are first weakened to
 * (v * ((nDensity * 256 + 50) / 100)) >> 8; a pixel whose largest weakened sample is below the
 * blend mode's threshold is transparent. Where both images cover, a transparent pixel shows the
 * base and any other the weakened overlay, or with mode 1 the larger of both, sample by sample.
 * Where the overlay covers alone, a transparent pixel is 0 in every plane, whatever the background.
 *
 * Each line within a rectangle takes the source's next line, the first composed one its first. What
 * the output's right edge cuts off a rectangle is left out in every line; except of a single plane,
 * whose lines start as much too early, and by more from line to line.
 *
 * @param pArea the base image and rectangle; none of its fields is checked
 * @param pPlanes pIn[0 .. 2] the base, pOut[0 .. 2] the output, nOutHeight packed lines of
 *     nOutWidth samples each, written completely; only index 0 is checked, and in single-plane mode
 *     only index 0 is used. pIn[3], pOut[3] and nSize are not read.
 * @param pOvlParam the overlay image and the placement
 * @param nPlaneMode 0 or 1: three planes; 2: a single plane
 * @param nReserved not read
 * @param nBlendMode 0: threshold 16; 1: threshold 0 (nothing is transparent), larger of both; 2:
 *     threshold 1
 * @param nDensity 10 .. 100 percent
 * @param nBgWhite 0 or 1: the background
 *
 * @return RAST_OK, or RAST_ERR_INVALID_ARG at the first of these that holds:
 *   1. pArea or pPlanes is null
 *   2. pOvlParam is null; nPlaneMode > 2
 *   3. nBlendMode > 2
 *   4. nDensity is outside 10 .. 100; nBgWhite > 1
 *   5. pOvl[0] is null
 *   6. pIn[0] is null
 *   7. pOut[0] is null
 */
uint32_t rastOverlay(const RastArea* pArea, const RastPlaneSet* pPlanes,
                     const RastOverlayParam* pOvlParam, uint32_t nPlaneMode, uint32_t nReserved,
                     uint32_t nBlendMode, uint32_t nDensity, uint32_t nBgWhite);

/** The rotation modes. */
enum {
  RAST_ROTATE_CCW90 = 0,     /**< a quarter turn counter-clockwise */
  RAST_ROTATE_SAME_SIZE = 1, /**< the input side takes it, the output side does not provide it */
  RAST_ROTATE_CW90 = 2,      /**< a quarter turn clockwise */
};

/**
 * A band of a page: input planes for rastRotateInputAccumulate, output planes for
 * rastRotateSockOutput. The page fields count from the output page's first line and column.
 */
typedef struct RastRotateBand {
  int32_t nPlaneNum;     /**< planes in the band, 1 .. 4 */
  const uint8_t* pIn[4]; /**< input planes at the band's line 0, in the pitch of the RastArea */
  uint8_t* pOut[4];      /**< output planes at the band's line 0 */
  int32_t nLines;        /**< lines in the band; taken as it stands, also below 1 */
  int32_t nOutStartX;    /**< column of the rotated image's left edge */
  int32_t nOutStartY;    /**< line of the rotated image's top */
  int32_t nOutLineWidth; /**< line pitch and width of the output page */
  int32_t nOutHeight;    /**< lines of the output page */
  int32_t nReserved;     /**< copied into the context, without use */
} RastRotateBand;

/** One accumulated input band. */
typedef struct RastRotateBandEntry {
  const uint8_t* pPlane[4]; /**< the band's input planes at its line 0 */
  int32_t nLines;           /**< lines in the band */
} RastRotateBandEntry;

/**
 * A rotation under way, owned by the caller and kept by the two functions. It points into itself
 * and must stay where it is. For each image the caller sets nPlaneNum to 0, best by clearing all of
 * it, and keeps the input bands alive and unchanged until the last output band is written.
 */
typedef struct RastRotateCtx {
  int32_t nPlaneNum;     /**< from the first band; 0: nothing accumulated yet */
  int32_t nOutStartX;    /**< column of the rotated image's left edge */
  int32_t nOutStartY;    /**< line of the rotated image's top */
  int32_t nOutLineWidth; /**< line pitch and width of the output page */
  int32_t nOutHeight;    /**< lines of the output page */
  int32_t nRotWidth;  /**< columns of the rotated image; for a quarter turn the source's height */
  int32_t nRotHeight; /**< lines of the rotated image; for a quarter turn the source's width */
  int32_t nReserved;  /**< from the first band, without use */
  RastArea stArea;    /**< the source rectangle of the first call */
  int32_t nRotate;    /**< the mode of the first call */
  RastRotateBandEntry stBand[128]; /**< the bands so far, in page order */
  RastRotateBandEntry* pCurBand;   /**< the band of the first source line */
  int32_t nCurLine;                /**< the first source line's offset in it */
  int32_t nSrcX;                   /**< the next source column to become an output line */
  int32_t nOutPos;                 /**< output page line at which the next output band starts */
  int32_t nBandNum;                /**< accumulated bands */
  int32_t nTotalLines;             /**< their lines */
} RastRotateCtx;

/**
 * Takes the next input band of a page that is to be turned: records its planes and lines, in page
 * order. No sample is read.
 *
 * @param pArea the source rectangle, its nStartY counted from the first band's line 0. Checked for
 *     null in every call; the first call's values govern.
 * @param pBand the band
 * @param pCtx the rotation
 * @param nRotate the mode; checked in every call, the first call's governs. 3 is taken without a
 *     size check.
 *
 * The first source line is found by comparing nStartY with the lines so far, greater or equal: a
 * line that is the first of a band is found one past the end of the band before. Its offset
 * subtracts one band's lines only, so it is exact in the first two bands.
 *
 * @return RAST_OK: more bands are needed; RAST_COMPLETE: the bands reach the end of the rectangle
 * (further bands are taken and answered the same); or, with nothing changed, RAST_ERR_INVALID_ARG
 * at the first of these that holds:
 *   1. pArea or pBand is null
 *   2. pCtx is null; nRotate > 3
 *   3. pIn[0] is null
 *   4. nPlaneNum is outside 1 .. 4
 *   5. the context is under way with other than 1 .. 4 planes or 0 .. 127 bands
 *   6. first band, quarter turn: nWidth > nOutHeight - nOutStartY; nHeight > nOutLineWidth -
 *      nOutStartX. Mode 1: nWidth > nOutLineWidth - nOutStartX; nHeight > nOutHeight - nOutStartY.
 */
uint32_t rastRotateInputAccumulate(const RastArea* pArea, const RastRotateBand* pBand,
                                   RastRotateCtx* pCtx, uint32_t nRotate);

/**
 * Writes the lines of the turned image that fall into the next output band of the page, in page
 * order. Counter-clockwise, source line r and column c go to line nWidth - 1 - c, column r;
 * clockwise to line c, column nHeight - 1 - r, both counted from (nOutStartX, nOutStartY).
 *
 * @param pBand pOut of each of the context's planes, nLines and nOutLineWidth are read
 * @param pCtx a rotation for which the input side has answered RAST_COMPLETE; by each band nSrcX
 *     and nOutPos move on, also where it has no line
 *
 * A band above the image moves on; one that ends exactly at its top is refused; one that starts
 * above and reaches past its end writes on, beyond the image; one that starts past it changes
 * nothing. Within the band the first line is found with the band's own nOutLineWidth, the following
 * ones with that of the first input band.
 *
 * For each plane in turn one sample is read and written, source line by source line; overlap is
 * honored in that order. A source line in an entry without planes, which a cleared context has
 * after its last band, and those after it are left out.
 *
 * @return RAST_OK; RAST_COMPLETE when, clockwise, the last source column has been written
 * (counter-clockwise never answers it: the caller counts lines); or, with nothing changed:
 *   - RAST_ERR_INVALID_ARG: pBand or pCtx is null; pOut[0] is null; the context has other than
 *     1 .. 4 planes or 0 .. 128 bands; its mode is not one of the three; the band ends exactly at
 *     the image's top
 *   - RAST_ERR_NOT_SUPPORTED: the mode is RAST_ROTATE_SAME_SIZE
 */
uint32_t rastRotateSockOutput(const RastRotateBand* pBand, RastRotateCtx* pCtx);

/** The ratios of rastZoom. */
typedef struct RastZoomParam {
  uint32_t nPlaneNum; /**< 1 .. 3: planes 0 to nPlaneNum - 1 are reduced */
  uint32_t nRatioX;   /**< horizontal ratio in thousandths, 1 .. 25399 */
  uint32_t nRatioY;   /**< vertical ratio in thousandths, 1 .. 25399 */
} RastZoomParam;

/**
 * Reduction by averaging. Source lines, and the samples of a line, are gathered into groups by an
 * accumulator that grows by the ratio and emits at 1000; what is left at the end is a group too. An
 * output sample is the truncated mean of its group, of which the low 8 bits are stored.
 *
 * A group of one adds what the group before it had stored, its sum without its last sample: with
 * ratios of 501 to 999 such an output is the sum of two samples, in 8 bits. At 1000 nothing has
 * been stored and samples are copied. Stored sums wrap at 16 bits.
 *
 * An output line is made when its source lines have been read in all planes; then its samples are
 * written one after the other, each in plane after plane. Overlap is honored in that order.
 *
 * @param pArea the source rectangle; nHeight is the end line, exclusive: lines nStartY to nHeight -
 *     1 are read, none where nHeight <= nStartY
 * @param pPlanes from pIn to pOut. The output is packed: line j of a plane starts at pOut + j * M,
 *     with M the number of samples that a line becomes.
 * @param pParam a ratio above 1000 reads and writes nothing; a vertical one returns RAST_OK at once,
 *     a horizontal one allocates first
 *
 * Allocates working lines and frees them before it returns.
 *
 * @return RAST_OK; RAST_ERR_NO_MEMORY where an allocation failed, with nothing written (where it is
 * one of the sums, the working lines before it stay allocated); or RAST_ERR_INVALID_ARG at the
 * first of these that holds:
 *   1. pParam is null; nPlaneNum is outside 1 .. 3
 *   2. pArea is null; nLineWidth < 1; nWidth < 1; nHeight < 1; nLineWidth < nStartX + nWidth
 *   3. pPlanes is null; for any of the four planes, pIn is set and pOut null; nSize < 1
 *   4. nRatioX is outside 1 .. 25399; nRatioY is outside 1 .. 25399
 */
uint32_t rastZoom(const RastArea* pArea, const RastPlaneSet* pPlanes, const RastZoomParam* pParam);

/** The output page of rastImageShift. */
typedef struct RastShiftParam {
  int32_t nShiftX;       /**< horizontal offset of the rectangle in the output page, in samples */
  int32_t nShiftY;       /**< vertical offset, in lines */
  int32_t nOutLineWidth; /**< width and line pitch of each output plane */
  int32_t nOutHeight;    /**< lines of each output plane */
  uint32_t nFillMode; /**< 0: the rest of the page is left alone; 1: filled with 0; 2: with 255 */
} RastShiftParam;

/**
 * Copies a rectangle into an output page at an offset. What reaches past the page's right or lower
 * edge is left out. A negative offset keeps the rectangle's first columns and lines and drops its
 * last ones; and with a negative nShiftX the lines are counted as for a negative nShiftY, without a
 * top margin and not limited by the page.
 *
 * @param pArea the source rectangle
 * @param pPlanes pIn and pOut of the planes of nPlaneMode; output line j starts at pOut + j *
 *     nOutLineWidth. Outputs must not overlap sources.
 * @param pParam the output page
 * @param nPlaneMode 0: planes 0, 1 and 2; 1: plane 3
 *
 * Offsets beyond the page, a negative nShiftY with a non-negative nShiftX, and lines longer than
 * the page is wide are the caller's to avoid; negative lengths copy and fill nothing.
 *
 * @return RAST_OK, or RAST_ERR_INVALID_ARG at the first of these that holds:
 *   1. pArea is null; nLineWidth < nStartX + nWidth
 *   2. pPlanes is null; pIn[0] and pIn[3] are both null
 *   3. nSize < 1; pParam is null
 *   4. nLineWidth < 1; nWidth < 1; nHeight < 1
 *   5. nWidth + nShiftX < 1; nHeight + nShiftY < 1
 *   6. nPlaneMode > 1; nFillMode > 2
 */
uint32_t rastImageShift(const RastArea* pArea, const RastPlaneSet* pPlanes,
                        const RastShiftParam* pParam, uint32_t nPlaneMode);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop

#endif
