// Texts, made of parts and taken apart. Without streams, whose locales take longer to set up than
// all else that the command does before it reads a page.
#ifndef RAST_TOOL_TEXT_H
#define RAST_TOOL_TEXT_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

// Of a text: a text itself, a character, a whole number or a decimal one to six digits.
class Part {
 public:
  Part(std::string_view text) : text_(text) {}
  Part(const std::string& text) : text_(text) {}
  Part(const char* text) : text_(text) {}
  Part(char character) : own_{character}, length_(1) {}
  template <class Number>
  requires std::is_integral_v<Number> Part(Number number)
      : length_(std::to_chars(std::begin(own_), std::end(own_), number).ptr - own_) {}
  Part(double number) : length_(std::snprintf(own_, sizeof own_, "%g", number)) {}
  Part(bool) = delete;

  std::string_view text() const {
    return length_ != 0 ? std::string_view(own_, static_cast<std::size_t>(length_)) : text_;
  }

 private:
  std::string_view text_;
  char own_[24] = "";  // as many as the longest number needs
  std::ptrdiff_t length_ = 0;
};

std::string join(std::initializer_list<Part> parts);
template <class... Parts>
std::string join(const Parts&... parts) {
  return join({Part(parts)...});
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
