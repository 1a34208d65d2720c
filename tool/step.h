// Steps of a chain. A page passes through them line by line: each step draws lines from the one
// before it when lines are drawn from it.
#ifndef RAST_TOOL_STEP_H
#define RAST_TOOL_STEP_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <numeric>
#include <optional>
#include <string>

#include "input.h"
#include "meter.h"
#include "page.h"
#include "planes.h"

class PageSource {
 public:
  virtual ~PageSource() = default;
  virtual const PageHead& head() const = 0;
  // The next lines, packed, to one plane of a gray page or three of a colour page. With the last
  // ones, the page before this step is drawn to its end too.
  virtual void draw(Planes planes, std::uint32_t lines) = 0;
};

// What a step stands in.
struct Place {
  const Input& in;
  const char* operation;
  std::uint32_t wantedLines;  // of a band; 0: as many as are quick
  std::size_t bands;          // how many are in work at once
  Meter& meter;

  std::uint32_t bandLines(const PageHead& head, std::uint32_t wanted) const {
    return ::bandLines(in, head, wanted, bands);
  }
  // Makes a call to the library, of which a result other than success is a failure.
  void call(std::uint64_t line, const std::function<std::uint32_t()>& function) const;
};

class Step {
 public:
  virtual ~Step() = default;
  // The page that becomes of a page. Refuses what the library leaves to its caller to avoid.
  virtual std::unique_ptr<PageSource> on(std::unique_ptr<PageSource> page, const Place& place) = 0;
};

constexpr std::uint32_t wholeRatio = 1000;

// What so many samples or lines become: an accumulator grows by the ratio with each, at 1000 one is
// done, and what is left at the end is one too.
constexpr std::uint32_t reduced(std::uint32_t count, std::uint32_t ratio) {
  return static_cast<std::uint32_t>((count - 1) * std::uint64_t{ratio} / wholeRatio) + 1;
}

// An operation on bands.
struct Filter {
  // From the input planes of a band to its output planes, which lie apart; keeps what it needs from
  // band to band.
  std::function<std::uint32_t(const RastArea&, const RastPlaneSet&)> apply;
  // What becomes of the page's columns and lines, in thousandths: at most 1000.
  std::uint32_t ratioX = wholeRatio;
  std::uint32_t ratioY = wholeRatio;

  // After so many lines the accumulator is back at 0: bands of as many, or a multiple, give what
  // the whole page gives.
  std::uint32_t unitLines() const { return wholeRatio / std::gcd(wholeRatio, ratioY); }
};

std::unique_ptr<Step> bandStep(const Filter& filter);

// Colour to gray, by ITU-R BT.601 luma; gray pages pass.
std::unique_ptr<Step> grayStep();

struct Position {
  std::int32_t x;
  std::int32_t y;
};

// Of an output page, if not that of the page it is made of.
struct Size {
  std::uint32_t width;
  std::uint32_t height;
};

struct OverlaySettings {
  std::string path;
  std::optional<std::uint8_t> flatten;  // the background below a transparent overlay
  Position at;                          // of the overlay
  Position base;                        // of the page
  std::optional<Size> size;
  std::uint32_t mode;
  std::uint32_t density;
  std::uint32_t white;  // 1: the background is white
};

std::unique_ptr<Step> overlayStep(const OverlaySettings& settings);
std::unique_ptr<Step> overlayRgbStep(const OverlaySettings& settings);

std::unique_ptr<Step> rotateStep(std::uint32_t mode);

std::unique_ptr<Step> shiftStep(Position by, std::optional<Size> size, std::uint32_t fill);

// The head of a page that becomes of another one. Refuses positions that the library's 32-bit
// columns and lines do not reach.
PageHead resizedHead(const Input& in, const PageHead& page, const std::optional<Size>& size);
void checkEnd(const Input& in, const char* what, std::int64_t start, std::uint32_t length);

#endif
