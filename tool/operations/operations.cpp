#include "operations/operations.h"

#include <rast.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "operations/tables.h"

namespace {

constexpr bool inPlace = true;
constexpr bool storesPages = true;
constexpr bool needsParameter = true;

constexpr Parameter expGammaParameters[] = {
    {"threshold", "N", readNumbers, 0, 255, "0", "samples up to this become 0"},
    {"offset", "N", readNumbers, 0, 255, "0", "level added to samples above the threshold"},
    {"gain", "N", readNumbers, 0, 65535, "256", "slope above the threshold, in 1/256: 256 is 1.0"},
};

std::unique_ptr<Step> makeExpGamma(const Values& values) {
  const RastExpGammaParam curve{static_cast<std::uint8_t>(values[0][0]),
                                static_cast<std::uint8_t>(values[1][0]),
                                static_cast<std::uint16_t>(values[2][0])};
  return bandStep({[curve](const RastArea& area, const RastPlaneSet& planes) {
                     return rastExpGamma(&area, &planes, &curve, nullptr);
                   },
                   inPlace});
}

constexpr Parameter colGammaParameters[] = {
    {"curve", "FILE|invert|gamma=G", readCurve, 0, 255, nullptr,
     "FILE: a text file of 256 whole numbers 0..255, separated by white\n"
     "space or commas; '#' starts a comment\n"
     "invert: 255 - x\n"
     "gamma=G: 255 * (x / 255) ^ (1 / G), rounded to nearest; G is a\n"
     "decimal number 0.1..10, above 1 it makes mid-tones lighter\n"
     "./invert: the file of that name"},
};

std::unique_ptr<Step> makeColGamma(const Values& values) {
  std::array<std::uint8_t, 256> curve = {};
  std::ranges::transform(values[0], curve.begin(),
                         [](std::int64_t v) { return static_cast<std::uint8_t>(v); });
  return bandStep({[curve](const RastArea& area, const RastPlaneSet& planes) {
                     return rastColGamma(&area, &planes, curve.data());
                   },
                   inPlace});
}

constexpr Parameter binConvParameters[] = {
    {"color", "N", readNumbers, 0, 5, "0",
     "planes of OUT that get the ink; the others become 0:\n"
     "0 red, 1 green, 2 blue,\n"
     "3 green and blue, 4 red and blue, 5 red and green"},
};

std::unique_ptr<Step> makeBinConv(const Values& values) {
  const auto color = static_cast<std::uint32_t>(values[0][0]);
  return bandStep({[color](const RastArea& area, const RastPlaneSet& planes) {
                     return rastBinConv(&area, &planes, color);
                   },
                   inPlace});
}

constexpr Parameter satAdjustParameters[] = {
    {"mode", "lower|raise", readChoice, 0, 1, nullptr,
     "move each component towards the pixel's grey level, or away from it"},
};

std::unique_ptr<Step> makeSatAdjust(const Values& values) {
  const auto mode = static_cast<std::uint32_t>(values[0][0]);
  return bandStep({[mode](const RastArea& area, const RastPlaneSet& planes) {
                     return rastSatAdjust(&area, &planes, mode);
                   },
                   inPlace});
}

constexpr Parameter hueAdjustParameters[] = {
    {"matrix", "FILE|PRESET|rotate=DEGREES", readMatrix, INT16_MIN, INT16_MAX, "identity",
     "FILE: a text file of 15 whole numbers -32768..32767, three rows of\n"
     "five, separated by white space or commas; '#' starts a comment\n"
     "PRESET: identity, grayscale (ITU-R BT.601 luma), sepia, or swap-rb\n"
     "(red and blue exchanged)\n"
     "rotate=DEGREES: hue rotation that keeps ITU-R BT.709 luma and greys,\n"
     "-360..360; the hueRotate formula of feColorMatrix in the W3C filter\n"
     "effects recommendation (weights 0.213, 0.715, 0.072), in 1/256\n"
     "./sepia: the file of that name"},
    {"reverse", nullptr, readNumbers, 0, 1, "0", "invert the result: 255 - v"},
    {"mirror", nullptr, readNumbers, 0, 1, "0", "mirror lines left to right"},
};

std::unique_ptr<Step> makeHueAdjust(const Values& values) {
  RastHueParam param = {};
  for (std::size_t i = 0; i < values[0].size(); ++i) {
    param.nMatrix[i / 5][i % 5] = static_cast<std::int16_t>(values[0][i]);
  }
  // Without a lookup buffer the library mirrors too, but prints trace lines for every band.
  RastHueLut lut = {};
  lut.nReverse = static_cast<std::int16_t>(values[1][0]);
  const bool mirrors = values[2][0] != 0;
  return bandStep({[param, lut, mirrors](const RastArea& area, const RastPlaneSet& planes) mutable {
                     const std::uint32_t result = rastHueAdjust(&area, &planes, &param, &lut);
                     if (mirrors && result == RAST_OK) mirrorLines(area, planes);
                     return result;
                   },
                   inPlace});
}

constexpr Parameter colBalanceParameters[] = {
    {"curve", "N", readNumbers, 0, 4, "4",
     "tone curve: 0 more contrast, 1 less contrast, 2 darker mid-tones,\n"
     "3 lighter mid-tones, 4 none"},
    {"level", "R,G,B,GREY", readNumbers, 0, 11, "5,5,5,5",
     "levels of red, green, blue and the grey part, 0 to 10: 5 is neutral,\n"
     "a step is 5 sample values; 11 is the same as 10"},
};

std::unique_ptr<Step> makeColBalance(const Values& values) {
  RastColBalanceParam param = {};
  param.nCurve = static_cast<std::uint8_t>(values[0][0]);
  for (std::size_t i = 0; i < 4; ++i) param.nLevel[i] = static_cast<std::int16_t>(values[1][i]);
  return bandStep({[param, lut = std::array<std::uint8_t, 1025>{}](
                       const RastArea& area, const RastPlaneSet& planes) mutable {
                     return rastColBalance(&area, &planes, &param, lut.data());
                   },
                   inPlace});
}

std::optional<Size> sizeOf(const Value& value) {
  if (value.empty()) return {};
  return Size{static_cast<std::uint32_t>(value[0]), static_cast<std::uint32_t>(value[1])};
}

Position positionOf(const Value& value) {
  return {static_cast<std::int32_t>(value[0]), static_cast<std::int32_t>(value[1])};
}

constexpr Parameter overlayParameters[] = {
    {"with", "FILE", readText, 0, 0, nullptr,
     "the overlay: one image, of the kinds that IN may hold"},
    {"flatten", "black|white", readChoice, 0, 1, "",
     "background onto which a transparent overlay is composited when it\n"
     "is read, rounded to nearest; without it, such a FILE is refused"},
    {"at", "X,Y", readNumbers, 0, INT32_MAX, "0,0",
     "place of the overlay's top left corner in the output page"},
    {"base", "X,Y", readNumbers, 0, INT32_MAX, "0,0",
     "place of the page's top left corner in the output page"},
    {"size", "WxH", readSize, 1, INT32_MAX, "",
     "size of the output page; that of the page if not given"},
    {"white", nullptr, readNumbers, 0, 1, "0", "white background, 255, instead of black, 0"},
    {"mode", "replace|max|ink", readChoice, 0, 2, "replace",
     "what shows where both lie, by the overlay's weakened samples:\n"
     "replace: a pixel whose largest sample is below the threshold 16 is\n"
     "transparent and shows the page, any other replaces it\n"
     "max: no pixel is transparent (the threshold is 0); the larger of\n"
     "both shows, sample by sample\n"
     "ink: as replace with threshold 1, so that only a pixel that is 0\n"
     "throughout is transparent"},
    {"density", "N", readNumbers, 10, 100, "100",
     "percentage that overlay samples are weakened to"},
};

OverlaySettings overlaySettings(const Values& values) {
  OverlaySettings settings = {};
  settings.path.assign(values[0].begin(), values[0].end());
  if (!values[1].empty()) settings.flatten = static_cast<std::uint8_t>(values[1][0] * 255);
  settings.at = positionOf(values[2]);
  settings.base = positionOf(values[3]);
  settings.size = sizeOf(values[4]);
  settings.white = static_cast<std::uint32_t>(values[5][0]);
  return settings;
}

std::unique_ptr<Step> makeOverlay(const Values& values) {
  OverlaySettings settings = overlaySettings(values);
  settings.mode = static_cast<std::uint32_t>(values[6][0]);
  settings.density = static_cast<std::uint32_t>(values[7][0]);
  return overlayStep(settings);
}

// Pixels are copied as they stand: without mode and density.
constexpr std::span<const Parameter> overlayRgbParameters(overlayParameters, 6);

std::unique_ptr<Step> makeOverlayRgb(const Values& values) {
  return overlayRgbStep(overlaySettings(values));
}

constexpr Parameter rotateParameters[] = {
    {"turn", "cw|ccw", readChoice, 0, 1, nullptr,
     "direction, clockwise or counter-clockwise; with this option it is\n"
     "not given before IN",
     true},
};

std::unique_ptr<Step> makeRotate(const Values& values) {
  return rotateStep(values[0][0] == 0 ? RAST_ROTATE_CW90 : RAST_ROTATE_CCW90);
}

constexpr Parameter zoomParameters[] = {
    {"percent", "P", readTenths, 1, wholeRatio, "100",
     "both ratios in percent, 0.1..100, with one decimal"},
    {"x", "N", readNumbers, 1, wholeRatio, "",
     "horizontal ratio in thousandths, in place of --percent"},
    {"y", "N", readNumbers, 1, wholeRatio, "",
     "vertical ratio in thousandths, in place of --percent"},
};

std::unique_ptr<Step> makeZoom(const Values& values) {
  const auto ratio = [&values](std::size_t i) {
    return static_cast<std::uint32_t>(values[values[i].empty() ? 0 : i][0]);
  };
  const RastZoomParam gray{1, ratio(1), ratio(2)};
  return bandStep({[gray](const RastArea& area, const RastPlaneSet& given) {
                     RastZoomParam param = gray;
                     RastPlaneSet planes = given;
                     if (planes.pIn[3] == nullptr) {
                       param.nPlaneNum = 3;
                     } else {
                       std::swap(planes.pIn[0], planes.pIn[3]);
                       std::swap(planes.pOut[0], planes.pOut[3]);
                     }
                     return rastZoom(&area, &planes, &param);
                   },
                   !inPlace, gray.nRatioX, gray.nRatioY});
}

constexpr Parameter shiftParameters[] = {
    {"x", "N", readNumbers, -INT32_MAX, INT32_MAX, "0",
     "columns to the right; if negative, columns to drop"},
    {"y", "N", readNumbers, -INT32_MAX, INT32_MAX, "0", "lines down; if negative, lines to drop"},
    {"size", "WxH", readSize, 1, INT32_MAX, "",
     "size of the output page; that of the page if not given"},
    {"fill", "none|black|white", readChoice, 0, 2, "white",
     "the rest of the output page; with none it is left as it is, which\n"
     "is 0, since the page is cleared before"},
};

std::unique_ptr<Step> makeShift(const Values& values) {
  return shiftStep(positionOf({values[0][0], values[1][0]}), sizeOf(values[2]),
                   static_cast<std::uint32_t>(values[3][0]));
}

std::unique_ptr<Step> makeGray(const Values&) { return grayStep(); }

constexpr Operation table[] = {
    {"expgamma", "threshold-gain curve",
     "A sample x up to the threshold becomes 0; any other becomes\n"
     "((x - threshold) * gain >> 8) + offset, at most 255.",
     expGammaParameters, "rast expgamma --threshold 16 --offset 8 --gain 320 in.pgm out.pgm",
     makeExpGamma, Takes::gray, !storesPages, needsParameter},
    {"colgamma", "tone curve",
     "Every sample x, in all components alike, becomes entry x of the curve.", colGammaParameters,
     "rast colgamma --curve gamma=2.2 in.ppm out.ppm", makeColGamma, Takes::both},
    {"binconv", "two-colour conversion",
     "Colour becomes an ink: the luma (77 R + 150 G + 29 B) / 256 less 30, times a weight that\n"
     "rises with the pixel's saturation up to a limit that depends on its hue. Neutral pixels\n"
     "become 0.",
     binConvParameters, "rast binconv --color 3 in.ppm out.ppm", makeBinConv, Takes::colour},
    {"satadjust", "saturation lowered or raised by a quarter",
     "The grey level of a pixel is (70 R + 150 G + 29 B) / 256; the weights add up to less than\n"
     "1, so greys get a little darker when lowered, and some a little lighter when raised.\n"
     "Within a line every whole group of four pixels comes out mirrored, deliberately: pixels\n"
     "1 2 3 4 become 4 3 2 1; the one to three pixels left at the end stay in place.",
     satAdjustParameters, "rast satadjust --mode raise in.ppm out.ppm", makeSatAdjust,
     Takes::colour},
    {"hueadjust", "colour matrix",
     "With m the matrix and R = red + m[0][3], G = green + m[1][3], B = blue + m[2][3],\n"
     "component k becomes (m[k][0] * R + m[k][1] * G + m[k][2] * B) / 256 + m[k][4], truncated\n"
     "and clamped to 0..255: the weights are in 1/256, 256 is 1.0. A gray sample x becomes\n"
     "m[0][0] * (x + m[0][3]) / 256 + m[0][4], so only few matrices suit gray pages.",
     hueAdjustParameters, "rast hueadjust --matrix rotate=30 in.ppm out.ppm", makeHueAdjust,
     Takes::both, !storesPages, needsParameter},
    {"colbalance", "colour balance",
     "A pixel is split into its grey part, the smallest component, and what each component has\n"
     "above it, scaled to the room left. Each passes through the tone curve, then through its\n"
     "level; then the pixel is put together again.",
     colBalanceParameters, "rast colbalance --level 6,5,4,5 in.ppm out.ppm", makeColBalance,
     Takes::colour, !storesPages, needsParameter},
    {"overlay", "an image over the page",
     "The page and the overlay are placed in an output page; what lies in neither is background.\n"
     "Overlay samples v are first weakened to (v * ((density * 256 + 50) / 100)) >> 8. Where the\n"
     "overlay lies alone, a transparent pixel is 0, whatever the background.\n"
     "Composition starts at line min(--base X, --at Y), the page's column being what enters:\n"
     "above it all is background and a page placed higher begins there; with --base 0,Y it is\n"
     "line 0 and nothing surprising happens. Colour is just cut at the output page's right edge;\n"
     "the lines of a gray image that is cut there start as much too early in it, and by more from\n"
     "line to line.\n"
     "The overlay must be gray for gray pages and colour for colour pages.",
     overlayParameters,
     "rast overlay --with logo.ppm --at 3,1 --mode ink --density 80 in.ppm out.ppm", makeOverlay,
     Takes::both, storesPages},
    {"overlayrgb", "an image over the page, pixel by pixel",
     "The page and the overlay are placed in an output page; what lies in neither is background.\n"
     "Each is consumed as one run of pixels, and they cross: where the page lies alone the\n"
     "overlay's next pixel shows, where the overlay lies alone the page's next pixel; where both\n"
     "lie, the overlay's next pixel shows without being consumed, and one of the page's is\n"
     "consumed. A run that ends too early goes on with background.\n"
     "Composition starts at line min(--base X, --at Y), the page's column being what enters:\n"
     "above it all is background; with --base 0,Y it is line 0.",
     overlayRgbParameters, "rast overlayrgb --with logo.ppm --at 4,2 --white in.ppm out.ppm",
     makeOverlayRgb, Takes::colour, storesPages},
    {"rotate", "quarter turn", "Lines become columns; the direction is given before IN.",
     rotateParameters, "rast rotate cw in.ppm out.ppm", makeRotate, Takes::both, storesPages},
    {"zoom", "reduction by averaging",
     "Lines, and the samples of a line, are gathered into groups by an accumulator that grows by\n"
     "the ratio and completes a group at 1000; what is left at the end is a group too. A group\n"
     "becomes its mean, truncated. A group of one adds what the group before it had before its\n"
     "last sample, in 8 bits, deliberately: ratios of 501 to 999 have such groups, others do not.\n"
     "Bands are extended to multiples of 1000 / gcd(1000, vertical ratio) lines.",
     zoomParameters, "rast zoom --percent 50 in.ppm out.ppm", makeZoom, Takes::both, !storesPages,
     needsParameter},
    {"shift", "the page moved within an output page",
     "What reaches past the right or lower edge is left out. With a negative offset the first\n"
     "columns or lines are kept, from column or line 0 on, and as many of the last ones are\n"
     "dropped. Not possible: a negative --y without a negative --x, a positive --y with one, an\n"
     "offset beyond the page, and with a negative --x more columns or lines than --size has.",
     shiftParameters, "rast shift --x 2 --y 1 in.ppm out.ppm", makeShift, Takes::both, !storesPages,
     needsParameter},
    {"gray",
     "colour to gray",
     "A pixel becomes its ITU-R BT.601 luma, 0.299 R + 0.587 G + 0.114 B, rounded to nearest. "
     "Gray\n"
     "pages pass as they are.",
     {},
     "rast gray in.ppm out.pgm",
     makeGray,
     Takes::both},
};

}  // namespace

std::span<const Operation> operations() { return table; }

const Operation* findOperation(const std::string& name) {
  const auto found = std::ranges::find(table, name, &Operation::name);
  return found != std::end(table) ? found : nullptr;
}

bool takesPage(const Operation& operation, bool colour) {
  return operation.takes == Takes::both || (operation.takes == Takes::colour) == colour;
}

const char* takenPages(const Operation& operation) {
  switch (operation.takes) {
    case Takes::gray:
      return "gray pages";
    case Takes::colour:
      return "colour pages";
    case Takes::both:
      break;
  }
  return "gray and colour pages";
}
