// Texts for people: aligned, printable, and the parts of paths.
#pragma once

#include <string>
#include <string_view>

#include "text/text.h"

namespace rast::tool {

// Fills a text up to so many characters with spaces, before it or after it.
std::string alignedRight(const std::string& text, std::size_t width);
std::string alignedLeft(const std::string& text, std::size_t width);

// The parts of a path: the folder with its slash, or empty, and what comes after it.
constexpr std::string_view folderIn(std::string_view path) {
  return path.substr(0, path.rfind('/') + 1);
}
constexpr std::string_view nameIn(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

// One line, whatever is in it: names of files may hold line ends, terminal commands and bytes that
// are no text.
std::string printable(const std::string& text);

}  // namespace rast::tool
