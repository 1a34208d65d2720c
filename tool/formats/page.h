// Pages in files: lines of 8-bit samples, R, G, B interleaved on color pages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "formats/pageInput.h"

namespace rast::tool {

// Pixels to the inch; 0 where it is not known.
struct Resolution {
  double x = 0;
  double y = 0;

  bool isKnown() const { return x > 0 && y > 0; }
};

// Further facts that a format stores with a page, for a writer that knows the format.
struct FormatDetails {
  FormatDetails() = default;
  virtual ~FormatDetails() = default;
  FormatDetails(const FormatDetails&) = delete;
  FormatDetails& operator=(const FormatDetails&) = delete;
};

struct PageHead {
  std::uint32_t width;
  std::uint32_t height;
  bool color;
  Resolution resolution = {};
  bool turned = false;  // by 90, 180 or 270 degrees since it was read
  std::shared_ptr<const FormatDetails> details = nullptr;

  bool hasShapeOf(const PageHead& other) const {
    return width == other.width && height == other.height && color == other.color;
  }
  const char* kind() const { return color ? "RGB" : "gray"; }
  std::size_t lineBytes() const { return std::size_t{width} * (color ? 3 : 1); }
  // The least memory for lines in work: one that is read and one that is written.
  std::uint64_t workBytes() const { return 2 * std::uint64_t{lineBytes()}; }
};

// The one gate for sizes of pages in files: rejects empty and absurd sizes, and lines that alone
// are above the cap of the input.
PageHead checkedHead(const PageInput& in, std::uint64_t width, std::uint64_t height, bool color);

// The lines of a band: the wanted number, or the quick one where it is 0, within the page and the
// memory cap. The cap has room for a line of every checked page.
std::uint32_t bandLines(const PageInput& in, const PageHead& head, std::uint32_t wanted = 0);

// How pages with transparency are treated.
struct Transparency {
  const char* hint = "flatten it onto a background";
  std::optional<std::uint8_t> background = {};  // each sample of it; none: the page is rejected
};

class PageReader {
 public:
  virtual ~PageReader() = default;
  const PageHead& head() const { return head_; }
  // Replaces the resolution that the file gives.
  void setResolution(const Resolution& resolution) { head_.resolution = resolution; }
  virtual const char* formatName() const = 0;
  // The next count lines; the last line also reads what closes the image.
  virtual void readLines(std::uint8_t* lines, std::uint32_t count) = 0;
  // The number of pages from this one on, or an estimate for pages of the same size; none where it
  // is unknown. To be called before lines are read.
  virtual std::optional<std::uint64_t> pagesAhead() const { return {}; }
  // How many copies of the page are to be printed.
  virtual std::uint32_t copies() const { return 1; }

 protected:
  PageHead head_ = {};
};

// The pages of a stream, one after the other.
class PageStream {
 public:
  virtual ~PageStream() = default;
  // The next page, or null after the last. The page before has to be read to its end, and gone.
  virtual std::unique_ptr<PageReader> next() = 0;
};

// Reads a page only to check it.
void readPast(const PageInput& in, PageReader& page,
              const std::function<void(std::uint32_t lines, std::uint64_t bytes)>& onLines = {});

class PageWriter {
 public:
  virtual ~PageWriter() = default;
  // To be called before the first page, with the number of pages where it is known.
  virtual void expectPages(std::optional<std::uint64_t> /*pages*/) {}
  virtual void beginPage(const PageHead& head) = 0;
  // The next count lines; the last line also writes what closes the image.
  virtual void writeLines(const std::uint8_t* lines, std::uint32_t count) = 0;
  // After the last page: writes what closes the file.
  virtual void finish() {}
  // The default, in pixels per inch, that was written for the page that was begun last, because the
  // format requires a resolution and the page has none. 0 where no default was needed.
  virtual unsigned assumedResolution() const { return 0; }
};

}  // namespace rast::tool
