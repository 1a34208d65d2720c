// The chain library for a page in a browser. A run is one call, in an instance of its own; the page
// hands over lines and takes them meanwhile.
#include <rast_chain.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "operations/operations.h"
#include "operations/refusal.h"
#include "text/text.h"

namespace {

// Images that lines are read from.
enum Source : std::uint32_t { kPage, kOverlay };

}  // namespace

// What the page does.
extern "C" {
[[clang::import_name("readLines")]] void readLines(Source source, std::uint32_t line,
                                                   std::uint32_t count, std::uint8_t* to);
// False where there is no memory for the page that comes out.
[[clang::import_name("beginPage")]] bool beginPage(std::uint32_t width, std::uint32_t height,
                                                   std::uint32_t components);
[[clang::import_name("writeLines")]] void writeLines(const std::uint8_t* lines,
                                                     std::uint32_t count);
// Makes the image of this name the overlay and fills in its size; false where it cannot be had. The
// remedy is for a transparent image without a background.
[[clang::import_name("openImage")]] bool openImage(const char* name, int background,
                                                   const char* remedy, std::uint32_t* width,
                                                   std::uint32_t* height,
                                                   std::uint32_t* components);
// The text of this name, in memory that the page has allocated; null where there is none.
[[clang::import_name("readText")]] char* readText(const char* name);
// Throws through this module, whose instance is of no use after that.
[[noreturn, clang::import_name("refuse")]] void refuse(const char* message, std::uint32_t step);
}

// In place of the C library's: curves and matrices are read from texts of the page.
extern "C" std::FILE* fopen(const char* name, const char*) {
  char* const text = readText(name);
  if (text == nullptr) {
    errno = ENOENT;
    return nullptr;
  }
  return fmemopen(text, std::strlen(text), "r");
}

// In place of the C++ library's, which returns null without exceptions.
void* operator new(std::size_t size) {
  if (void* const memory = std::malloc(size)) return memory;
  refuse(rast::chain::kNoMemory, 0);
}

namespace {

// Reads a page of the source band by band, as long as the bands are taken.
template <class Take>
void readPage(Source source, const RastChainPage& page, const Take& take) {
  constexpr std::size_t bandBytes = 1 << 16;
  const std::size_t lineBytes = std::size_t{page.nWidth} * page.nComponents;
  const auto most = static_cast<std::uint32_t>(std::max<std::size_t>(bandBytes / lineBytes, 1));
  std::vector<std::uint8_t> band(most * lineBytes);
  RastChainLines lines = {};
  lines.pPlane[0] = band.data();
  lines.nPitch = static_cast<std::ptrdiff_t>(lineBytes);
  for (std::uint32_t line = 0; line < page.nHeight; line += lines.nCount) {
    lines.nCount = std::min(most, page.nHeight - line);
    readLines(source, line, lines.nCount, band.data());
    if (!take(lines)) return;
  }
}

int readImage(void*, const char* name, int background, RastChainImage* image) {
  RastChainPage page = {};
  if (!openImage(name, background, rast::chain::kBackgroundRemedy, &page.nWidth, &page.nHeight,
                 &page.nComponents)) {
    return 1;
  }
  if (rastChainImageBegin(image, &page) != RAST_CHAIN_OK) return 0;
  readPage(kOverlay, page, [image](const RastChainLines& lines) {
    return rastChainImageLines(image, &lines) == RAST_CHAIN_OK;
  });
  return 0;
}

// As the command puts it, without the place.
std::string wordsOf(const RastChainError& error) {
  if (error.nCode != RAST_CHAIN_ERR_UNSUPPORTED || *error.sSuggestion == '\0')
    return error.sMessage;
  return rast::join(error.sMessage, "; the step '", error.sSuggestion, "' converts it");
}

int takeLines(void*, const RastChainLines* lines) {
  writeLines(lines->pPlane[0], lines->nCount);
  return 0;
}

}  // namespace

extern "C" {

// Memory for a text, until the instance ends.
[[clang::export_name("allocate")]] char* allocate(std::size_t size) { return new char[size]; }

// Passes a page through a chain.
[[clang::export_name("run")]] void run(const char* text, std::uint32_t width, std::uint32_t height,
                                       std::uint32_t components) {
  RastChainError error = {};
  const auto require = [&error](std::uint32_t result) {
    if (result > RAST_CHAIN_DONE) refuse(wordsOf(error).c_str(), error.nStep);
  };
  RastChainSettings settings = {};
  settings.nSize = sizeof settings;
  settings.nFiles = 1;
  settings.pReadImage = readImage;
  settings.pWriteLines = takeLines;
  RastChain* chain = nullptr;
  require(rastChainOpen(text, &settings, &chain, &error));
  RastChainPage in = {};
  in.nWidth = width;
  in.nHeight = height;
  in.nComponents = components;
  RastChainPage out = {};
  require(rastChainBegin(chain, &in, &out, &error));
  if (!beginPage(out.nWidth, out.nHeight, out.nComponents)) refuse(rast::chain::kNoMemory, 0);
  readPage(kPage, in, [&](const RastChainLines& lines) {
    require(rastChainWrite(chain, &lines, &error));
    return true;
  });
  rastChainClose(chain);
}

// The operations as JSON.
[[clang::export_name("describe")]] const char* describe() {
  const std::size_t size = rastChainDescribe(nullptr, 0) + 1;
  char* const text = allocate(size);
  rastChainDescribe(text, size);
  return text;
}
}
