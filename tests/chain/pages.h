// Pages in the caller's memory, in every layout, and their way through a chain in every division.
#pragma once

#include <rast_chain.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "support/random.h"

namespace rast::test {

using Plane = std::vector<uint8_t>;

/// A page as planes without gaps.
struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<Plane> planes;

  Picture() = default;
  Picture(uint32_t w, uint32_t h, uint32_t components, uint8_t sample = 0)
      : width(w), height(h), planes(components, Plane(size_t{w} * h, sample)) {}
  friend bool operator==(const Picture&, const Picture&) = default;

  uint32_t components() const { return static_cast<uint32_t>(planes.size()); }
  RastChainPage page() const {
    RastChainPage page = {};
    page.nWidth = width;
    page.nHeight = height;
    page.nComponents = components();
    return page;
  }
};

inline std::ostream& operator<<(std::ostream& stream, const Picture& picture) {
  return stream << picture.width << " x " << picture.height << " x " << picture.components();
}

/// Noise, and spans of one color as on paper.
inline Picture randomPicture(uint32_t width, uint32_t height, uint32_t components, Random& random) {
  Picture picture(width, height, components);
  for (Plane& plane : picture.planes) random.fill(plane.data(), plane.size());
  const auto samples = static_cast<ptrdiff_t>(picture.planes[0].size());
  for (int i = 0; i < 3; ++i) {
    const ptrdiff_t begin = random.pick(0, samples);
    const ptrdiff_t end = random.pick(begin, samples);
    for (Plane& plane : picture.planes) {
      const uint8_t sample = plane[0];
      std::fill(plane.begin() + begin, plane.begin() + end, sample);
    }
  }
  return picture;
}

struct Layout {
  bool planar = false;
  size_t padding = 0;  // bytes between lines
  bool upwards = false;
};

/// Memory for lines in a layout. The last sample is the last byte, so that sanitizers see whatever
/// reaches past it.
class Sheet {
 public:
  Sheet(uint32_t width, uint32_t lines, uint32_t components, const Layout& layout)
      : width_(width), lines_(lines), components_(components), layout_(layout) {
    const size_t size = lines == 0 ? 0 : (lines - 1) * pitch() + lineBytes();
    for (size_t c = 0; c < (layout.planar ? components : 1); ++c) {
      memory_.push_back(std::make_unique<uint8_t[]>(size));
      std::fill_n(memory_.back().get(), size, kUntouched);
    }
  }

  RastChainLines lines(uint32_t first, uint32_t count) const {
    RastChainLines lines = {};
    for (size_t c = 0; c < memory_.size(); ++c) lines.pPlane[c] = memory_[c].get() + offset(first);
    lines.nPitch = static_cast<ptrdiff_t>(pitch()) * (layout_.upwards ? -1 : 1);
    lines.nCount = count;
    lines.nPlanar = layout_.planar;
    return lines;
  }

  uint8_t& at(size_t component, uint32_t line, uint32_t column) {
    if (layout_.planar) return memory_[component][offset(line) + column];
    return memory_[0][offset(line) + size_t{column} * components_ + component];
  }

  bool paddingIsUntouched() const {
    for (const auto& plane : memory_) {
      for (size_t line = 0; line + 1 < lines_; ++line) {
        const uint8_t* const padding = plane.get() + line * pitch() + lineBytes();
        if (std::any_of(padding, padding + layout_.padding,
                        [](uint8_t byte) { return byte != kUntouched; })) {
          return false;
        }
      }
    }
    return true;
  }

 private:
  static constexpr uint8_t kUntouched = 0xA5;

  size_t lineBytes() const { return size_t{width_} * (layout_.planar ? 1 : components_); }
  size_t pitch() const { return lineBytes() + layout_.padding; }
  size_t offset(uint32_t line) const {
    return lines_ == 0 ? 0 : (layout_.upwards ? lines_ - 1 - line : line) * pitch();
  }

