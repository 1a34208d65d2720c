#include "operations.h"

#include <algorithm>

namespace {

constexpr Parameter expGammaParameters[] = {
    {"threshold", 0, 255, 0, "samples up to this become 0"},
    {"offset", 0, 255, 0, "level added to samples above the threshold"},
    {"gain", 0, 65535, 256, "slope above the threshold, in 1/256: 256 is 1.0"},
};

Filter makeExpGamma(const Values &values) {
  const RastExpGammaParam curve{static_cast<std::uint8_t>(values[0]),
                                static_cast<std::uint8_t>(values[1]),
                                static_cast<std::uint16_t>(values[2])};
  return [curve](const RastArea &area, const RastPlaneSet &planes) {
    return rastExpGamma(&area, &planes, &curve, nullptr);
  };
}

constexpr Operation table[] = {
    {"expgamma", "threshold-gain curve",
     "A sample x up to the threshold becomes 0; any other becomes\n"
     "((x - threshold) * gain >> 8) + offset, at most 255.",
     Takes::gray, expGammaParameters,
     "rast expgamma --threshold 16 --offset 8 --gain 320 in.pgm out.pgm", makeExpGamma},
};

}  // namespace

std::span<const Operation> operations() { return table; }

const Operation *findOperation(const std::string &name) {
  const auto found = std::ranges::find(table, name, &Operation::name);
  return found != std::end(table) ? found : nullptr;
}

bool takesPage(const Operation &operation, bool colour) {
  return operation.takes == Takes::both || (operation.takes == Takes::colour) == colour;
}

const char *takenPages(const Operation &operation) {
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
