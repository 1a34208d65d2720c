// The formats that pages are written in: how one is told by its name or by the ending of a file.
#ifndef RAST_TOOL_FORMAT_H
#define RAST_TOOL_FORMAT_H

#include <memory>
#include <span>
#include <string>

#include "formats/output.h"
#include "formats/page.h"

struct Format {
  const char* name;     // for --format
  const char* endings;  // of file names, such as ".pgm .ppm"
  std::unique_ptr<PageWriter> (*makeWriter)(Output& out);
};

std::span<const Format> formats();

// By its name or one of its endings, without the dot. Null when there is none.
const Format* findFormat(const std::string& name);
// By the ending of a file name, in any case; a name without ending stands for the first format.
const Format* formatOfFile(const std::string& path);

#endif