  uint32_t width_;
  uint32_t lines_;
  uint32_t components_;
  Layout layout_;
  std::vector<std::unique_ptr<uint8_t[]>> memory_;
};

inline Sheet sheetOf(const Picture& picture, const Layout& layout) {
  Sheet sheet(picture.width, picture.height, picture.components(), layout);
  for (size_t c = 0; c < picture.components(); ++c) {
    for (uint32_t y = 0; y < picture.height; ++y) {
      for (uint32_t x = 0; x < picture.width; ++x) {
        sheet.at(c, y, x) = picture.planes[c][size_t{y} * picture.width + x];
      }
    }
  }
  return sheet;
}

inline Picture pictureOf(Sheet& sheet, const RastChainPage& page) {
  Picture picture(page.nWidth, page.nHeight, page.nComponents);
  for (size_t c = 0; c < page.nComponents; ++c) {
    for (uint32_t y = 0; y < page.nHeight; ++y) {
      for (uint32_t x = 0; x < page.nWidth; ++x) {
        picture.planes[c][size_t{y} * page.nWidth + x] = sheet.at(c, y, x);
      }
    }
  }
  return picture;
}

/// Lines at a time; 0: all that are left, -1: random.
struct Division {
  int lines = 0;

  uint32_t next(uint32_t left, Random& random) const {
    if (lines == 0) return left;
    const ptrdiff_t wanted = lines > 0 ? lines : random.pick(0, 9);
    return static_cast<uint32_t>(std::min<ptrdiff_t>(wanted, left));
  }
};

/// How a page is handed over.
struct Feed {
  Layout in;
  Layout out;
  Division divisionIn;
  Division divisionOut;
  bool writes = false;  // rastChainWrite, which hands lines to receiveLines
};

inline std::ostream& operator<<(std::ostream& stream, const Feed& feed) {
  const auto side = [&stream](const Layout& layout, const Division& division) {
    stream << (layout.planar ? "planar" : "interleaved") << '+' << layout.padding
           << (layout.upwards ? " upwards" : "") << " by " << division.lines;
  };
  side(feed.in, feed.divisionIn);
  stream << (feed.writes ? " written to " : " to ");
  side(feed.out, feed.divisionOut);
  return stream;
}

inline Feed randomFeed(Random& random) {
  const auto layout = [&random] {
    const size_t padding[] = {0, 0, 1, 13};
    return Layout{random.oneIn(2), padding[random.pick(0, 3)], random.oneIn(4)};
  };
  const auto division = [&random] {
    const int lines[] = {0, 1, 7, -1};
    return Division{lines[random.pick(0, 3)]};
  };
  Feed feed = {layout(), layout(), division(), division(), random.oneIn(3)};
  return feed;
}

/// What a page became, or why it became nothing.
struct Outcome {
  uint32_t code = RAST_CHAIN_OK;
  RastChainError error = {};
  RastChainPage page = {};
  Picture picture;
  std::string broken;  // a promise of the header that was not kept
};

/// The lines that pWriteLines of the settings has received; pUser must be one of these.
struct Received {
  RastChainPage page = {};
  Picture picture;
  uint32_t lines = 0;
  uint32_t failingCall = UINT32_MAX;
  uint32_t calls = 0;
  std::string broken;
};

inline int receiveLines(void* user, const RastChainLines* lines) {
  auto& received = *static_cast<Received*>(user);
  const RastChainPage& page = received.page;
  if (received.calls++ == received.failingCall) return 7;
  if (lines->nPlanar != 0 || lines->nCount == 0 || lines->nCount > page.nHeight - received.lines) {
    received.broken = "the lines received are planar, or none, or too many";
    return 1;
  }
  for (uint32_t i = 0; i < lines->nCount; ++i, ++received.lines) {
    const uint8_t* line = lines->pPlane[0] + static_cast<ptrdiff_t>(i) * lines->nPitch;
    for (size_t x = 0; x < page.nWidth; ++x) {
      for (Plane& plane : received.picture.planes) {
        plane[size_t{received.lines} * page.nWidth + x] = *line++;
      }
    }
  }
  return 0;
}

