// libFuzzer target of the command's readers: a file of any content is read to its end or refused.
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "formats/format.h"
#include "formats/pageInput.h"
#include "text/error.h"

namespace rast::tool {

namespace {

using Bytes = std::vector<std::uint8_t>;

// Puts right the checksum of every PNG chunk, behind which hardly a changed file would get.
void mendChecksums(Bytes& file) {
  const auto number = [&](std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value = value << 8 | file[at + i];
    return value;
  };
  constexpr std::size_t signature = 8;
  constexpr std::size_t frame = 12;  // length, type and checksum
  std::size_t at = signature;
  while (file.size() >= at + frame && file.size() - at - frame >= number(at)) {
    const std::uint32_t length = number(at);
    const auto checksum = static_cast<std::uint32_t>(crc32(0, &file[at + 4], length + 4));
    for (std::size_t i = 0; i < 4; ++i) {
      file[at + 8 + length + i] = static_cast<std::uint8_t>(checksum >> (24 - 8 * i));
    }
    at += frame + length;
  }
}

void readPages(const std::string& path) {
  constexpr MemoryCap littleMemory(MemoryCap::kForOthers + (8 << 20));
  PageInput in(path, littleMemory);
  const auto pages = openPages(in);
  while (const auto page = pages->next()) {
    const PageHead& head = page->head();
    const std::uint32_t band = bandLines(in, head, 16);
    constexpr std::size_t quick = 1 << 20;
    if (band * head.lineBytes() > quick) return;
    Bytes lines(band * head.lineBytes());
    for (std::uint32_t y = 0; y < head.height; y += band) {
      page->readLines(lines.data(), std::min(band, head.height - y));
    }
  }
}

}  // namespace

}  // namespace rast::tool

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  rast::tool::Bytes file(data, data + size);
  if (size != 0 && data[0] == 0x89) rast::tool::mendChecksums(file);
  const int descriptor = memfd_create("pages", 0);
  if (descriptor < 0 || write(descriptor, file.data(), file.size()) < 0) abort();
  try {
    rast::tool::readPages("/proc/self/fd/" + std::to_string(descriptor));
  } catch (const rast::tool::Error&) {
  }
  close(descriptor);
  return 0;
}
