#include "formats/format.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "formats/png_page.h"
#include "formats/pnm_page.h"
#ifdef RAST_HAS_TIFF
#include "formats/tiff_page.h"
#endif
#ifdef RAST_HAS_RASTER
#include "formats/raster_page.h"
#endif

namespace {

constexpr Format table[] = {
    {"pnm", ".pnm .pgm .ppm", makePnmWriter}, {"pbm", ".pbm", makePbmWriter},
    {"pam", ".pam", makePamWriter},           {"png", ".png", makePngWriter},
#ifdef RAST_HAS_TIFF
    {"tiff", ".tif .tiff", makeTiffWriter},   {"bigtiff", ".btf .tf8", makeBigTiffWriter},
#endif
#ifdef RAST_HAS_RASTER
    {"cups", ".ras .cups", makeCupsWriter},   {"pwg", ".pwg", makePwgWriter},
#endif
};

// Whether the word is one of those between spaces.
bool isAmong(const std::string& word, const std::string& words) {
  return join(' ', words, ' ').find(join(' ', word, ' ')) != std::string::npos;
}

}  // namespace

std::span<const Format> formats() { return table; }

const Format* findFormat(const std::string& name) {
  const auto found = std::ranges::find_if(table, [&name](const Format& format) {
    return name == format.name || isAmong('.' + name, format.endings);
  });
  return found != std::end(table) ? found : nullptr;
}

const Format* formatOfFile(const std::string& path) {
  const std::string_view name = nameIn(path);
  const std::size_t point = name.rfind('.');
  // A name that begins with its only full stop has no ending.
  std::string ending(point != 0 ? name.substr(std::min(point, name.size())) : "");
  for (char& c : ending) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  if (ending.empty()) return std::begin(table);
  const auto found = std::ranges::find_if(
      table, [&ending](const Format& format) { return isAmong(ending, format.endings); });
  return found != std::end(table) ? found : nullptr;
}
