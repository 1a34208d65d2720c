// Whole pages, outside of memory: their planes lie in an unlinked temporary file that is mapped.
#ifndef RAST_TOOL_PAGE_STORE_H
#define RAST_TOOL_PAGE_STORE_H

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "formats/descriptor.h"
#include "formats/input.h"
#include "formats/page.h"
#include "steps/planes.h"
#include "steps/step.h"

// The mapped file. What fails is a run-time failure.
class PageStore {
 public:
  explicit PageStore(std::uint64_t size);

  std::uint8_t* data() const { return mapping_.get(); }
  std::uint64_t size() const { return size_; }

  void write(std::uint64_t offset, const std::uint8_t* samples, std::size_t size);
  // Takes the room on the device, without which nothing may be written to data(). New samples are
  // 0.
  void reserve(std::uint64_t offset, std::uint64_t size);
  // Moves the data.
  void grow(std::uint64_t size);

 private:
  struct Unmap {
    std::size_t size;
    void operator()(std::uint8_t* data) const noexcept { munmap(data, size); }
  };

  Descriptor file_;
  std::unique_ptr<std::uint8_t, Unmap> mapping_;
  std::uint64_t size_ = 0;
};

class StoredPage {
 public:
  // Refuses a page with more samples in a plane than the library's 32-bit offsets reach.
  StoredPage(const Input& in, const PageHead& head, bool interleaved);

  const PageHead& head() const { return head_; }
  RastArea area() const { return wholeArea(head_.width, head_.height); }
  Planes planesFrom(std::uint32_t line) const;

  // To be done before an operation writes it: takes room for all lines, with samples of 0.
  void clear() { store_.reserve(0, store_.size()); }
  // Draws the whole page, so many lines at a time.
  void fill(const Input& in, PageSource& page, std::uint32_t linesAtATime);
  // Copies lines to planes of their own, from interleaved pixels too.
  void copyLines(std::uint32_t line, std::uint32_t count, const Planes& planes) const;

  // Lets at least so many pixels follow each other in the one plane of an interleaved page: beyond
  // its own ones come pixels of the given sample.
  void pad(std::uint64_t pixels, std::uint8_t sample);

 private:
  std::uint64_t lineBytes() const { return head_.width * pixelBytes(layout_); }
  std::uint64_t planeBytes() const { return lineBytes() * head_.height; }

  PageHead head_;
  Layout layout_;
  PageStore store_;
};

#endif
