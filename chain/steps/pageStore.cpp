#include "steps/pageStore.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "steps/interleave.h"

namespace rast::chain {

namespace {

void refuse(Context& context, const char* what, int error) {
  context.refuse(RAST_CHAIN_ERR_FILE, context.folder, ": the temporary file cannot be ", what, ": ",
                 std::strerror(error), "; TMPDIR can name another folder");
}

// Keeps signals from ending the program while a file has a name.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

int openUnnamed(const std::string& folder) {
  const int file = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
  // Kernels and file systems without unnamed files report one of these.
  if (file >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return file;
  std::string path = folder + "/.rast-XXXXXX";
  const SignalsBlocked blocked;
  const int named = mkostemp(path.data(), O_CLOEXEC);
  if (named >= 0) unlink(path.c_str());
  return named;
}

}  // namespace

PageStore::~PageStore() {
  unmap();
  if (file_ >= 0) close(file_);
}

PageStore::PageStore(PageStore&& other) noexcept { *this = std::move(other); }

PageStore& PageStore::operator=(PageStore&& other) noexcept {
  std::swap(file_, other.file_);
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  return *this;
}

void PageStore::unmap() {
  if (data_ != nullptr) munmap(std::exchange(data_, nullptr), static_cast<std::size_t>(size_));
}

bool PageStore::open(std::uint64_t size, Context& context) {
  file_ = openUnnamed(context.folder);
  if (file_ < 0) {
    refuse(context, "created", errno);
    return false;
  }
  return grow(size, context);
}

bool PageStore::grow(std::uint64_t size, Context& context) {
  if (size > PTRDIFF_MAX || ftruncate(file_, static_cast<off_t>(size)) != 0) {
    refuse(context, "extended", size > PTRDIFF_MAX ? EFBIG : errno);
    return false;
  }
  const auto bytes = static_cast<std::size_t>(size);
  void* const data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
  if (data == MAP_FAILED) {
    // Another folder would not help: the addresses are limited, not the file.
    context.refuse(RAST_CHAIN_ERR_MEMORY, "the temporary file of ", size,
                   " bytes cannot be mapped: ", std::strerror(errno),
                   "; the limit on address space (ulimit -v) must leave room for the page");
    return false;
  }
  unmap();
  data_ = static_cast<std::uint8_t*>(data);
  size_ = size;
  return true;
}

bool PageStore::reserve(std::uint64_t offset, std::uint64_t size, Context& context) {
  const int error = posix_fallocate(file_, static_cast<off_t>(offset), static_cast<off_t>(size));
  if (error != 0) refuse(context, "extended", error);
  return error == 0;
}

// Not through the mapping, which clears each page of memory before it is written.
bool PageStore::write(std::uint64_t offset, const std::uint8_t* samples, std::size_t size,
                      Context& context) {
  while (size > 0) {
    const ssize_t written = pwrite(file_, samples, size, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      refuse(context, "written", errno);
      return false;
    }
    offset += static_cast<std::uint64_t>(written);
    samples += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
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
