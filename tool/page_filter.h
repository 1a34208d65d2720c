// Operations on whole pages: the library's calls that no single band can serve.
#ifndef RAST_TOOL_PAGE_FILTER_H
#define RAST_TOOL_PAGE_FILTER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "input.h"
#include "page.h"
#include "page_store.h"

class PageFilter {
 public:
  virtual ~PageFilter() = default;
  virtual bool interleaved() const { return false; }
  // What becomes of such a page. Refuses what the library leaves to its caller to avoid.
  virtual PageHead outputHead(const Input& in, const PageHead& page) const = 0;
  // The output is cleared. Where bands are used, they are of so many lines.
  virtual std::uint32_t apply(StoredPage& page, StoredPage& output, std::uint32_t bandLines) = 0;
};

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

std::unique_ptr<PageFilter> planesOverlay(const OverlaySettings& settings);
std::unique_ptr<PageFilter> pixelsOverlay(const OverlaySettings& settings);

std::unique_ptr<PageFilter> rotation(std::uint32_t mode);

std::unique_ptr<PageFilter> shift(Position by, std::optional<Size> size, std::uint32_t fill);

#endif
