#include "steps/page_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "formats/temporary.h"
#include "steps/bands.h"

namespace {

PageHead addressable(const Input& in, const PageHead& head) {
  if (std::uint64_t{head.width} * head.height > INT32_MAX) {
    in.fail(ExitCode::unsupported, 0, "a page of ", head.width, " x ", head.height,
            " pixels is too large for this operation, which takes up to ", INT32_MAX);
  }
  return head;
}

Layout layoutOf(const PageHead& head, bool interleaved) {
  return interleaved && head.colour ? Layout::interleaved : planesOf(head.colour);
}

}  // namespace

PageStore::PageStore(std::uint64_t size) : file_(openUnlinked()) { grow(size); }

void PageStore::write(std::uint64_t offset, const std::uint8_t* samples, std::size_t size) {
  // Quicker than through the mapping, which clears each page of memory before it is written.
  if (!file_.writeAt(static_cast<off_t>(offset), samples, size)) failTemporary("written", errno);
}

void PageStore::reserve(std::uint64_t offset, std::uint64_t size) {
  const int error =
      posix_fallocate(file_.number(), static_cast<off_t>(offset), static_cast<off_t>(size));
  if (error != 0) failTemporary("extended", error);
}

void PageStore::grow(std::uint64_t size) {
  mapping_.reset();
  if (size > PTRDIFF_MAX) failTemporary("mapped", ENOMEM);
  const int fd = file_.number();
  if (ftruncate(fd, static_cast<off_t>(size)) != 0) failTemporary("extended", errno);
  const auto bytes = static_cast<std::size_t>(size);
  void* const data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (data == MAP_FAILED) failTemporary("mapped", errno);
  mapping_ = {static_cast<std::uint8_t*>(data), Unmap{bytes}};
  size_ = size;
}

StoredPage::StoredPage(const Input& in, const PageHead& head, bool interleaved)
    : head_(addressable(in, head)),
      layout_(layoutOf(head, interleaved)),
      store_(planeBytes() * planeCount(layout_)) {}

Planes StoredPage::planesFrom(std::uint32_t line) const {
  Planes planes(layout_, store_.data(), static_cast<std::size_t>(planeBytes()));
  planes.advance(static_cast<std::size_t>(line * lineBytes()));
  return planes;
}

void StoredPage::fill(const Input& in, PageSource& page, std::uint32_t linesAtATime) {
  std::uint32_t stored = 0;
  drawInBands(in, page, layout_, linesAtATime, [&](const Planes& band, std::uint32_t count) {
    const auto bytes = static_cast<std::size_t>(count * lineBytes());
    for (std::size_t c = 0; c < planeCount(layout_); ++c) {
      store_.write(c * planeBytes() + stored * lineBytes(), band.at[c], bytes);
    }
    stored += count;
  });
}

void StoredPage::copyLines(std::uint32_t line, std::uint32_t count, const Planes& planes) const {
  const std::size_t samples = std::size_t{count} * head_.width;
  const Planes stored = planesFrom(line);
  if (layout_ == Layout::interleaved) {
    separate(stored.at[0], planes, samples);
  } else {
    copyPlanes(stored, planes, samples);
  }
}

void StoredPage::pad(std::uint64_t pixels, std::uint8_t sample) {
  const std::uint64_t before = store_.size();
  const std::uint64_t bytes = pixels * pixelBytes(layout_);
  if (bytes <= before) return;
  store_.grow(bytes);
  store_.reserve(before, bytes - before);
  std::memset(store_.data() + before, sample, static_cast<std::size_t>(bytes - before));
}
