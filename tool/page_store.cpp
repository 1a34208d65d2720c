#include "page_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "output.h"

namespace {

std::string temporaryFolder() {
  const char* folder = std::getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

[[noreturn]] void failStore(const char* what, int error) {
  fail(ExitCode::runTime, temporaryFolder(), ": the temporary file for a page cannot be ", what,
       ": ", std::strerror(error), "; TMPDIR can name another folder");
}

File openUnlinked() {
  std::string path = temporaryFolder() + "/rast-XXXXXX";
  const FatalSignalsBlocked blocked;
  const int fd = mkostemp(path.data(), O_CLOEXEC);
  if (fd < 0) failStore("created", errno);
  unlink(path.c_str());
  File file(fdopen(fd, "r+b"));
  if (!file) failStore("created", errno);
  return file;
}

PageHead addressable(const Input& in, const PageHead& head) {
  if (std::uint64_t{head.width} * head.height > INT32_MAX) {
    in.fail(ExitCode::unsupported, 0, "a page of ", head.width, " x ", head.height,
            " pixels is too large for this operation, which takes up to ", INT32_MAX);
  }
  return head;
}

Layout layoutOf(const PageHead& head, bool interleaved) {
  if (!head.colour) return Layout::gray;
  return interleaved ? Layout::interleaved : Layout::planar;
}

}  // namespace

PageStore::PageStore(std::uint64_t size) : file_(openUnlinked()) { grow(size); }

void PageStore::reserve(std::uint64_t offset, std::uint64_t size) {
  const int error =
      posix_fallocate(fileno(file_.get()), static_cast<off_t>(offset), static_cast<off_t>(size));
  if (error != 0) failStore("extended", error);
}

void PageStore::grow(std::uint64_t size) {
  mapping_.reset();
  if (size > PTRDIFF_MAX) failStore("mapped", ENOMEM);
  const int fd = fileno(file_.get());
  if (ftruncate(fd, static_cast<off_t>(size)) != 0) failStore("extended", errno);
  const auto bytes = static_cast<std::size_t>(size);
  void* const data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (data == MAP_FAILED) failStore("mapped", errno);
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

void StoredPage::reserve(std::uint32_t line, std::uint32_t lines) {
  for (std::size_t c = 0; c < planeCount(layout_); ++c) {
    store_.reserve(c * planeBytes() + line * lineBytes(), lines * lineBytes());
  }
}

void StoredPage::read(PageReader& reader, std::uint32_t linesAtATime, const LinesDone& linesDone) {
  const std::uint32_t most = reader.head().bandLines(linesAtATime);
  Transfer transfer(reader.head(), most);
  for (std::uint32_t done = 0; done < head_.height;) {
    const std::uint32_t count = std::min(most, head_.height - done);
    reserve(done, count);
    transfer.read(reader, planesFrom(done), count);
    linesDone(done += count);
  }
}

void StoredPage::write(PageWriter& writer, std::uint32_t linesAtATime,
                       const LinesDone& linesDone) const {
  const std::uint32_t most = head_.bandLines(linesAtATime);
  Transfer transfer(head_, most);
  for (std::uint32_t done = 0; done < head_.height;) {
    const std::uint32_t count = std::min(most, head_.height - done);
    transfer.write(writer, head_, planesFrom(done), count);
    linesDone(done += count);
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
