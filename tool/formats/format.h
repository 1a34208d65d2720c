// The formats of page files: one is recognized by its first bytes, by its name or by the ending of
// a file's name.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "files/output.h"
#include "formats/page.h"
#include "formats/pageInput.h"

namespace rast::tool {

struct Format {
  const char* name;     // for --format
  const char* endings;  // of file names, such as ".pgm .ppm"
  std::unique_ptr<PageWriter> (*makeWriter)(Output& out);
};

std::span<const Format> formats();

// Finds a format by its name or one of its endings, without the dot. Null when there is none.
const Format* findFormat(const std::string& name);
// Finds a format by the ending of a file name, in any case. A name without an ending means the
// first format.
const Format* formatOfFile(const std::string& path);

// Begins to read pages, in whatever format they are. A stream without pages is an error, unless it
// may be empty.
std::unique_ptr<PageStream> openPages(PageInput& in, const Transparency& transparency = {},
                                      bool mayBeEmpty = false);

}  // namespace rast::tool
