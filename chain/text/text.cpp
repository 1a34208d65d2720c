#include "text/text.h"

#include <algorithm>

namespace rast {

std::string join(std::initializer_list<Part> parts) {
  std::string text;
  for (const Part& part : parts) text += part.text();
  return text;
}

std::string quoted(std::string_view text) {
  constexpr std::size_t longest = 120;
  std::size_t end = std::min(text.size(), longest);
  // No cut inside a UTF-8 character.
  while (end < text.size() && end > 0 && (text[end] & 0xC0) == 0x80) --end;
  return join('\'', text.substr(0, end), end < text.size() ? "..." : "", '\'');
}

std::string fixed(double number, int digits) {
  char text[400];  // the largest number has 309 digits before the point
  std::snprintf(text, sizeof text, "%.*f", digits, number);
  return text;
}

std::string hexadecimal(std::uint64_t number) {
  char digits[16];
  return {digits, std::to_chars(std::begin(digits), std::end(digits), number, 16).ptr};
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(separator), text.size());
    pieces.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return pieces;
}

}  // namespace rast
