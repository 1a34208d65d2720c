// A stdio stream that closes itself.
#ifndef RAST_TOOL_FILE_H
#define RAST_TOOL_FILE_H

#include <cstdio>
#include <memory>

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

#endif
