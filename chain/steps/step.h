// Steps of a chain. A page passes through the steps line by line: when lines are drawn from a step,
// the step draws lines from the step before it, and the first step draws the lines of the caller.
#pragma once

#include <rast_chain.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "operations/refusal.h"
#include "steps/planes.h"

namespace rast::chain {

using Page = RastChainPage;

inline const char* kindOf(std::uint32_t components) {
  return components == 1 ? "gray" : components == 3 ? "color" : "CMYK";
}

inline std::uint64_t lineSamples(const Page& page) {
  return std::uint64_t{page.nWidth} * page.nComponents;
}

inline std::uint32_t quickLines(const Page& page) { return quickLines(lineSamples(page)); }

// State that the steps of a page share.
struct Context {
  std::uint32_t wantedLines = 0;   // of a band; 0: as many as are quick
  std::string folder;              // of temporary files
  std::optional<Refusal> refused;  // the first failure

  // The step that is at work.
  struct Work {
    std::size_t step = 0;
    const char* operation = "";
  };
  Work work;

  // Lines of a band of this page: the wanted ones or else the quick ones, within the page.
  std::uint32_t bandLines(const Page& page, std::uint32_t quick) const {
    return std::min(wantedLines != 0 ? wantedLines : quick, page.nHeight);
  }
  bool failed() const { return refused.has_value(); }
  template <class... Parts>
  void refuse(std::uint32_t code, const Parts&... parts) {
    refuse(refusal(code, parts...));
  }
  void refuse(Refusal refused);
};

class LineSource {
 public:
  virtual ~LineSource() = default;
  const Page& page() const { return page_; }

  // Draws up to `lines` of the next lines to packed planes. Returns their number: 0 where the
  // caller must hand in lines first, at the end of the page, and after a failure.
  std::uint32_t draw(const Planes& planes, std::uint32_t lines) {
    lines = std::min(lines, left());
    if (lines == 0) return 0;
    const Context::Work before = std::exchange(context_.work, work_);
    const std::uint32_t count = drawSome(planes, lines);
    context_.work = before;
    done_ += count;
    return count;
  }

  // Draws to the planes until they hold `wanted` lines, of which `gathered` are there. False where the
  // caller must hand in lines first, and after a failure.
  bool gather(const Planes& planes, std::uint32_t& gathered, std::uint32_t wanted) {
    while (gathered < wanted) {
      const Planes rest = planes.from(std::size_t{gathered} * page_.nWidth);
      const std::uint32_t count = draw(rest, wanted - gathered);
      if (count == 0) return false;
      gathered += count;
    }
    return true;
  }

 protected:
  // The lines belong to the step that is at work now.
  LineSource(const Page& page, Context& context)
      : context_(context), page_(page), work_(context.work) {}

  // Calls the library. A failure other than a lack of memory is a mistake of the step.
  template <class Call>
  bool succeeds(const Call& call) {
    const std::uint32_t result = call();
    if (result == RAST_OK || result == RAST_COMPLETE) return true;
    Refusal refused = result == RAST_ERR_NO_MEMORY
                          ? refusal(RAST_CHAIN_ERR_MEMORY, "not enough memory")
                          : refusal(RAST_CHAIN_ERR_USE, work_.operation, " failed with result 0x",
                                    hexadecimal(result));
    refused.line = done_ + 1;
    context_.refuse(std::move(refused));
    return false;
  }

  Context& context_;
  std::uint32_t done() const { return done_; }
  std::uint32_t left() const { return page_.nHeight - done_; }

 private:
  virtual std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) = 0;

  Page page_;
  Context::Work work_;
  std::uint32_t done_ = 0;
};

// The page that a step makes of another, and the memory that the step takes.
struct Plan {
  Page page;                     // the output
  std::uint64_t fixedBytes = 0;  // besides the band
  std::uint64_t lineBytes = 0;   // for each line of the band; 0: no band
  std::uint32_t columnsIn = 0;   // of the band, where it has more than the page
  std::uint32_t leastLines = 1;
  std::uint32_t unitLines = 1;  // a band below wantedLines holds a multiple
  std::uint32_t wantedLines = 1;
  std::uint32_t quickLines = 0;  // to draw at a time; 0: as many as the cache holds
  std::uint32_t lines = 0;       // of the band, decided when all steps are known

  std::uint64_t leastBytes() const { return fixedBytes + lineBytes * leastLines; }
};

class Step {
 public:
  virtual ~Step() = default;
  // Rejects pages and values that the library leaves to its caller to check.
  virtual Plan plan(const Page& page, Context& context) = 0;
  // The plan is the one that was made last, with its lines decided. Null after a failure.
  virtual std::unique_ptr<LineSource> open(LineSource& before, const Plan& plan,
                                           Context& context) = 0;
};

// The page in another size; rejects sizes that no page may have.
Page resized(const Page& page, std::uint64_t width, std::uint64_t height, Context& context);

inline constexpr std::uint32_t kWholeRatio = 1000;

// An operation on bands.
struct Filter {
  using Apply = std::function<std::uint32_t(const RastArea&, const Planes& in, const Planes& out)>;
  Apply apply;
  bool inPlace = true;  // in and out may be the same; where not, they do not overlap
  // Columns and lines of the output, in thousandths of the input.
  std::uint32_t ratioX = kWholeRatio;
  std::uint32_t ratioY = kWholeRatio;
  std::uint32_t workingBytes = 0;  // that the library takes for each sample of a line
};

std::unique_ptr<Step> bandStep(const Filter& filter);

// ITU-R BT.601 luma; gray pages pass as they are.
std::unique_ptr<Step> grayStep();

struct Position {
  std::int32_t x = 0;
  std::int32_t y = 0;
};

struct Size {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

// Reads the image of that name, put on a background where one is named.
using ReadImage =
    std::function<int(const std::string& name, int background, RastChainImage* image)>;

struct OverlaySettings {
  std::string name;
  int background = RAST_CHAIN_NO_BACKGROUND;
  Position at;    // of the overlay in the output page
  Position base;  // of the page in the output page
  std::optional<Size> size;
  std::uint32_t mode = 0;
  std::uint32_t density = 100;
  std::uint32_t white = 0;  // 1: the background is white
  bool interleaved = false;
  ReadImage readImage;
};

std::unique_ptr<Step> overlayStep(OverlaySettings settings);

// RAST_ROTATE_CW90 or RAST_ROTATE_CCW90.
std::unique_ptr<Step> rotateStep(std::uint32_t mode);

std::unique_ptr<Step> shiftStep(Position by, std::optional<Size> size, std::uint32_t fill);

// Rejects positions beyond the library's 32-bit columns and lines.
void checkEnd(Context& context, const char* what, std::int64_t start, std::uint32_t length);

}  // namespace rast::chain
