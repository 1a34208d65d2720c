#include "text/text.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <cwctype>

std::string join(std::initializer_list<Part> parts) {
  std::string text;
  for (const Part& part : parts) text += part.text();
  return text;
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

std::string alignedRight(const std::string& text, std::size_t width) {
  return std::string(std::max(width, text.size()) - text.size(), ' ') + text;
}

std::string alignedLeft(const std::string& text, std::size_t width) {
  return text + std::string(std::max(width, text.size()) - text.size(), ' ');
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

std::string printable(const std::string& text) {
  // Only here, where it is needed: it takes long for a start.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  constexpr std::size_t longest = 1000;
  std::string line;
  std::mbstate_t state = {};
  for (std::size_t at = 0; at < text.size();) {
    if (line.size() > longest) return line + "...";
    wchar_t character = 0;
    const std::size_t size = std::mbrtowc(&character, &text[at], text.size() - at, &state);
    const bool isText =
        size > 0 && size <= text.size() && std::iswprint(std::wint_t(character)) != 0;
    line += isText ? text.substr(at, size) : "?";
    if (!isText) state = {};
    at += isText ? size : 1;
  }
  return line;
}
