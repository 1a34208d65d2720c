// Whole pages outside of the memory in work: their samples lie in a mapped temporary file without a
// name, or in memory where the target has no files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "steps/step.h"

namespace rast::chain {

// The folder of temporary files; null: that of TMPDIR, or /tmp.
std::string temporaryFolder(const char* folder);

class PageStore {
 public:
  PageStore() = default;
  ~PageStore();
  PageStore(PageStore&& other) noexcept;
  PageStore& operator=(PageStore&& other) noexcept;

  // Makes room for `size` samples of 0. False after a failure.
  bool open(std::uint64_t size, Context& context);
  // Makes more room and moves the data. False after a failure.
  bool grow(std::uint64_t size, Context& context);
  // Takes the room on the device; only then may samples be written to data().
  bool reserve(std::uint64_t offset, std::uint64_t size, Context& context);

  bool write(std::uint64_t offset, const std::uint8_t* samples, std::size_t size, Context& context);
  std::uint8_t* data() const { return data_; }
  std::uint64_t size() const { return size_; }

 private:
  void unmap();

  int file_ = -1;
  std::uint8_t* data_ = nullptr;
  std::uint64_t size_ = 0;
};

// Rejects a page with more samples in a plane than the library's 32-bit offsets reach.
void checkStorable(const Page& page, Context& context);

// A page in a store, as planes one after the other or as interleaved pixels.
class StoredPage {
 public:
  // The page must be one that can be stored.
  bool open(const Page& page, bool interleaved, Context& context);

  const Page& page() const { return page_; }
  RastArea area() const { return wholeArea(page_.nWidth, page_.nHeight); }
  // From this line on: planes, or one plane of pixels.
  Planes planesFrom(std::uint32_t line) const;

  // Before an operation writes the page: makes room for all lines.
  bool clear(Context& context) { return store_.reserve(0, store_.size(), context); }
  // Adds lines to those that are there.
  bool append(const Planes& planes, std::uint32_t lines, Context& context);
  bool isComplete() const { return stored_ == page_.nHeight; }
  std::uint32_t missing() const { return page_.nHeight - stored_; }
  // Copies lines to planes.
  void copyLines(std::uint32_t line, std::uint32_t lines, const Planes& planes) const;

  // Extends an interleaved page to `pixels` pixels at the least; the added ones have this sample.
  bool pad(std::uint64_t pixels, std::uint8_t sample, Context& context);

 private:
  std::uint64_t lineBytes() const { return page_.nWidth * pixelBytes_; }
  std::uint64_t planeBytes() const { return lineBytes() * page_.nHeight; }
  std::size_t planeCount() const { return pixelBytes_ == 1 ? page_.nComponents : 1; }

  Page page_ = {};
  std::uint64_t pixelBytes_ = 1;
  PageStore store_;
  std::uint32_t stored_ = 0;
  Bytes pixels_;  // interleaved lines, before they are written
  std::size_t pixelsSize_ = 0;
};

}  // namespace rast::chain
