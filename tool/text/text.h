// Texts, made of parts and taken apart. Without streams, whose locales take longer to set up than
// all else that the command does before it reads a page.
#ifndef RAST_TOOL_TEXT_H
#define RAST_TOOL_TEXT_H

#include <charconv>
#include <concepts>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

template <class Part>
void append(std::string& text, const Part& part) {
  if constexpr (std::convertible_to<const Part&, std::string_view>) {
    text += std::string_view(part);
  } else if constexpr (std::same_as<Part, char>) {
    text += part;
  } else {
    static_assert(std::is_arithmetic_v<Part> && !std::same_as<Part, bool>);
    char digits[24];  // as many as the longest double needs
    text.append(digits, std::to_chars(std::begin(digits), std::end(digits), part).ptr);
  }
}

// Texts, characters and numbers, with as few digits as tell them apart.
template <class... Parts>
std::string join(const Parts&... parts) {
  std::string text;
  (append(text, parts), ...);
  return text;
}

// With so many digits after the point.
std::string fixed(double number, int digits);
std::string hexadecimal(std::uint64_t number);

// Fills a text up to so many characters with spaces, before it or after it.
std::string alignedRight(const std::string& text, std::size_t width);
std::string alignedLeft(const std::string& text, std::size_t width);

// What stands between separators. A separator at the end begins nothing.
std::vector<std::string> split(std::string_view text, char separator);

// The parts of a path: the folder with its slash, or empty, and what comes after it.
constexpr std::string_view folderIn(std::string_view path) {
  return path.substr(0, path.rfind('/') + 1);
}
constexpr std::string_view nameIn(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

// One line whatever is in it: names of files may hold line ends, terminal commands and bytes that
// are no text.
std::string printable(const std::string& text);

#endif
