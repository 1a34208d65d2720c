#include "formats/page.h"

#include <algorithm>

#include "formats/png_page.h"
#include "formats/pnm_page.h"
#ifdef RAST_HAS_TIFF
#include "formats/tiff_page.h"
#endif
#ifdef RAST_HAS_RASTER
#include "formats/raster_page.h"
#endif

namespace {

constexpr char readableFormats[] =
    "PBM, PGM, PPM, PAM"
#ifdef RAST_HAS_TIFF
    ", TIFF"
#endif
#ifdef RAST_HAS_RASTER
    ", CUPS raster, PWG raster"
#endif
    " or PNG";

// PNM and PNG images, which may follow each other in any order.
class ImageStream final : public PageStream {
 public:
  ImageStream(Input& in, const Transparency& transparency) : in_(in), transparency_(transparency) {}

  std::unique_ptr<PageReader> next() override {
    const bool first = in_.page() == 0;
    while (!first && isPnmSpace(in_.peek())) in_.get();
    switch (in_.peek()) {
      case pnmFirstByte:
        in_.startPage();
        return makePnmReader(in_);
      case pngFirstByte:
        in_.startPage();
        return makePngReader(in_, transparency_);
      case EOF:
        return nullptr;
      default:
        in_.fail(ExitCode::damaged, 0, "followed by data that is not an image; expected the end");
    }
  }

 private:
  Input& in_;
  Transparency transparency_;
};

}  // namespace

PageHead checkedHead(const Input& in, std::uint64_t width, std::uint64_t height, bool colour) {
  if (width < 1 || width > INT32_MAX || height < 1 || height > INT32_MAX) {
    in.fail(ExitCode::damaged, 0, "the page size is out of range; expected 1 to ", INT32_MAX,
            " columns and lines");
  }
  const PageHead head{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                      colour};
  if (head.workBytes() > in.memoryCap()) {
    in.failMemory(0, join("a line of the page, ", width, " columns,"), head.workBytes());
  }
  if (head.workBytes() > longestBand) {
    in.fail(ExitCode::unsupported, 0, "a line of ", width, " columns is too long; expected up to ",
            longestBand * width / head.workBytes());
  }
  return head;
}

std::uint32_t quickLines(const PageHead& head) {
  constexpr std::size_t quickBytes = 1 << 15;
  return static_cast<std::uint32_t>(std::max<std::size_t>(quickBytes / head.lineBytes(), 1));
}

std::uint32_t bandLines(const Input& in, const PageHead& head, std::uint32_t wanted) {
  const std::uint64_t share = std::min(in.memoryCap(), longestBand);
  const std::uint64_t most = std::min<std::uint64_t>(head.height, share / head.workBytes());
  if (wanted == 0) wanted = quickLines(head);
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(wanted, most));
}

void failUnknown(const Input& in) {
  in.fail(ExitCode::unsupported, 0, "no known kind of page image; expected ", readableFormats);
}

std::unique_ptr<PageStream> openPages(Input& in, const Transparency& transparency,
                                      bool mayBeEmpty) {
  const int first = in.peek();
  if (first == EOF) {
    if (mayBeEmpty) return std::make_unique<ImageStream>(in, transparency);
    in.fail(ExitCode::damaged, 0, "empty; expected a page image");
  }
#ifdef RAST_HAS_TIFF
  if (isTiffFirstByte(first)) return openTiff(in);
#endif
#ifdef RAST_HAS_RASTER
  if (isRasterFirstByte(first)) return openRaster(in, mayBeEmpty);
#endif
  if (first != pnmFirstByte && first != pngFirstByte) {
    failUnknown(in);
  }
  return std::make_unique<ImageStream>(in, transparency);
}

void readPast(const Input& in, PageReader& page,
              const std::function<void(std::uint32_t lines, std::uint64_t bytes)>& onLines) {
  const PageHead& head = page.head();
  const std::uint32_t most = bandLines(in, head);
  const auto lines = std::make_unique_for_overwrite<std::uint8_t[]>(most * head.lineBytes());
  for (std::uint32_t done = 0; done < head.height;) {
    const std::uint32_t count = std::min(most, head.height - done);
    page.readLines(lines.get(), count);
    if (onLines) onLines(count, count * head.lineBytes());
    done += count;
  }
}
