#include "steps/pageStore.h"

#include <cstring>
#include <utility>

#include "steps/interleave.h"

namespace rast::chain {

PageStore::PageStore(PageStore&& other) noexcept { *this = std::move(other); }

PageStore& PageStore::operator=(PageStore&& other) noexcept {
  std::swap(file_, other.file_);
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  return *this;
}

void checkStorable(const Page& page, Context& context) {
  if (std::uint64_t{page.nWidth} * page.nHeight > INT32_MAX) {
    context.refuse(RAST_CHAIN_ERR_UNSUPPORTED, "a page of ", page.nWidth, " x ", page.nHeight,
                   " pixels is too large for this operation, which takes up to ", INT32_MAX);
  }
}

bool StoredPage::open(const Page& page, bool interleaved, Context& context) {
  page_ = page;
  pixelBytes_ = interleaved ? page.nComponents : 1;
  return store_.open(planeBytes() * planeCount(), context);
}

Planes StoredPage::planesFrom(std::uint32_t line) const {
  Planes planes(planeCount(), store_.data(), static_cast<std::size_t>(planeBytes()));
  planes.advance(static_cast<std::size_t>(line * lineBytes()));
  return planes;
}

bool StoredPage::append(const Planes& planes, std::uint32_t lines, Context& context) {
  const auto bytes = static_cast<std::size_t>(lines * lineBytes());
  const std::uint64_t offset = stored_ * lineBytes();
  stored_ += lines;
  if (pixelBytes_ != 1) {
    if (pixelsSize_ < bytes) {
      pixels_ = makeBytes(bytes);
      pixelsSize_ = bytes;
    }
    joinLines(planes, pixels_.get(), std::size_t{lines} * page_.nWidth);
    return store_.write(offset, pixels_.get(), bytes, context);
  }
  for (std::size_t c = 0; c < planes.count; ++c) {
    if (!store_.write(c * planeBytes() + offset, planes.at[c], bytes, context)) return false;
  }
  return true;
}

void StoredPage::copyLines(std::uint32_t line, std::uint32_t lines, const Planes& planes) const {
  const std::size_t samples = std::size_t{lines} * page_.nWidth;
  const Planes stored = planesFrom(line);
  if (pixelBytes_ != 1) {
    splitLines(stored.at[0], planes, samples);
  } else {
    copyPlanes(stored, planes, samples);
  }
}

bool StoredPage::pad(std::uint64_t pixels, std::uint8_t sample, Context& context) {
  const std::uint64_t before = store_.size();
  const std::uint64_t bytes = pixels * pixelBytes_;
  if (bytes <= before) return true;
  // In this order a store that cannot grow stays as it was.
  if (!store_.reserve(before, bytes - before, context) || !store_.grow(bytes, context))
    return false;
  std::memset(store_.data() + before, sample, static_cast<std::size_t>(bytes - before));
  return true;
}

}  // namespace rast::chain
