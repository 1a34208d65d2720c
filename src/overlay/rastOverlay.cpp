// Overlay of two images in planes.
#include <string.h>

#include "frame/operations.h"
#include "frame/overlap.h"
#include "overlay/placement.h"

namespace rast {

namespace {

/// A source whose cursor moves line by line, with a skip to the next one.
template <size_t N>
struct Source : Cursor<N> {
  int32_t skip;
  bool started = false;

  /// `visible` columns of each line are consumed.
  Source(const uint8_t* const* image, ptrdiff_t start, int32_t pitch, int32_t visible)
      : Cursor<N>{{}, static_cast<uintptr_t>(start)}, skip(wrappingSubtract(pitch, visible)) {
    for (size_t k = 0; k < N; ++k) this->planes[k] = image[k];
  }
  void beginLine() {
    if (started) this->advance(skip);
    started = true;
  }
};

/// The samples of a line that a rectangle consumes. Three planes leave out the samples that the
/// output's right edge cuts off; a single plane does not and drifts: the interface is so.
template <size_t N>
int32_t visibleWidth(const Span& columns, int32_t width, int32_t outWidth) {
  const bool cut = N == 3 && columns.end > outWidth;
  return cut ? wrappingSubtract(outWidth, columns.begin) : width;
}

template <size_t N>
struct Composition {
  Placement placement;
  Source<N> base;
  Source<N> overlay;
  uint8_t* out[N];
  uint8_t background = 0;
  Blend blend{};

  Composition(const RastArea& area, const RastPlaneSet& planes, const RastOverlayParam& param)
      : placement(area, param),
        base(planes.pIn, lineOffset(area, 0), area.nLineWidth,
             visibleWidth<N>(placement.baseColumns, area.nWidth, param.nOutWidth)),
        overlay(param.pOvl, overlayStart(param), param.nOvlLineWidth,
                visibleWidth<N>(placement.overlayColumns, param.nOvlWidth, param.nOutWidth)) {
    for (size_t k = 0; k < N; ++k) out[k] = planes.pOut[k];
  }

  void fill(size_t samples) {
    if (samples == 0) return;
    for (uint8_t*& plane : out) {
      memset(plane, background, samples);
      plane += samples;
    }
  }

  void beginLine(int32_t y) {
    if (placement.baseLines.holds(y)) base.beginLine();
    if (placement.overlayLines.holds(y)) overlay.beginLine();
  }

  /// After `samples` of the given cover have been written.
  void advance(Cover cover, size_t samples) {
    const auto n = static_cast<ptrdiff_t>(samples);
    if (cover == Cover::base || cover == Cover::both) base.advance(n);
    if (cover == Cover::overlay || cover == Cover::both) overlay.advance(n);
    for (uint8_t*& plane : out) plane += n;
  }
};

namespace definition {

template <size_t N>
void pixel(const Composition<N>& c, Cover cover) {
  uint8_t below[N] = {};
  if (cover == Cover::base || cover == Cover::both) {
    for (size_t k = 0; k < N; ++k) below[k] = *c.base.at(k);
  }
  if (cover == Cover::base || cover == Cover::none) {
    for (size_t k = 0; k < N; ++k) *c.out[k] = cover == Cover::base ? below[k] : c.background;
    return;
  }
  uint8_t weakened[N];
  uint8_t largest = 0;
  for (size_t k = 0; k < N; ++k) {
    weakened[k] = static_cast<uint8_t>((*c.overlay.at(k) * c.blend.scale) >> 8);
    if (weakened[k] > largest) largest = weakened[k];
  }
  const bool transparent = largest < c.blend.threshold;
  for (size_t k = 0; k < N; ++k) {
    const bool baseWins = transparent || (c.blend.maximum && below[k] > weakened[k]);
    *c.out[k] = baseWins ? below[k] : weakened[k];
  }
}

template <size_t N>
void line(Composition<N>& c, int32_t y) {
  for (int32_t x = c.placement.left; x < c.placement.right; ++x) {
    const Cover cover = c.placement.coverAt(x, y);
    pixel(c, cover);
    c.advance(cover, 1);
  }
}

}  // namespace definition

/// From the lowest to the highest offset that a moving cursor has covered.
struct Extent {
  ptrdiff_t at = 0;
  ptrdiff_t low = 0;
  ptrdiff_t high = 0;
  bool started = false;

