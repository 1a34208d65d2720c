// Texts put together from parts and taken apart, without streams and locales.
#pragma once

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

namespace rast {

// One part of a text: a text, a character, a whole number, or a decimal number to six digits.
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
  char own_[24] = "";  // the longest number fits
  std::ptrdiff_t length_ = 0;
};

std::string join(std::initializer_list<Part> parts);
template <class... Parts>
std::string join(const Parts&... parts) {
  return join({Part(parts)...});
}

// The user's text for a message: in quotation marks, and cut if it is long.
std::string quoted(std::string_view text);

std::string fixed(double number, int digits);
std::string hexadecimal(std::uint64_t number);

// The pieces between separators. A separator at the end begins no piece.
std::vector<std::string> split(std::string_view text, char separator);

}  // namespace rast
