#include "operations/operations.h"

#include <rast.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <utility>

namespace rast::chain {

namespace {

constexpr std::size_t kMono = 3;  // index of the mono plane

// Calls an operation for each plane by itself, at that index.
template <class Call>
std::uint32_t onEachPlane(const Planes& in, const Planes& out, std::size_t index,
                          const Call& call) {
  for (std::size_t c = 0; c < in.count; ++c) {
    const RastPlaneSet set = planeSet(Planes(1, in.at[c], 0), Planes(1, out.at[c], 0), index);
    if (const std::uint32_t result = call(set); result != RAST_OK) return result;
  }
  return RAST_OK;
}

// Gray and color pages in one call, CMYK pages plane by plane.
template <class Call>
std::uint32_t onPlanes(const Planes& in, const Planes& out, std::size_t index, const Call& call) {
  return in.count > 3 ? onEachPlane(in, out, index, call) : call(planeSet(in, out, index));
}

constexpr Parameter kExpGammaParameters[] = {
    {"threshold", Kind::numbers, "N", 0, 255, "0", "samples up to this become 0"},
    {"offset", Kind::numbers, "N", 0, 255, "0", "level added to samples above the threshold"},
    {"gain", Kind::numbers, "N", 0, 65535, "256",
     "slope above the threshold, in 1/256: 256 is 1.0"},
};

std::unique_ptr<Step> makeExpGamma(const Values& values, const ReadImage&) {
  const RastExpGammaParam curve{static_cast<std::uint8_t>(numberOf(values[0])),
                                static_cast<std::uint8_t>(numberOf(values[1])),
                                static_cast<std::uint16_t>(numberOf(values[2]))};
  return bandStep({[curve](const RastArea& area, const Planes& in, const Planes& out) {
    return onEachPlane(in, out, kMono, [&](const RastPlaneSet& planes) {
      return rastExpGamma(&area, &planes, &curve, nullptr);
    });
  }});
}

constexpr Parameter kColGammaParameters[] = {
    {"curve", Kind::curve, "FILE|invert|gamma=G", 0, 255, nullptr,
     "FILE: a text file of 256 whole numbers 0..255, separated by white\n"
     "space or commas; '#' starts a comment\n"
     "invert: 255 - x\n"
     "gamma=G: 255 * (x / 255) ^ (1 / G), rounded to nearest; G is a\n"
     "decimal number 0.1..10, above 1 it makes mid-tones lighter\n"
     "./invert: the file of that name"},
};

std::unique_ptr<Step> makeColGamma(const Values& values, const ReadImage&) {
  std::array<std::uint8_t, 256> curve = {};
  std::ranges::transform(numbersOf(values[0]), curve.begin(),
                         [](std::int64_t v) { return static_cast<std::uint8_t>(v); });
  return bandStep({[curve](const RastArea& area, const Planes& in, const Planes& out) {
    return onPlanes(in, out, kMono, [&](const RastPlaneSet& planes) {
      return rastColGamma(&area, &planes, curve.data());
    });
  }});
}

constexpr Parameter kBinConvParameters[] = {
    {"color", Kind::numbers, "N", 0, 5, "0",
     "planes of OUT that get the ink; the others become 0:\n"
     "0 red, 1 green, 2 blue,\n"
     "3 green and blue, 4 red and blue, 5 red and green"},
};

std::unique_ptr<Step> makeBinConv(const Values& values, const ReadImage&) {
  const auto color = static_cast<std::uint32_t>(numberOf(values[0]));
  return bandStep({[color](const RastArea& area, const Planes& in, const Planes& out) {
    const RastPlaneSet planes = planeSet(in, out, 3);
    return rastBinConv(&area, &planes, color);
  }});
}

constexpr Parameter kSatAdjustParameters[] = {
    {"mode", Kind::choice, "lower|raise", 0, 1, nullptr,
     "move each component towards the pixel's gray level, or away from it"},
};

std::unique_ptr<Step> makeSatAdjust(const Values& values, const ReadImage&) {
  const auto mode = static_cast<std::uint32_t>(numberOf(values[0]));
  return bandStep({[mode](const RastArea& area, const Planes& in, const Planes& out) {
    const RastPlaneSet planes = planeSet(in, out, 3);
    return rastSatAdjust(&area, &planes, mode);
  }});
}

constexpr Parameter kHueAdjustParameters[] = {
    {"matrix", Kind::matrix, "FILE|PRESET|rotate=DEGREES", INT16_MIN, INT16_MAX, "identity",
     "FILE: a text file of 15 whole numbers -32768..32767, three rows of\n"
     "five, separated by white space or commas; '#' starts a comment\n"
     "PRESET: identity, grayscale (ITU-R BT.601 luma), sepia, or swap-rb\n"
     "(red and blue exchanged)\n"
     "rotate=DEGREES: hue rotation that keeps ITU-R BT.709 luma and grays,\n"
     "-360..360; the hueRotate formula of feColorMatrix in the W3C filter\n"
     "effects recommendation (weights 0.213, 0.715, 0.072), in 1/256\n"
     "./sepia: the file of that name"},
    {"reverse", Kind::flag, nullptr, 0, 1, "0", "invert the result: 255 - v"},
    {"mirror", Kind::flag, nullptr, 0, 1, "0", "mirror lines left to right"},
};

void mirrorLines(const RastArea& area, const Planes& planes) {
  for (std::size_t c = 0; c < planes.count; ++c) {
    std::uint8_t* line = planes.at[c];
    for (std::int32_t y = 0; y < area.nHeight; ++y, line += area.nWidth) {
      std::reverse(line, line + area.nWidth);
    }
  }
}

// With a lookup buffer, the library prints nothing and does not mirror.
std::unique_ptr<Step> makeHueAdjust(const Values& values, const ReadImage&) {
  RastHueParam param = {};
  const Numbers& matrix = numbersOf(values[0]);
  for (std::size_t i = 0; i < matrix.size(); ++i) {
    param.nMatrix[i / 5][i % 5] = static_cast<std::int16_t>(matrix[i]);
  }
  const bool mirrors = numberOf(values[2]) != 0;
  RastHueLut lut = {};
  lut.nReverse = static_cast<std::int16_t>(numberOf(values[1]));
  return bandStep(
      {[param, mirrors, lut](const RastArea& area, const Planes& in, const Planes& out) mutable {
        const RastPlaneSet planes = planeSet(in, out, 3);
        const std::uint32_t result = rastHueAdjust(&area, &planes, &param, &lut);
        if (mirrors && result == RAST_OK) mirrorLines(area, out);
        return result;
      }});
}

constexpr Parameter kColBalanceParameters[] = {
    {"curve", Kind::numbers, "N", 0, 4, "4",
     "tone curve: 0 more contrast, 1 less contrast, 2 darker mid-tones,\n"
     "3 lighter mid-tones, 4 none"},
    {"level", Kind::numbers, "R,G,B,GRAY", 0, 11, "5,5,5,5",
     "levels of red, green, blue and the gray part, 0 to 10: 5 is neutral,\n"
     "a step is 5 sample values; 11 is the same as 10"},
};

std::unique_ptr<Step> makeColBalance(const Values& values, const ReadImage&) {
  RastColBalanceParam param = {};
  param.nCurve = static_cast<std::uint8_t>(numberOf(values[0]));
  for (std::size_t i = 0; i < 4; ++i) {
    param.nLevel[i] = static_cast<std::int16_t>(numbersOf(values[1])[i]);
  }
  return bandStep({[param, lut = std::array<std::uint8_t, 1025>{}](
                       const RastArea& area, const Planes& in, const Planes& out) mutable {
    const RastPlaneSet planes = planeSet(in, out, 3);
    return rastColBalance(&area, &planes, &param, lut.data());
  }});
}

std::optional<Size> sizeOf(const Value& value) {
  if (!isGiven(value)) return {};
  return Size{static_cast<std::uint32_t>(numbersOf(value)[0]),
              static_cast<std::uint32_t>(numbersOf(value)[1])};
}

Position positionOf(const Value& value) {
  return {static_cast<std::int32_t>(numbersOf(value)[0]),
          static_cast<std::int32_t>(numbersOf(value)[1])};
}

constexpr Parameter kOverlayParameters[] = {
    {"with", Kind::image, "FILE", 0, 0, nullptr,
     "the overlay: one image, of the kinds that IN may hold"},
    {"flatten", Kind::choice, "black|white", 0, 1, "",
     "background onto which a transparent overlay is composited when it\n"
     "is read, rounded to nearest; without it, such a FILE is refused"},
    {"at", Kind::numbers, "X,Y", 0, INT32_MAX, "0,0",
     "place of the overlay's top left corner in the output page"},
    {"base", Kind::numbers, "X,Y", 0, INT32_MAX, "0,0",
     "place of the page's top left corner in the output page"},
    {"size", Kind::size, "WxH", 1, INT32_MAX, "",
     "size of the output page; that of the page if not given"},
    {"white", Kind::flag, nullptr, 0, 1, "0", "white background, 255, instead of black, 0"},
    {"mode", Kind::choice, "replace|max|ink", 0, 2, "replace",
     "what shows where both lie, by the overlay's weakened samples:\n"
     "replace: a pixel whose largest sample is below the threshold 16 is\n"
     "transparent and shows the page, any other replaces it\n"
     "max: no pixel is transparent (the threshold is 0); the larger of\n"
     "both shows, sample by sample\n"
     "ink: as replace with threshold 1, so that only a pixel that is 0\n"
     "throughout is transparent"},
    {"density", Kind::numbers, "N", 10, 100, "100",
     "percentage that overlay samples are weakened to"},
};

OverlaySettings overlaySettings(const Values& values, const ReadImage& readImage) {
  OverlaySettings settings;
  settings.name = nameOf(values[0]);
  if (isGiven(values[1])) settings.background = static_cast<int>(numberOf(values[1]) * 255);
  settings.at = positionOf(values[2]);
  settings.base = positionOf(values[3]);
  settings.size = sizeOf(values[4]);
  settings.white = static_cast<std::uint32_t>(numberOf(values[5]));
  settings.readImage = readImage;
  return settings;
}

std::unique_ptr<Step> makeOverlay(const Values& values, const ReadImage& readImage) {
  OverlaySettings settings = overlaySettings(values, readImage);
  settings.mode = static_cast<std::uint32_t>(numberOf(values[6]));
  settings.density = static_cast<std::uint32_t>(numberOf(values[7]));
  return overlayStep(std::move(settings));
}

// Without mode and density: pixels are copied as they are.
constexpr std::span<const Parameter> kOverlayRgbParameters(kOverlayParameters, 6);

std::unique_ptr<Step> makeOverlayRgb(const Values& values, const ReadImage& readImage) {
  OverlaySettings settings = overlaySettings(values, readImage);
  settings.interleaved = true;
  return overlayStep(std::move(settings));
}

constexpr Parameter kRotateParameters[] = {
    {"turn", Kind::choice, "cw|ccw", 0, 1, nullptr,
     "direction, clockwise or counter-clockwise; with this option it is\n"
     "not given before IN",
     true},
};

std::unique_ptr<Step> makeRotate(const Values& values, const ReadImage&) {
  return rotateStep(numberOf(values[0]) == 0 ? RAST_ROTATE_CW90 : RAST_ROTATE_CCW90);
}

constexpr Parameter kZoomParameters[] = {
    {"percent", Kind::decimal, "P", 1, kWholeRatio, "100",
     "both ratios in percent, 0.1..100, with one decimal"},
    {"x", Kind::numbers, "N", 1, kWholeRatio, "",
     "horizontal ratio in thousandths, in place of --percent"},
    {"y", Kind::numbers, "N", 1, kWholeRatio, "",
     "vertical ratio in thousandths, in place of --percent"},
};

std::unique_ptr<Step> makeZoom(const Values& values, const ReadImage&) {
  const auto ratio = [&values](std::size_t i) {
    return static_cast<std::uint32_t>(numberOf(values[isGiven(values[i]) ? i : 0]));
  };
  const RastZoomParam given{1, ratio(1), ratio(2)};
  constexpr std::uint32_t workingBytes = 3;  // a line of samples, and one of 16-bit sums
  return bandStep({[given](const RastArea& area, const Planes& in, const Planes& out) {
                     RastZoomParam param = given;
                     if (in.count == 3) param.nPlaneNum = 3;
                     return onPlanes(in, out, 0, [&](const RastPlaneSet& planes) {
                       return rastZoom(&area, &planes, &param);
                     });
                   },
                   false, given.nRatioX, given.nRatioY, workingBytes});
}

constexpr Parameter kShiftParameters[] = {
    {"x", Kind::numbers, "N", -INT32_MAX, INT32_MAX, "0",
     "columns to the right; if negative, columns to drop"},
    {"y", Kind::numbers, "N", -INT32_MAX, INT32_MAX, "0", "lines down; if negative, lines to drop"},
    {"size", Kind::size, "WxH", 1, INT32_MAX, "",
     "size of the output page; that of the page if not given"},
    {"fill", Kind::choice, "none|black|white", 0, 2, "white",
     "the rest of the output page; with none it is left as it is, which\n"
     "is 0, since the page is cleared before"},
};

std::unique_ptr<Step> makeShift(const Values& values, const ReadImage&) {
  const Position by = {static_cast<std::int32_t>(numberOf(values[0])),
                       static_cast<std::int32_t>(numberOf(values[1]))};
  return shiftStep(by, sizeOf(values[2]), static_cast<std::uint32_t>(numberOf(values[3])));
}

std::unique_ptr<Step> makeGray(const Values&, const ReadImage&) { return grayStep(); }

constexpr bool kKeepsPages = true;
constexpr bool kNeedsParameter = true;

constexpr Takes kEachGray = {true, false, true};  // the planes of CMYK pages are gray to it
constexpr Takes kColorOnly = {false, true, false};
constexpr Takes kGrayAndColor = {true, true, false};
constexpr Takes kEachPlane = {true, true, true};

constexpr Operation kTable[] = {
    {"expgamma", "threshold-gain curve",
     "A sample x up to the threshold becomes 0; any other becomes\n"
     "((x - threshold) * gain >> 8) + offset, at most 255.",
     kExpGammaParameters, "rast expgamma --threshold 16 --offset 8 --gain 320 in.pgm out.pgm",
     makeExpGamma, kEachGray, !kKeepsPages, kNeedsParameter},
    {"colgamma", "tone curve",
     "Every sample x, in all components alike, becomes entry x of the curve.", kColGammaParameters,
     "rast colgamma --curve gamma=2.2 in.ppm out.ppm", makeColGamma, kEachPlane},
    {"binconv", "two-color conversion",
     "Color becomes an ink: the luma (77 R + 150 G + 29 B) / 256 less 30, times a weight that\n"
     "rises with the pixel's saturation up to a limit that depends on its hue. Neutral pixels\n"
     "become 0.",
     kBinConvParameters, "rast binconv --color 3 in.ppm out.ppm", makeBinConv, kColorOnly},
    {"satadjust", "saturation lowered or raised by a quarter",
     "The gray level of a pixel is (70 R + 150 G + 29 B) / 256; the weights add up to less than\n"
     "1, so grays get a little darker when lowered, and some a little lighter when raised.\n"
     "Within a line every whole group of four pixels comes out mirrored, deliberately: pixels\n"
     "1 2 3 4 become 4 3 2 1; the one to three pixels left at the end stay in place.",
     kSatAdjustParameters, "rast satadjust --mode raise in.ppm out.ppm", makeSatAdjust, kColorOnly},
    {"hueadjust", "color matrix",
     "With m the matrix and R = red + m[0][3], G = green + m[1][3], B = blue + m[2][3],\n"
     "component k becomes (m[k][0] * R + m[k][1] * G + m[k][2] * B) / 256 + m[k][4], truncated\n"
     "and clamped to 0..255: the weights are in 1/256, 256 is 1.0. A gray sample x becomes\n"
     "m[0][0] * (x + m[0][3]) / 256 + m[0][4], so only few matrices suit gray pages.",
     kHueAdjustParameters, "rast hueadjust --matrix rotate=30 in.ppm out.ppm", makeHueAdjust,
     kGrayAndColor, !kKeepsPages, kNeedsParameter},
    {"colbalance", "color balance",
     "A pixel is split into its gray part, the smallest component, and what each component has\n"
     "above it, scaled to the room left. Each passes through the tone curve, then through its\n"
     "level; then the pixel is put together again.",
     kColBalanceParameters, "rast colbalance --level 6,5,4,5 in.ppm out.ppm", makeColBalance,
     kColorOnly, !kKeepsPages, kNeedsParameter},
    {"overlay", "an image over the page",
     "The page and the overlay are placed in an output page; what lies in neither is background.\n"
     "Overlay samples v are first weakened to (v * ((density * 256 + 50) / 100)) >> 8. Where the\n"
     "overlay lies alone, a transparent pixel is 0, whatever the background.\n"
     "Composition starts at line min(--base X, --at Y), the page's column being what enters:\n"
     "above it all is background and a page placed higher begins there; with --base 0,Y it is\n"
     "line 0 and nothing surprising happens. Color is just cut at the output page's right edge;\n"
     "the lines of a gray image that is cut there start as much too early in it, and by more from\n"
     "line to line.\n"
     "The overlay must be gray for gray pages and color for color pages.",
     kOverlayParameters,
     "rast overlay --with logo.ppm --at 3,1 --mode ink --density 80 in.ppm out.ppm", makeOverlay,
     kEachPlane, kKeepsPages},
    {"overlayrgb", "an image over the page, pixel by pixel",
     "The page and the overlay are placed in an output page; what lies in neither is background.\n"
     "Each is consumed as one run of pixels, and they cross: where the page lies alone the\n"
     "overlay's next pixel shows, where the overlay lies alone the page's next pixel; where both\n"
     "lie, the overlay's next pixel shows without being consumed, and one of the page's is\n"
     "consumed. A run that ends too early goes on with background.\n"
     "Composition starts at line min(--base X, --at Y), the page's column being what enters:\n"
     "above it all is background; with --base 0,Y it is line 0.",
     kOverlayRgbParameters, "rast overlayrgb --with logo.ppm --at 4,2 --white in.ppm out.ppm",
     makeOverlayRgb, kColorOnly, kKeepsPages},
    {"rotate", "quarter turn", "Lines become columns; the direction is given before IN.",
     kRotateParameters, "rast rotate cw in.ppm out.ppm", makeRotate, kEachPlane, kKeepsPages},
    {"zoom", "reduction by averaging",
     "Lines, and the samples of a line, are gathered into groups by an accumulator that grows by\n"
     "the ratio and completes a group at 1000; what is left at the end is a group too. A group\n"
     "becomes its mean, truncated. A group of one adds what the group before it had before its\n"
     "last sample, in 8 bits, deliberately: ratios of 501 to 999 have such groups, others do not.\n"
     "Bands are extended to multiples of 1000 / gcd(1000, vertical ratio) lines.",
     kZoomParameters, "rast zoom --percent 50 in.ppm out.ppm", makeZoom, kEachPlane, !kKeepsPages,
     kNeedsParameter},
    {"shift", "the page moved within an output page",
     "What reaches past the right or lower edge is left out. With a negative offset the first\n"
     "columns or lines are kept, from column or line 0 on, and as many of the last ones are\n"
     "dropped. Not possible: a negative --y without a negative --x, a positive --y with one, an\n"
     "offset beyond the page, and with a negative --x more columns or lines than --size has.",
     kShiftParameters, "rast shift --x 2 --y 1 in.ppm out.ppm", makeShift, kEachPlane, !kKeepsPages,
     kNeedsParameter},
    {"gray",
     "color to gray",
     "A pixel becomes its ITU-R BT.601 luma, 0.299 R + 0.587 G + 0.114 B, rounded to nearest. "
     "Gray\n"
     "pages pass as they are.",
     {},
     "rast gray in.ppm out.pgm",
     makeGray,
     kGrayAndColor},
};

}  // namespace

const char kImageFromStandardInput[] = "--with: standard input is for pages; expected a file";
const char kBackgroundRemedy[] = "give --flatten black or --flatten white";

std::span<const Operation> operations() { return kTable; }

const Operation* findOperation(const std::string& name) {
  const auto found = std::ranges::find(kTable, name, &Operation::name);
  return found != std::end(kTable) ? found : nullptr;
}

std::vector<std::string> operationNames() {
  std::vector<std::string> names;
  for (const Operation& operation : kTable) names.emplace_back(operation.name);
  return names;
}

const char* takenPages(const Operation& operation) {
  const Takes& takes = operation.takes;
  return takes.gray && takes.color ? "gray and color pages"
         : takes.gray              ? "gray pages"
                                   : "color pages";
}

}  // namespace rast::chain
