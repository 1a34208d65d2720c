// The first bytes of page files.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace rast::tool {

inline constexpr std::size_t kLongestSignature = 4;  // that decides on a format

// True where a stream that starts with these bytes may begin with the word: all bytes there are agree.
constexpr bool beginsLike(std::span<const std::uint8_t> start, std::string_view word) {
  return !start.empty() &&
         std::ranges::equal(
             start.first(std::min(start.size(), word.size())), word.substr(0, start.size()),
             [](std::uint8_t byte, char c) { return byte == static_cast<std::uint8_t>(c); });
}

}  // namespace rast::tool
