// Calls of both overlay operations, within what the caller has to keep.
#include <algorithm>
#include <array>

#include "draft.h"
#include "frame/operations.h"
#include "overlay/placement.h"
#include "rast.h"

namespace rast::test {

namespace {

/// A source cursor, from whose start the lowest and the highest read pixel are noted.
struct Cursor {
  ptrdiff_t at = 0;
  ptrdiff_t low = 0;
  ptrdiff_t high = 0;
  bool started = false;

  void beginLine(ptrdiff_t skip) {
    if (started) at += skip;
    started = true;
  }
  void read() {
    low = std::min(low, at);
    high = std::max(high, at + 1);
  }
  void take() {
    read();
    ++at;
  }
  /// The pixels of `size` bytes, with the plane's pointer `start` bytes before the cursor's start.
  Region region(const char* name, size_t k, ptrdiff_t start, ptrdiff_t size) const {
    return {name, k, start + low * size, static_cast<size_t>((high - low) * size)};
  }
};

/// The cover of each pixel that is composed, with `line` before each line's.
template <class Line, class Pixel>
void eachPixel(const Placement& at, Line line, Pixel pixel) {
  for (int32_t y = at.top; y < at.bottom; ++y) {
    line(y);
    for (int32_t x = at.left; x < at.right; ++x) pixel(at.coverAt(x, y));
  }
}

struct OverlayCall {
  explicit OverlayCall(Draft& d) : draft(d) {
    RastOverlayParam& p = param;
    const bool wide = draft.oneIn(16);
    const int32_t widest = wide ? 5000 : 300;
    p.nOutWidth = draft.pick(1, widest);
    p.nOutHeight = draft.pick(1, wide ? 4 : 20);
    area.nWidth = draft.pick(0, widest);
    area.nHeight = draft.pick(0, 20);
    const bool equal = draft.oneIn(4);
    p.nOvlWidth = equal ? area.nWidth : draft.pick(0, widest);
    p.nOvlHeight = equal ? area.nHeight : draft.pick(0, 20);
    // The left edge of the leftmost rectangle and the line where composing begins, the smaller one
    // of the base's column and the overlay's line, stay within the output.
    p.nBaseX = draft.pick(0, draft.oneIn(2) ? std::min(4, p.nOutWidth) : p.nOutWidth);
    p.nBaseY = draft.pick(0, p.nOutHeight + 5);
    p.nOvlX = equal ? p.nBaseX : draft.pick(0, p.nOutWidth);
    p.nOvlY = draft.pick(0, p.nOutHeight);
    if (draft.oneIn(8)) (draft.oneIn(2) ? p.nBaseX : p.nOvlX) += draft.pick(0, 50);
    if (draft.oneIn(8) && p.nBaseX <= p.nOutHeight) p.nOvlY += draft.pick(0, 50);
    area.nLineWidth = area.nWidth + draft.pick(draft.oneIn(8) ? -area.nWidth : 0, 9);
    p.nOvlLineWidth = p.nOvlWidth + draft.pick(draft.oneIn(8) ? -p.nOvlWidth : 0, 9);
    for (int32_t* start : {&area.nStartX, &area.nStartY, &p.nOvlStartX, &p.nOvlStartY})
      *start = draft.oneIn(16) ? draft.any<int32_t>() : draft.pick(0, 5);
    p.nReserved0 = p.nReserved1 = draft.any<uint32_t>();
    for (const uint8_t*& plane : p.pOvl) plane = draft.garbage();
    outPixels = ptrdiff_t{p.nOutWidth} * p.nOutHeight;
  }

  template <class Internal, class Exported, class Target>
  Run run(Internal internal, Exported exported, Target* pTarget, uint32_t planeMode,
          uint32_t blendMode, uint32_t density) {
    param.pOvl[0] = draft.needed(param.pOvl[0]);
    const auto* const pArea = draft.record<int32_t>("RastArea", area);
    const auto* const pParam = draft.record<int32_t>("RastOverlayParam", param, sizeof param.pOvl);
    const auto unreserved = [=, reserved = draft.any<uint32_t>()](
                                const RastArea* a, Target* target, const RastOverlayParam* p,
                                uint32_t planes, uint32_t blend, uint32_t percent, uint32_t white) {
      return exported(a, target, p, planes, reserved, blend, percent, white);
    };
    return draft.call(internal, unreserved, pArea, pTarget, pParam, draft.within(planeMode, 0, 2),
                      blendMode, density, draft.valid<uint32_t>(0, 1));
  }