/// Hands all lines to a page that has begun.
inline void writeLines(RastChain* chain, const Picture& in, const Feed& feed, Random& random,
                       Received& received, Outcome& outcome) {
  const Sheet sheet = sheetOf(in, feed.in);
  received.page = outcome.page;
  received.lines = received.calls = 0;
  received.picture = Picture(outcome.page.nWidth, outcome.page.nHeight, outcome.page.nComponents);
  for (uint32_t done = 0; outcome.code == RAST_CHAIN_OK;) {
    const uint32_t count = feed.divisionIn.next(in.height - done, random);
    const RastChainLines lines = sheet.lines(done == in.height ? 0 : done, count);
    outcome.code = rastChainWrite(chain, &lines, &outcome.error);
    done += count;
    if (outcome.code == RAST_CHAIN_OK && done == in.height && count == 0) {
      outcome.broken = "all lines are in and not all out";
      return;
    }
  }
  outcome.picture = received.picture;
  if (!received.broken.empty()) outcome.broken = received.broken;
  if (outcome.code == RAST_CHAIN_DONE && received.lines != outcome.page.nHeight) {
    outcome.broken = "lines are missing";
  }
}

inline void runLines(RastChain* chain, const Picture& in, const Feed& feed, Random& random,
                     Outcome& outcome) {
  const RastChainPage& page = outcome.page;
  const Sheet sheetIn = sheetOf(in, feed.in);
  Sheet sheetOut(page.nWidth, page.nHeight, page.nComponents, feed.out);
  RastChainLines linesIn = {};
  RastChainLines linesOut = {};
  uint32_t doneIn = 0;
  uint32_t doneOut = 0;
  for (int idle = 0; outcome.code == RAST_CHAIN_OK;) {
    if (linesIn.nCount == 0 && doneIn < in.height) {
      linesIn = sheetIn.lines(doneIn, feed.divisionIn.next(in.height - doneIn, random));
    }
    if (linesOut.nCount == 0 && doneOut < page.nHeight) {
      linesOut = sheetOut.lines(doneOut, feed.divisionOut.next(page.nHeight - doneOut, random));
    }
    const RastChainLines beforeIn = linesIn;
    const RastChainLines beforeOut = linesOut;
    outcome.code = rastChainRun(chain, &linesIn, &linesOut, &outcome.error);
    const auto advanced = [](const RastChainLines& before, const RastChainLines& after) {
      const auto count = static_cast<ptrdiff_t>(before.nCount - after.nCount);
      for (size_t c = 0; c < 4; ++c) {
        const uint8_t* const expected =
            before.pPlane[c] != nullptr ? before.pPlane[c] + count * before.nPitch : nullptr;
        if (after.pPlane[c] != expected) return false;
      }
      return after.nPitch == before.nPitch && after.nPlanar == before.nPlanar &&
             after.nCount <= before.nCount;
    };
    if (outcome.code <= RAST_CHAIN_DONE &&
        !(advanced(beforeIn, linesIn) && advanced(beforeOut, linesOut))) {
      outcome.broken = "the records are not advanced past the lines that moved";
    }
    doneIn += beforeIn.nCount - linesIn.nCount;
    doneOut += beforeOut.nCount - linesOut.nCount;
    if (outcome.code == RAST_CHAIN_OK && linesIn.nCount > 0 && linesOut.nCount > 0) {
      outcome.broken = "lines and room are left";
    }
    const bool moved = beforeIn.nCount != linesIn.nCount || beforeOut.nCount != linesOut.nCount;
    idle = moved ? 0 : idle + 1;
    if (idle > 100) outcome.broken = "no line moves";
    if (!outcome.broken.empty()) return;
  }
  if (outcome.code == RAST_CHAIN_DONE && (doneIn != in.height || doneOut != page.nHeight)) {
    outcome.broken = "done before all lines moved";
  }
  if (!sheetOut.paddingIsUntouched()) outcome.broken = "bytes between lines are touched";
  outcome.picture = pictureOf(sheetOut, page);
}

