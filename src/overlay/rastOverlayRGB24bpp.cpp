// Overlay of two interleaved RGB images.
#include <string.h>

#include "frame/operations.h"
#include "frame/overlap.h"
#include "overlay/placement.h"

namespace rast {

namespace {

constexpr size_t kPixel = 3;

/// The output and the two source cursors, which run on from line to line.
struct Cursors {
  uint8_t* out;
  Cursor<1> base;
  Cursor<1> overlay;
};

void fill(Cursors& at, size_t pixels, uint8_t background) {
  if (pixels == 0) return;
  memset(at.out, background, pixels * kPixel);
  at.out += pixels * kPixel;
}

namespace definition {

void copyPixel(Cursors& at, const uint8_t* from) {
  const uint8_t pixel[kPixel] = {from[0], from[1], from[2]};
  for (const uint8_t sample : pixel) *at.out++ = sample;
}

/// The cursors cross. Pixels that the base alone covers show the overlay; pixels that the overlay
/// alone covers show the base; pixels that both cover repeat one pixel of the overlay, and the
/// base's cursor passes.
void line(Cursors& at, const Placement& placement, int32_t y, uint8_t background) {
  for (int32_t x = placement.left; x < placement.right; ++x) {
    switch (placement.coverAt(x, y)) {
      case Cover::base:
        copyPixel(at, at.overlay.at());
        at.overlay.advance(kPixel);
        break;
      case Cover::overlay:
        copyPixel(at, at.base.at());
        at.base.advance(kPixel);
        break;
      case Cover::both:
        copyPixel(at, at.overlay.at());
        at.base.advance(kPixel);
        break;
      case Cover::none:
        fill(at, 1, background);
        break;
    }
  }
}

}  // namespace definition

/// True when no output byte is also read.
bool sourcesApart(const Cursors& start, const Placement& placement) {
  size_t out = 0;
  size_t base = 0;
  size_t overlay = 1;  // the pixel that a shared stretch shows without consuming it
  compose(
      placement, [&](size_t pixels) { out += pixels; },
      [&](int32_t y) {
        const Runs runs = placement.runsOf(y);
        for (size_t i = 0; i < runs.count; ++i) {
          const auto [cover, length] = runs.run[i];
          out += length;
          if (cover == Cover::base) overlay += length;
          if (cover == Cover::overlay || cover == Cover::both) base += length;
        }
      });
  const auto apartFromOut = [&](const Cursor<1>& source, size_t pixels) {
    const auto begin = static_cast<ptrdiff_t>(source.offset);
    return apart(start.out, out * kPixel, addressAt(source.planes[0], begin), pixels * kPixel);
  };
  return apartFromOut(start.base, base) && apartFromOut(start.overlay, overlay);
}

void copyRun(const Rows& rows, Cursors& at, Cursor<1>& from, size_t size) {
  rows.copy(at.out, from.at(), size);
  at.out += size;
  from.advance(static_cast<ptrdiff_t>(size));
}

/// Writes one pixel again and again, doubling the written pixels each time.
void repeatPixel(Cursors& at, size_t size) {
  memcpy(at.out, at.overlay.at(), kPixel);
  for (size_t done = kPixel; done < size;) {
    const size_t n = size - done < done ? size - done : done;
    memcpy(at.out + done, at.out, n);
    done += n;
  }
  at.out += size;
}

void line(const Rows& rows, Cursors& at, const Placement& placement, int32_t y,
          uint8_t background) {
  const Runs runs = placement.runsOf(y);
  for (size_t i = 0; i < runs.count; ++i) {
    const auto [cover, length] = runs.run[i];
    switch (cover) {
      case Cover::base:
        copyRun(rows, at, at.overlay, length * kPixel);
        break;
      case Cover::overlay:
        copyRun(rows, at, at.base, length * kPixel);
        break;
      case Cover::both:
        repeatPixel(at, length * kPixel);
        at.base.advance(static_cast<ptrdiff_t>(length * kPixel));
        break;
      case Cover::none:
        fill(at, length, background);
        break;
    }
  }
}

/// A pixel offset, which fits 32 bits, in bytes.
uintptr_t bytesOf(ptrdiff_t pixels) {
  return static_cast<uintptr_t>(wrappingMultiply(static_cast<int32_t>(pixels), int32_t{kPixel}));
}

}  // namespace

uint32_t overlayRGB24bpp(const Rows* rows, const RastArea* pArea, uint8_t* const* ppRgb,
                         const RastOverlayParam* pOvlParam, uint32_t nPlaneMode,
                         uint32_t nBlendMode, uint32_t nDensity, uint32_t nBgWhite) {
  if (!pArea || !ppRgb) return RAST_ERR_INVALID_ARG;
  if (!pOvlParam || nPlaneMode > 2) return RAST_ERR_INVALID_ARG;
  if (nBlendMode > 1) return RAST_ERR_INVALID_ARG;
  if (nDensity < 1 || nDensity > 10) return RAST_ERR_INVALID_ARG;
  if (nBgWhite > 1) return RAST_ERR_INVALID_ARG;
  if (!pOvlParam->pOvl[0]) return RAST_ERR_INVALID_ARG;
  if (!ppRgb[0] || !ppRgb[1]) return RAST_ERR_INVALID_ARG;
  if (nPlaneMode == 2) return RAST_ERR_GENERIC;

  const Placement placement(*pArea, *pOvlParam);
  const uint8_t background = nBgWhite ? 255 : 0;
  Cursors at{ppRgb[1],
             {{ppRgb[0]}, bytesOf(lineOffset(*pArea, 0))},
             {{pOvlParam->pOvl[0]}, bytesOf(overlayStart(*pOvlParam))}};
  const bool served = rows && sourcesApart(at, placement);
  compose(
      placement, [&](size_t pixels) { fill(at, pixels, background); },
      [&](int32_t y) {
        if (served) {
          line(*rows, at, placement, y, background);
        } else {
          definition::line(at, placement, y, background);
        }
      });
  return RAST_OK;
}

}  // namespace rast

uint32_t rastOverlayRGB24bpp(const RastArea* pArea, uint8_t* const* ppRgb,
                             const RastOverlayParam* pOvlParam, uint32_t nPlaneMode, uint32_t,
                             uint32_t nBlendMode, uint32_t nDensity, uint32_t nBgWhite) {
  const rast::Rows* const rows = rast::repaid(rast::rows(), pOvlParam);
  return rast::overlayRGB24bpp(rows, pArea, ppRgb, pOvlParam, nPlaneMode, nBlendMode, nDensity,
                               nBgWhite);
}
