// Pages in temporary files.
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

std::string temporaryFolder(const char* folder) {
  if (folder == nullptr) folder = std::getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

PageStore::~PageStore() {
  unmap();
  if (file_ >= 0) close(file_);
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
  // In pieces: some file systems undo a whole call that a signal interrupts.
  constexpr std::uint64_t longest = 1 << 24;
  while (size > 0) {
    const std::uint64_t piece = std::min(size, longest);
    const int error = posix_fallocate(file_, static_cast<off_t>(offset), static_cast<off_t>(piece));
    if (error == EINTR) continue;
    if (error != 0) {
      refuse(context, "extended", error);
      return false;
    }
    offset += piece;
    size -= piece;
  }
  return true;
}

// Not through the mapping: the kernel clears each page of memory before it is written.
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

}  // namespace rast::chain
