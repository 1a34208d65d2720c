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

#include "formats/input.h"
#include "formats/page.h"
#include "progress/meter.h"
#include "steps/planes.h"

class PageSource {
 public:
  virtual ~PageSource() = default;
  virtual const PageHead& head() const = 0;
  // How many lines are quick to draw at a time.
  virtual std::uint32_t quickLines() const { return ::quickLines(head()); }

  // The next lines, packed, to one plane of a gray page or three of a colour page. With the last
  // ones, the page before this step is drawn to its end too.
  void draw(Planes planes, std::uint32_t lines) {
    while (lines > 0) {
      const std::uint32_t count = drawSome(planes, lines);
      planes.advance(std::size_t{count} * head().width);
      lines -= count;
    }
  }

 private:
  // How many lines were drawn: one at least, not more than so many.
  virtual std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) = 0;
};

// What a step stands in.
struct StepContext {
  const Input& in;
  const char* operation;
  std::string label;          // begins messages; empty for an operation that is alone
  std::uint32_t wantedLines;  // of a band; 0: as many as are quick
  Meter& meter;

  std::uint32_t bandLines(const PageHead& head) const { return ::bandLines(in, head, wantedLines); }

  // Refuses what is wanted of the page.
  template <class... Parts>
  [[noreturn]] void refuse(ExitCode code, const Parts&... parts) const {
    in.fail(code, 0, label, parts...);
  }

  // Makes a call to the library, of which a result other than success is a failure.
  template <class Call>
  void call(std::uint64_t line, const Call& function) const {
    const std::uint32_t result = meter.inLibrary(function);
    if (result == RAST_OK) return;
    in.fail(ExitCode::runTime, line, operation, " failed with result 0x", hexadecimal(result));
  }

  // The head of a page of another size that becomes of a page.
  PageHead outputHead(const PageHead& from, std::uint64_t width, std::uint64_t height) const;
};

class Step {
 public:
  virtual ~Step() = default;
  // The page that becomes of a page. Refuses what the library leaves to its caller to avoid.
  virtual std::unique_ptr<PageSource> on(std::unique_ptr<PageSource> page,
                                         const StepContext& context) = 0;
};

constexpr std::uint32_t wholeRatio = 1000;

// What so many samples or lines become: an accumulator grows by the ratio with each, at 1000 one is
// done, and what is left at the end is one too.
constexpr std::uint32_t reduced(std::uint32_t count, std::uint32_t ratio) {
  return static_cast<std::uint32_t>((count - 1) * std::uint64_t{ratio} / wholeRatio) + 1;
}

// An operation on bands.
struct Filter {
  // From the input planes of a band to its output planes; keeps what it needs from band to band.
  std::function<std::uint32_t(const RastArea&, const RastPlaneSet&)> apply;
  // Whether these may be the same, which saves a band. Where not, they lie apart.
  bool inPlace = false;
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

PageHead resizedHead(const StepContext& context, const PageHead& page,
                     const std::optional<Size>& size);
// Refuses positions that the library's 32-bit columns and lines do not reach.
void checkEnd(const StepContext& context, const char* what, std::int64_t start,
              std::uint32_t length);

#endif