/// A whole page from its beginning; the picture is complete where the code is RAST_CHAIN_DONE.
inline Outcome runPage(RastChain* chain, const Picture& in, const Feed& feed, Random& random,
                       Received* received = nullptr, uint64_t memory = 0) {
  Outcome outcome;
  RastChainPage page = in.page();
  page.nMemory = memory;
  outcome.code = rastChainBegin(chain, &page, &outcome.page, &outcome.error);
  if (outcome.code != RAST_CHAIN_OK) return outcome;
  if (feed.writes && received != nullptr) {
    writeLines(chain, in, feed, random, *received, outcome);
  } else {
    runLines(chain, in, feed, random, outcome);
  }
  return outcome;
}

struct Closes {
  void operator()(RastChain* chain) const { rastChainClose(chain); }
};
using ChainPointer = std::unique_ptr<RastChain, Closes>;

inline ChainPointer openChain(const std::string& text, const RastChainSettings* settings = nullptr,
                              RastChainError* error = nullptr) {
  RastChain* chain = nullptr;
  rastChainOpen(text.c_str(), settings, &chain, error);
  return ChainPointer(chain);
}

/// A folder in memory where there is one; null: that of TMPDIR.
inline const char* quickFolder() {
  return access("/dev/shm", R_OK | W_OK | X_OK) == 0 ? "/dev/shm" : nullptr;
}

/// Image for overlays, and the ways in which its reading can go wrong.
struct ImageSource {
  enum Fault { none, fails, neverBegins, tooFew, tooMany, beginsTwice, noSize };

  Picture picture;
  Fault fault = none;
  Layout layout = {};
  int calls = 0;
  int background = -2;
  std::string name = {};
  uint32_t lastCode = 0;
};

inline int readImage(ImageSource& source, const char* name, int background, RastChainImage* image) {
  const Picture& picture = source.picture;
  ++source.calls;
  source.name = name;
  source.background = background;
  if (source.fault == ImageSource::neverBegins) return 0;
  RastChainPage page = picture.page();
  if (source.fault == ImageSource::noSize) page.nWidth = 0;
  source.lastCode = rastChainImageBegin(image, &page);
  if (source.fault == ImageSource::beginsTwice) source.lastCode = rastChainImageBegin(image, &page);
  if (source.lastCode != RAST_CHAIN_OK) return 0;
  const Sheet sheet = sheetOf(picture, source.layout);
  const uint32_t last = picture.height - (source.fault == ImageSource::tooFew ? 1 : 0);
  for (uint32_t done = 0; done < last;) {
    const uint32_t count = std::min<uint32_t>(3, last - done);
    const RastChainLines lines = sheet.lines(done, count);
    source.lastCode = rastChainImageLines(image, &lines);
    done += count;
    const uint32_t expected = done == picture.height ? RAST_CHAIN_DONE : RAST_CHAIN_OK;
    if (source.lastCode != expected) return 0;
  }
  if (source.fault == ImageSource::tooMany) {
    const RastChainLines lines = sheet.lines(0, 1);
    source.lastCode = rastChainImageLines(image, &lines);
  }
  return source.fault == ImageSource::fails ? 1 : 0;
}

/// For chains whose pUser is an ImageSource.
inline int readImageOnly(void* user, const char* name, int background, RastChainImage* image) {
  return readImage(*static_cast<ImageSource*>(user), name, background, image);
}

/// Settings of chains whose overlays are that image.
inline RastChainSettings settingsFor(ImageSource& image, const char* folder = quickFolder()) {
  RastChainSettings settings = {};
  settings.nSize = sizeof settings;
  settings.pFolder = folder;
  settings.pUser = &image;
  settings.pReadImage = readImageOnly;
  return settings;
}

}  // namespace rast::test
