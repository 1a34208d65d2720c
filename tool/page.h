// Pages as they come from a file and go to one: lines of 8-bit samples, R G B interleaved if
// colour.
#ifndef RAST_TOOL_PAGE_H
#define RAST_TOOL_PAGE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "input.h"
#include "output.h"

// The most that a band may take. It also keeps every offset inside a plane below 2^31.
inline constexpr std::uint64_t memoryCap = 256 << 20;

struct PageHead {
  std::uint32_t width;
  std::uint32_t height;
  bool colour;

  bool operator==(const PageHead&) const = default;
  const char* kind() const { return colour ? "RGB" : "gray"; }
  std::size_t lineBytes() const { return std::size_t{width} * (colour ? 3 : 1); }
  // What a line takes while in work: as input planes, as output planes, and colour as stored.
  std::uint64_t workBytes() const { return std::uint64_t{width} * (colour ? 9 : 2); }
  // The lines of a band: as many as wanted, as far as there are and the cap allows.
  std::uint32_t bandLines(std::uint32_t wanted) const {
    const std::uint64_t most = std::min<std::uint64_t>(height, memoryCap / workBytes());
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(wanted, most));
  }
};

// The one gate for sizes, of pages that come from a file and of those that become of them: refuses
// what is empty, absurd or above the cap.
PageHead checkedHead(const Input& in, std::uint64_t width, std::uint64_t height, bool colour,
                     const char* page = "page");

// What is done about a page with transparency.
struct Transparency {
  const char* hint = "flatten it onto a background";
  std::optional<std::uint8_t> background = {};  // each sample of it; none: the page is refused
};

class PageReader {
 public:
  virtual ~PageReader() = default;
  virtual const PageHead& head() const = 0;
  virtual const char* formatName() const = 0;
  // The next count lines; the last line also reads what closes the image.
  virtual void readLines(std::uint8_t* lines, std::uint32_t count) = 0;
};

// The next page of the stream, or null after the last. A stream without pages is an error.
std::unique_ptr<PageReader> nextPage(Input& in, const Transparency& transparency = {});

// Reads a page that nothing is wanted of but that it is sound.
void readPast(PageReader& page);

class PageWriter {
 public:
  virtual ~PageWriter() = default;
  virtual void beginPage(const PageHead& head) = 0;
  // The next count lines; the last line also writes what closes the image.
  virtual void writeLines(const std::uint8_t* lines, std::uint32_t count) = 0;
};

enum class Format { pnm, png };

std::unique_ptr<PageWriter> makeWriter(Format format, Output& out);

#endif
