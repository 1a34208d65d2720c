#include "text/json.h"

#include <cstdint>

namespace rast {

namespace {

// Length of the UTF-8 character that the text begins with; 0 where it begins with none.
std::size_t utf8Length(std::string_view text) {
  const auto byte = [&text](std::size_t i) -> std::uint32_t {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const std::uint32_t first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4) return 0;
  std::uint32_t code = first & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3F);
  }
  const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  return overlong || surrogate || code > 0x10FFFF ? 0 : length;
}

}  // namespace

std::string jsonString(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    const char c = text[0];
    const auto byte = static_cast<unsigned char>(c);
    const std::size_t length = utf8Length(text);
    if (c == '"' || c == '\\') {
      result += join('\\', c);
    } else if (c == '\n') {
      result += "\\n";
    } else if (byte < ' ' || byte == 0x7F) {
      const std::string digits = hexadecimal(byte);
      result += join("\\u", std::string(4 - digits.size(), '0'), digits);
    } else {
      result += length == 0 ? "\xEF\xBF\xBD" : text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return result + '"';
}

}  // namespace rast