  Draft& draft;
  RastArea area{};
  RastOverlayParam param{};
  ptrdiff_t outPixels;
};

ptrdiff_t bytesOf(ptrdiff_t pixels) {
  return wrappingMultiply(static_cast<int32_t>(pixels), int32_t{3});
}

}  // namespace

Run drawOverlayRgb(Draft& draft) {
  OverlayCall call(draft);
  Cursor base;
  Cursor overlay;
  eachPixel(
      Placement(call.area, call.param), [](int32_t) {},
      [&](Cover cover) {
        if (cover == Cover::base) overlay.take();
        if (cover == Cover::overlay) base.take();
        if (cover != Cover::both) return;
        overlay.read();
        ++base.at;
      });
  Region in[] = {base.region("base", 0, bytesOf(lineOffset(call.area, 0)), 3),
                 overlay.region("overlay", 0, bytesOf(overlayStart(call.param)), 3)};
  Region out[] = {{"output", 0, 0, static_cast<size_t>(3 * call.outPixels)}};
  draft.arrange(in, out, ptrdiff_t{3} * call.param.nOutWidth, 3 * call.outPixels);
  call.param.pOvl[0] = draft.checkedPointerTo(in[1]);
  const std::array images = {draft.needed(draft.checkedPointerTo(in[0])),
                             draft.needed(out[0].pointer())};
  auto* const ppRgb = draft.record<int32_t>("ppRgb", images, sizeof images);
  // A single plane is refused with an answer of its own.
  const auto planeMode = draft.oneIn(16) ? 2U : draft.pick<uint32_t>(0, 1);
  return call.run(overlayRGB24bpp, rastOverlayRGB24bpp, ppRgb ? ppRgb->data() : nullptr, planeMode,
                  draft.valid<uint32_t>(0, 1), draft.valid<uint32_t>(1, 10));
}

Run drawOverlay(Draft& draft) {
  OverlayCall call(draft);
  const RastOverlayParam& p = call.param;
  const auto planeMode = draft.pick<uint32_t>(0, 2);
  const size_t planes = planeMode == 2 ? 1 : 3;

  // What the output's right edge cuts off is left out of three planes, not of a single one.
  const Placement placement(call.area, p);
  const auto skip = [&](const Span& columns, int32_t pitch, int32_t width) {
    return pitch - (planes == 3 && columns.end > p.nOutWidth ? p.nOutWidth - columns.begin : width);
  };
  const int32_t baseSkip = skip(placement.baseColumns, call.area.nLineWidth, call.area.nWidth);
  const int32_t overlaySkip = skip(placement.overlayColumns, p.nOvlLineWidth, p.nOvlWidth);
  Cursor base;
  Cursor overlay;
  eachPixel(
      placement,
      [&](int32_t y) {
        if (placement.baseLines.holds(y)) base.beginLine(baseSkip);
        if (placement.overlayLines.holds(y)) overlay.beginLine(overlaySkip);
      },
      [&](Cover cover) {
        if (cover == Cover::base || cover == Cover::both) base.take();
        if (cover == Cover::overlay || cover == Cover::both) overlay.take();
      });

  std::vector<Region> in;
  std::vector<Region> out;
  for (size_t k = 0; k < planes; ++k) {
    in.push_back(base.region("pIn", k, lineOffset(call.area, 0), 1));
    out.push_back({"pOut", k, 0, static_cast<size_t>(call.outPixels)});
  }
  for (size_t k = 0; k < planes; ++k) in.push_back(overlay.region("pOvl", k, overlayStart(p), 1));
  draft.arrange(in, out, p.nOutWidth, call.outPixels);
  RastPlaneSet set{};
  for (size_t k = 0; k < 4; ++k) {
    const auto pointerTo = [&](const Region& region) {
      return k == 0 ? draft.checkedPointerTo(region) : draft.pointerTo(region);
    };
    set.pIn[k] = k < planes ? pointerTo(in[k]) : draft.garbage();
    set.pOut[k] = k < planes ? out[k].pointer() : draft.garbage();
    if (k < planes) call.param.pOvl[k] = pointerTo(in[planes + k]);
  }
  set.pIn[0] = draft.needed(set.pIn[0]);
  set.pOut[0] = draft.needed(set.pOut[0]);
  set.nSize = draft.any<int32_t>();
  return call.run(rast::overlay, rastOverlay,
                  draft.record<int32_t>("RastPlaneSet", set, sizeof set), planeMode,
                  draft.valid<uint32_t>(0, 2), draft.valid<uint32_t>(10, 100));
}

}  // namespace rast::test
