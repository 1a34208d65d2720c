#include "formats/tiffExtent.h"

#include <tiff.h>

#include <algorithm>
#include <array>
#include <span>
#include <vector>

namespace rast::tool {

namespace {

// The numbers of an entry: strip offsets, for instance.
struct Numbers {
  std::uint64_t at = 0;
  std::uint64_t count = 0;
  std::size_t size = 0;  // of each, in bytes
};

// Offsets of data, and how many bytes lie at each.
struct Pair {
  std::uint16_t offsetTag;
  std::uint16_t countTag;
  Numbers offsets = {};
  Numbers counts = {};
};

constexpr std::size_t sizeOf(std::uint16_t type) {
  constexpr std::array<std::uint8_t, 19> sizes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4,
                                                  8, 4, 8, 4, 0, 0, 8, 8, 8};
  return type < sizes.size() ? sizes[type] : 0;
}

constexpr bool leadsToDirectories(std::uint16_t tag, std::uint16_t type) {
  return type == TIFF_IFD || type == TIFF_IFD8 || tag == TIFFTAG_SUBIFD || tag == TIFFTAG_EXIFIFD ||
         tag == TIFFTAG_GPSIFD || tag == TIFFTAG_INTEROPERABILITYIFD ||
         tag == TIFFTAG_GLOBALPARAMETERSIFD;
}

class Walk {
 public:
  explicit Walk(Input& in) : in_(in), left_(2 * in.size() + 4096) {}

  std::optional<std::uint64_t> extent() {
    std::array<std::uint8_t, 4> head = {};
    if (!read(0, head)) return {};
    isBigEndian_ = head[0] == 'M';
    isBig_ = head[isBigEndian_ ? 3 : 2] == TIFF_VERSION_BIG;
    followLink(isBig_ ? 8 : 4);
    while (!links_.empty() && isKnown_) {
      Numbers& next = links_.back();
      if (next.count == 0) {
        links_.pop_back();
        continue;
      }
      const std::uint64_t directory = number(next.at, next.size);
      next.at += next.size;
      --next.count;
      if (directory != 0) readDirectory(directory);
    }
    return isKnown_ ? std::optional(end_) : std::nullopt;
  }

 private:
  std::size_t wordBytes() const { return isBig_ ? 8 : 4; }

  // Data that lie outside the file are no reference: whoever needs them finds that out.
  void reach(std::uint64_t at, std::uint64_t size) {
    if (at <= in_.size() && size <= in_.size() - at) end_ = std::max(end_, at + size);
  }

  void followLink(std::uint64_t at) {
    reach(at, wordBytes());
    links_.push_back({at, 1, wordBytes()});
  }

  // False outside the file, and where directories lead round in circles.
  bool read(std::uint64_t at, std::span<std::uint8_t> bytes) {
    isKnown_ = isKnown_ && left_ >= bytes.size();
    if (!isKnown_ || !in_.seek(at) || in_.read(bytes.data(), bytes.size()) != bytes.size()) {
      return false;
    }
    left_ -= bytes.size();
    return true;
  }

  std::uint64_t decoded(std::span<const std::uint8_t> bytes) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      value = value << 8 | bytes[isBigEndian_ ? i : bytes.size() - 1 - i];
    }
    return value;
  }

  std::uint64_t number(std::uint64_t at, std::size_t size) {
    std::array<std::uint8_t, 8> buffer = {};
    const auto bytes = std::span(buffer).first(size);
    return read(at, bytes) ? decoded(bytes) : 0;
  }

  void readDirectory(std::uint64_t at) {
    const std::size_t countBytes = isBig_ ? 8 : 2;
    const std::size_t entryBytes = isBig_ ? 20 : 12;
    const std::uint64_t count = number(at, countBytes);
    if (count > in_.size() / entryBytes) return;
    Pair pairs[] = {{TIFFTAG_STRIPOFFSETS, TIFFTAG_STRIPBYTECOUNTS},
                    {TIFFTAG_TILEOFFSETS, TIFFTAG_TILEBYTECOUNTS},
                    {TIFFTAG_JPEGIFOFFSET, TIFFTAG_JPEGIFBYTECOUNT}};
    at += countBytes;
    for (std::uint64_t i = 0; i < count && isKnown_; ++i, at += entryBytes) readEntry(at, pairs);
    for (const Pair& pair : pairs) reachData(pair);
    followLink(at);
  }

  void readEntry(std::uint64_t at, std::span<Pair> pairs) {
    const auto tag = static_cast<std::uint16_t>(number(at, 2));
    const auto type = static_cast<std::uint16_t>(number(at + 2, 2));
    const std::size_t size = sizeOf(type);
    Numbers numbers = {at + 4 + wordBytes(), number(at + 4, wordBytes()), size};
    if (size == 0 || numbers.count > in_.size() / size) return;
    const std::uint64_t bytes = numbers.count * size;
    if (bytes > wordBytes()) numbers.at = number(numbers.at, wordBytes());
    reach(numbers.at, bytes);
    if (leadsToDirectories(tag, type)) links_.push_back(numbers);
    for (Pair& pair : pairs) {
      if (tag == pair.offsetTag) pair.offsets = numbers;
      if (tag == pair.countTag) pair.counts = numbers;
    }
  }

  void reachData(const Pair& pair) {
    constexpr std::uint64_t most = 512;
    std::array<std::uint8_t, most * 8> offsets;
    std::array<std::uint8_t, most * 8> counts;
    // Data of unknown size have no known end.
    if (pair.counts.count < pair.offsets.count) isKnown_ = false;
    for (std::uint64_t done = 0; done < pair.offsets.count;) {
      const auto now = std::min(pair.offsets.count - done, most);
      const auto part = [&](const Numbers& numbers, std::span<std::uint8_t> bytes) {
        return read(numbers.at + done * numbers.size, bytes.first(now * numbers.size));
      };
      if (!part(pair.offsets, offsets) || !part(pair.counts, counts)) return;
      for (std::uint64_t i = 0; i < now; ++i) {
        const auto of = [&](const Numbers& numbers, std::span<const std::uint8_t> bytes) {
          return decoded(bytes.subspan(i * numbers.size, numbers.size));
        };
        reach(of(pair.offsets, offsets), of(pair.counts, counts));
      }
      done += now;
    }
  }

  Input& in_;
  std::uint64_t left_;  // bytes to read: sound directories have each once or twice
  bool isBigEndian_ = false;
  bool isBig_ = false;
  bool isKnown_ = true;
  std::uint64_t end_ = 0;
  std::vector<Numbers> links_;  // to directories
};

}  // namespace

std::optional<std::uint64_t> tiffExtent(Input& in) { return Walk(in).extent(); }

}  // namespace rast::tool