  void beginLine(int32_t skip) {
    if (started) at += skip;
    started = true;
  }
  void cover(size_t samples) {
    if (at < low) low = at;
    at += static_cast<ptrdiff_t>(samples);
    if (at > high) high = at;
  }
  template <size_t N>
  bool apartFrom(const Cursor<N>& start, const uint8_t* out, size_t outSize) const {
    const auto begin = static_cast<ptrdiff_t>(start.offset + static_cast<uintptr_t>(low));
    const auto size = static_cast<size_t>(high - low);
    for (const uint8_t* plane : start.planes) {
      if (!apart(out, outSize, addressAt(plane, begin), size)) return false;
    }
    return true;
  }
};

/// True when no output touches a source or another output.
template <size_t N>
bool planesApart(const Composition<N>& c) {
  size_t out = 0;
  Extent base;
  Extent overlay;
  compose(
      c.placement, [&](size_t samples) { out += samples; },
      [&](int32_t y) {
        if (c.placement.baseLines.holds(y)) base.beginLine(c.base.skip);
        if (c.placement.overlayLines.holds(y)) overlay.beginLine(c.overlay.skip);
        const Runs runs = c.placement.runsOf(y);
        for (size_t i = 0; i < runs.count; ++i) {
          const auto [cover, length] = runs.run[i];
          out += length;
          if (cover == Cover::base || cover == Cover::both) base.cover(length);
          if (cover == Cover::overlay || cover == Cover::both) overlay.cover(length);
        }
      });
  for (size_t k = 0; k < N; ++k) {
    if (!base.apartFrom(c.base, c.out[k], out)) return false;
    if (!overlay.apartFrom(c.overlay, c.out[k], out)) return false;
    for (size_t other = k + 1; other < N; ++other) {
      if (!apart(c.out[k], out, c.out[other], out)) return false;
    }
  }
  return true;
}

/// A row of the overlay alone, or of the overlay and then the base.
template <size_t N, size_t M>
Row<N, M> rowAt(const Composition<M>& c, size_t width) {
  Row<N, M> row;
  for (size_t k = 0; k < N; ++k) row.in[k] = k < M ? c.overlay.at(k) : c.base.at(k - M);
  for (size_t k = 0; k < M; ++k) row.out[k] = c.out[k];
  row.width = width;
  return row;
}

void run(const Rows& rows, const Composition<3>& c, bool onBase, size_t length) {
  onBase ? rows.overlayOnBase(rowAt<6>(c, length), c.blend)
         : rows.overlay(rowAt<3>(c, length), c.blend);
}

void run(const Rows& rows, const Composition<1>& c, bool onBase, size_t length) {
  onBase ? rows.overlayOnBaseMono(rowAt<2>(c, length), c.blend)
         : rows.overlayMono(rowAt<1>(c, length), c.blend);
}

template <size_t N>
void line(const Rows& rows, Composition<N>& c, int32_t y) {
  const Runs runs = c.placement.runsOf(y);
  for (size_t i = 0; i < runs.count; ++i) {
    const auto [cover, length] = runs.run[i];
    if (cover == Cover::none) {
      c.fill(length);
      continue;
    }
    if (cover == Cover::base) {
      for (size_t k = 0; k < N; ++k) rows.copy(c.out[k], c.base.at(k), length);
    } else {
      run(rows, c, cover == Cover::both, length);
    }
    c.advance(cover, length);
  }
}

constexpr uint8_t kThresholds[] = {16, 0, 1};  // by blend mode
constexpr uint32_t kMaximumMode = 1;

template <size_t N>
void composePlanes(const Rows* rows, Composition<N> c, uint32_t nBlendMode, uint32_t nDensity,
                   uint32_t nBgWhite) {
  c.background = nBgWhite ? 255 : 0;
  c.blend = {static_cast<uint16_t>((nDensity * 256 + 50) / 100), kThresholds[nBlendMode],
             nBlendMode == kMaximumMode};
  const bool served = rows && planesApart(c);
  compose(
      c.placement, [&](size_t samples) { c.fill(samples); },
      [&](int32_t y) {
        c.beginLine(y);
        if (served) {
          line(*rows, c, y);
        } else {
          definition::line(c, y);
        }
      });
}

}  // namespace

uint32_t overlay(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                 const RastOverlayParam* pOvlParam, uint32_t nPlaneMode, uint32_t nBlendMode,
                 uint32_t nDensity, uint32_t nBgWhite) {
  if (!pArea || !pPlanes) return RAST_ERR_INVALID_ARG;
  if (!pOvlParam || nPlaneMode > 2) return RAST_ERR_INVALID_ARG;
  if (nBlendMode > 2) return RAST_ERR_INVALID_ARG;
  if (nDensity < 10 || nDensity > 100 || nBgWhite > 1) return RAST_ERR_INVALID_ARG;
  if (!pOvlParam->pOvl[0]) return RAST_ERR_INVALID_ARG;
  if (!pPlanes->pIn[0]) return RAST_ERR_INVALID_ARG;
  if (!pPlanes->pOut[0]) return RAST_ERR_INVALID_ARG;

  if (nPlaneMode == 2) {
    composePlanes(rows, Composition<1>(*pArea, *pPlanes, *pOvlParam), nBlendMode, nDensity,
                  nBgWhite);
  } else {
    composePlanes(rows, Composition<3>(*pArea, *pPlanes, *pOvlParam), nBlendMode, nDensity,
                  nBgWhite);
  }
  return RAST_OK;
}

}  // namespace rast

uint32_t rastOverlay(const RastArea* pArea, const RastPlaneSet* pPlanes,
                     const RastOverlayParam* pOvlParam, uint32_t nPlaneMode, uint32_t,
                     uint32_t nBlendMode, uint32_t nDensity, uint32_t nBgWhite) {
  return rast::overlay(rast::rows(), pArea, pPlanes, pOvlParam, nPlaneMode, nBlendMode, nDensity,
                       nBgWhite);
}
