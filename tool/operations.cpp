#include "operations.h"

#include <algorithm>
#include <array>

#include "tables.h"

namespace {

constexpr Parameter expGammaParameters[] = {
    {"threshold", "N", readNumbers, 0, 255, "0", "samples up to this become 0"},
    {"offset", "N", readNumbers, 0, 255, "0", "level added to samples above the threshold"},
    {"gain", "N", readNumbers, 0, 65535, "256", "slope above the threshold, in 1/256: 256 is 1.0"},
};

Filter makeExpGamma(const Values& values) {
  const RastExpGammaParam curve{static_cast<std::uint8_t>(values[0][0]),
                                static_cast<std::uint8_t>(values[1][0]),
                                static_cast<std::uint16_t>(values[2][0])};
  return [curve](const RastArea& area, const RastPlaneSet& planes) {
    return rastExpGamma(&area, &planes, &curve, nullptr);
  };
}

constexpr Parameter colGammaParameters[] = {
    {"curve", "FILE|invert|gamma=G", readCurve, 0, 255, nullptr,
     "FILE: a text file of 256 whole numbers 0..255, separated by white\n"
     "space or commas; '#' starts a comment\n"
     "invert: 255 - x\n"
     "gamma=G: 255 * (x / 255) ^ (1 / G), rounded to nearest; G is a\n"
     "decimal number 0.1..10, above 1 it makes mid-tones lighter\n"
     "a file of such a name is given as ./invert"},
};

Filter makeColGamma(const Values& values) {
  std::array<std::uint8_t, 256> curve = {};
  std::ranges::transform(values[0], curve.begin(),
                         [](std::int64_t v) { return static_cast<std::uint8_t>(v); });
  return [curve](const RastArea& area, const RastPlaneSet& planes) {
    return rastColGamma(&area, &planes, curve.data());
  };
}

constexpr Parameter binConvParameters[] = {
    {"color", "N", readNumbers, 0, 5, "0",
     "planes of OUT that get the ink; the others become 0:\n"
     "0 red, 1 green, 2 blue,\n"
     "3 green and blue, 4 red and blue, 5 red and green"},
};

Filter makeBinConv(const Values& values) {
  const auto color = static_cast<std::uint32_t>(values[0][0]);
  return [color](const RastArea& area, const RastPlaneSet& planes) {
    return rastBinConv(&area, &planes, color);
  };
}

constexpr Parameter satAdjustParameters[] = {
    {"mode", "lower|raise", readChoice, 0, 1, nullptr,
     "move each component towards the pixel's grey level, or away from it"},
};

Filter makeSatAdjust(const Values& values) {
  const auto mode = static_cast<std::uint32_t>(values[0][0]);
  return [mode](const RastArea& area, const RastPlaneSet& planes) {
    return rastSatAdjust(&area, &planes, mode);
  };
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
     "a file of such a name is given as ./sepia"},
    {"reverse", nullptr, readNumbers, 0, 1, "0", "invert the result: 255 - v"},
    {"mirror", nullptr, readNumbers, 0, 1, "0",
     "mirror lines left to right; the library then prints trace lines,\n"
     "which go to standard error"},
};

Filter makeHueAdjust(const Values& values) {
  RastHueParam param = {};
  for (std::size_t i = 0; i < values[0].size(); ++i) {
    param.nMatrix[i / 5][i % 5] = static_cast<std::int16_t>(values[0][i]);
  }
  param.nReverse = static_cast<std::int16_t>(values[1][0]);
  param.nMirror = static_cast<std::int16_t>(values[2][0]);
  if (param.nMirror != 0) {
    return [param](const RastArea& area, const RastPlaneSet& planes) {
      return rastHueAdjust(&area, &planes, &param, nullptr);
    };
  }
  RastHueLut lut = {};
  lut.nReverse = param.nReverse;
  return [param, lut](const RastArea& area, const RastPlaneSet& planes) mutable {
    return rastHueAdjust(&area, &planes, &param, &lut);
  };
}

constexpr Parameter colBalanceParameters[] = {
    {"curve", "N", readNumbers, 0, 4, "4",
     "tone curve: 0 more contrast, 1 less contrast, 2 darker mid-tones,\n"
     "3 lighter mid-tones, 4 none"},
    {"level", "R,G,B,GREY", readNumbers, 0, 11, "5,5,5,5",
     "levels of red, green, blue and the grey part, 0 to 10: 5 is neutral,\n"
     "a step is 5 sample values; 11 is the same as 10"},
};

Filter makeColBalance(const Values& values) {
  RastColBalanceParam param = {};
  param.nCurve = static_cast<std::uint8_t>(values[0][0]);
  for (std::size_t i = 0; i < 4; ++i) param.nLevel[i] = static_cast<std::int16_t>(values[1][i]);
  return [param, lut = std::array<std::uint8_t, 1025>{}](const RastArea& area,
                                                         const RastPlaneSet& planes) mutable {
    return rastColBalance(&area, &planes, &param, lut.data());
  };
}

constexpr Operation table[] = {
    {"expgamma", "threshold-gain curve",
     "A sample x up to the threshold becomes 0; any other becomes\n"
     "((x - threshold) * gain >> 8) + offset, at most 255.",
     Takes::gray, expGammaParameters,
     "rast expgamma --threshold 16 --offset 8 --gain 320 in.pgm out.pgm", makeExpGamma},
    {"colgamma", "tone curve",
     "Every sample x, in all components alike, becomes entry x of the curve.", Takes::both,
     colGammaParameters, "rast colgamma --curve gamma=2.2 in.ppm out.ppm", makeColGamma},
    {"binconv", "two-colour conversion",
     "Colour becomes an ink: the luma (77 R + 150 G + 29 B) / 256 less 30, times a weight that\n"
     "rises with the pixel's saturation up to a limit that depends on its hue. Neutral pixels\n"
     "become 0.",
     Takes::colour, binConvParameters, "rast binconv --color 3 in.ppm out.ppm", makeBinConv},
    {"satadjust", "saturation lowered or raised by a quarter",
     "The grey level of a pixel is (70 R + 150 G + 29 B) / 256; the weights add up to less than\n"
     "1, so greys get a little darker when lowered, and some a little lighter when raised.\n"
     "Within a line every whole group of four pixels comes out mirrored, deliberately: pixels\n"
     "1 2 3 4 become 4 3 2 1; the one to three pixels left at the end stay in place.",
     Takes::colour, satAdjustParameters, "rast satadjust --mode raise in.ppm out.ppm",
     makeSatAdjust},
    {"hueadjust", "colour matrix",
     "With m the matrix and R = red + m[0][3], G = green + m[1][3], B = blue + m[2][3],\n"
     "component k becomes (m[k][0] * R + m[k][1] * G + m[k][2] * B) / 256 + m[k][4], truncated\n"
     "and clamped to 0..255: the weights are in 1/256, 256 is 1.0. A gray sample x becomes\n"
     "m[0][0] * (x + m[0][3]) / 256 + m[0][4], so only few matrices suit gray pages.",
     Takes::both, hueAdjustParameters, "rast hueadjust --matrix rotate=30 in.ppm out.ppm",
     makeHueAdjust},
    {"colbalance", "colour balance",
     "A pixel is split into its grey part, the smallest component, and what each component has\n"
     "above it, scaled to the room left. Each passes through the tone curve, then through its\n"
     "level; then the pixel is put together again.",
     Takes::colour, colBalanceParameters, "rast colbalance --level 6,5,4,5 in.ppm out.ppm",
     makeColBalance},
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
