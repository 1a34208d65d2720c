#include "formats/format.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "formats/pngPage.h"
#include "formats/pnmPage.h"
#ifdef RAST_HAS_TIFF
#include "formats/tiffPage.h"
#endif
#ifdef RAST_HAS_RASTER
#include "formats/rasterPage.h"
#endif

namespace rast::tool {

namespace {

constexpr char kReadableFormats[] =
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
  ImageStream(PageInput& in, const Transparency& transparency)
      : in_(in), transparency_(transparency) {}

  std::unique_ptr<PageReader> next() override {
    const bool first = in_.page() == 0;
    while (!first && isPnmSpace(in_.peek())) in_.get();
    const auto start = in_.ahead(kLongestSignature);
    if (start.empty()) return nullptr;
    if (!isPnm(start) && !isPng(start)) {
      in_.fail(ExitCode::damaged, 0, "followed by data that is not an image; expected the end");
    }
    in_.startPage();
    if (isPnm(start)) return makePnmReader(in_);
    return makePngReader(in_, transparency_);
  }

 private:
  PageInput& in_;
  Transparency transparency_;
};

constexpr Format kFormats[] = {
    {"pnm", ".pnm .pgm .ppm", makePnmWriter}, {"pbm", ".pbm", makePbmWriter},
    {"pam", ".pam", makePamWriter},           {"png", ".png", makePngWriter},
#ifdef RAST_HAS_TIFF
    {"tiff", ".tif .tiff", makeTiffWriter},   {"bigtiff", ".btf .tf8", makeBigTiffWriter},
#endif
#ifdef RAST_HAS_RASTER
    {"cups", ".ras .cups", makeCupsWriter},   {"pwg", ".pwg", makePwgWriter},
#endif
};

// True where the word is one of the words between spaces.
bool isAmong(const std::string& word, const std::string& words) {
  return join(' ', words, ' ').find(join(' ', word, ' ')) != std::string::npos;
}

}  // namespace

std::span<const Format> formats() { return kFormats; }

const Format* findFormat(const std::string& name) {
  const auto found = std::ranges::find_if(kFormats, [&name](const Format& format) {
    return name == format.name || isAmong('.' + name, format.endings);
  });
  return found != std::end(kFormats) ? found : nullptr;
}

const Format* formatOfFile(const std::string& path) {
  const std::string_view name = nameIn(path);
  const std::size_t point = name.rfind('.');
  // A name that begins with its only full stop has no ending.
  std::string ending(point != 0 ? name.substr(std::min(point, name.size())) : "");
  for (char& c : ending) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  if (ending.empty()) return std::begin(kFormats);
  const auto found = std::ranges::find_if(
      kFormats, [&ending](const Format& format) { return isAmong(ending, format.endings); });
  return found != std::end(kFormats) ? found : nullptr;
}

std::unique_ptr<PageStream> openPages(PageInput& in, const Transparency& transparency,
                                      bool mayBeEmpty) {
  const auto start = in.ahead(kLongestSignature);
  if (start.empty()) {
    if (mayBeEmpty) return std::make_unique<ImageStream>(in, transparency);
    in.fail(ExitCode::damaged, 0, "empty; expected a page image");
  }
#ifdef RAST_HAS_TIFF
  if (isTiff(start)) return openTiff(in);
#endif
#ifdef RAST_HAS_RASTER
  if (isRaster(start)) return openRaster(in, mayBeEmpty);
#endif
  if (!isPnm(start) && !isPng(start)) {
    in.fail(ExitCode::unsupported, 0, "no known kind of page image; expected ", kReadableFormats);
  }
  return std::make_unique<ImageStream>(in, transparency);
}

}  // namespace rast::tool
