#include "text/printable.h"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <cwctype>

namespace rast::tool {

std::string alignedRight(const std::string& text, std::size_t width) {
  return std::string(std::max(width, text.size()) - text.size(), ' ') + text;
}

std::string alignedLeft(const std::string& text, std::size_t width) {
  return text + std::string(std::max(width, text.size()) - text.size(), ' ');
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

}  // namespace rast::tool
