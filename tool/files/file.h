// A stdio stream that closes itself.
#pragma once

#include <cstdio>
#include <memory>

namespace rast::tool {

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace rast::tool
