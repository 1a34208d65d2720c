#include "operations/advice.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "text/text.h"

namespace rast::chain {

namespace {

// Levenshtein distance.
std::size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string nearestName(const std::string& given, const std::vector<std::string>& known) {
  const auto far = [&given](const std::string& name) { return distance(given, name); };
  const auto best = std::ranges::min_element(known, {}, far);
  const bool isClose =
      best != known.end() && far(*best) <= std::min<std::size_t>(3, best->size() / 2);
  return isClose ? *best : "";
}

std::string advice(const std::string& nearest, const std::string& otherwise) {
  return nearest.empty() ? otherwise : join("; did you mean '", nearest, "'?");
}

}  // namespace rast::chain
