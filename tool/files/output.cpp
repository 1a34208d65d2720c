#include "files/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "files/signals.h"
#include "files/temporary.h"

namespace rast::tool {

namespace {

// Most machines keep files in memory in blocks of this size.
constexpr std::size_t kBlockSize = 1 << 12;
constexpr std::size_t kBufferSize = 4 * kBlockSize;

// The signal handler reads it: the name in the Output whose temporary file exists.
std::atomic<const char*> pendingTemporary = nullptr;
static_assert(std::atomic<const char*>::is_always_lock_free);

void onFatalSignal(int number) {
  if (const char* path = pendingTemporary) unlink(path);
  std::signal(number, SIG_DFL);
  raise(number);
}

mode_t defaultMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Before anything is written, so that nobody opens it who must not. Where it cannot have the same
// group, nobody gets what the group or the others did not have.
bool takeAccess(const Descriptor& file, const struct stat& before) {
  mode_t mode = before.st_mode & 0777;
  if (fchown(file.number(), before.st_uid, before.st_gid) != 0 &&
      fchown(file.number(), static_cast<uid_t>(-1), before.st_gid) != 0) {
    mode &= 0700 | (mode >> 3 & 0007) | (mode << 3 & 0070);
  }
  return fchmod(file.number(), mode) == 0;
}

}  // namespace

void removeTemporaryOnSignals() {
  for (const int number : kFatalSignals) {
    // A signal that the caller chose to ignore (nohup) stays ignored.
    if (std::signal(number, onFatalSignal) == SIG_IGN) std::signal(number, SIG_IGN);
  }
}

Output::Output(const std::string& path)
    : name_(path == "-" ? "standard output" : path),
      final_(path),
      buffer_(std::make_unique_for_overwrite<std::uint8_t[]>(kBufferSize)) {
  struct stat status = {};
  if (path == "-") {
    file_ = Descriptor(dup(STDOUT_FILENO));
  } else if (stat(path.c_str(), &status) == 0) {
    if (S_ISREG(status.st_mode) && access(path.c_str(), W_OK) == 0) {
      // Through a symbolic link, the file it leads to is the one to replace.
      const std::unique_ptr<char, decltype(&std::free)> target(realpath(path.c_str(), nullptr),
                                                               std::free);
      if (target) final_ = target.get();
      openTemporary(&status);
    } else if (!S_ISREG(status.st_mode)) {
      file_ = Descriptor(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    }
  } else if (lstat(path.c_str(), &status) == 0) {
    fail(ExitCode::output, "cannot be written: the symbolic link leads to no file");
  } else {
    openTemporary(nullptr);
  }
  if (!file_) {
    error_ = errno;
    dropTemporary();
    failWrite();
  }
}

Output::~Output() {
  // Bytes that go straight to a device or pipe are written as far as they were made, even after a
  // failure. After a failed write, the rest would follow a gap.
  if (file_ && !waits_ && !straight_ && error_ == 0) flush();
  dropTemporary();
}

void Output::dropTemporary() noexcept {
  if (temporary_.empty()) return;
  unlink(temporary_.c_str());
  pendingTemporary = nullptr;
}

void Output::openTemporary(const struct stat* replaced) {
  Descriptor file = createUnnamed(folderIn(final_));
  if (!file) {
    // No signal may come between the file and the note of its name.
    const FatalSignalsBlocked blocked;
    file = createTemporary(folderIn(final_), temporary_);
    if (file) pendingTemporary = temporary_.c_str();
  }
  if (!file) return temporary_.clear();
  waits_ = true;
  const bool set =
      replaced != nullptr ? takeAccess(file, *replaced) : fchmod(file.number(), defaultMode()) == 0;
  if (set) file_ = std::move(file);
}

// The final name where it is free, or else a temporary one, for the file to be renamed from.
bool Output::nameTemporary() {
  if (!temporary_.empty() || giveName(file_, final_)) return true;
  if (errno != EEXIST) return false;
  const FatalSignalsBlocked blocked;
  std::string path;
  if (!linkTemporary(file_, folderIn(final_), path)) return false;
  temporary_ = std::move(path);
  pendingTemporary = temporary_.c_str();
  return true;
}

bool Output::tryWrite(const void* data, std::size_t size) noexcept {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  // Only whole blocks go out, so that none is written in two parts.
  const std::size_t all = held_ + size;
  const std::size_t now = all < kBufferSize ? 0 : all / kBlockSize * kBlockSize;
  if (now != 0) {
    const std::size_t direct = now - held_;
    iovec parts[] = {{buffer_.get(), held_}, {const_cast<void*>(data), direct}};
    if (!file_.write(parts)) {
      error_ = errno;
      return false;
    }
    written_ += now;
    held_ = 0;
    bytes += direct;
    size -= direct;
  }
  std::copy_n(bytes, size, &buffer_[held_]);
  held_ += size;
  return true;
}

bool Output::flush() noexcept {
  if (!file_.write(buffer_.get(), held_)) {
    error_ = errno;
    return false;
  }
  written_ += std::exchange(held_, 0);
  return true;
}

void Output::write(const void* data, std::size_t size) {
  if (!tryWrite(data, size)) failWrite();
}

void Output::makeSeekable() {
  if (waits_ || straight_) return;
  straight_ = std::exchange(file_, openUnlinked());
}

bool Output::seek(std::uint64_t offset) noexcept {
  if (!flush()) return false;
  if (lseek(file_.number(), static_cast<off_t>(offset), SEEK_SET) < 0) {
    error_ = errno;
    return false;
  }
  written_ = offset;
  return true;
}

std::size_t Output::readBack(void* data, std::size_t size) noexcept {
  if (!flush()) return 0;
  std::size_t got = 0;
  while (got < size) {
    const ssize_t count = file_.read(static_cast<std::uint8_t*>(data) + got, size - got);
    if (count <= 0) break;
    got += static_cast<std::size_t>(count);
  }
  written_ += got;
  return got;
}

void Output::copyStraight() {
  if (!flush()) failTemporary("written", error_);
  const Descriptor copy = std::exchange(file_, std::move(straight_));
  lseek(copy.number(), 0, SEEK_SET);
  std::vector<std::uint8_t> bytes(1 << 16);
  ssize_t got = 0;
  while ((got = copy.read(bytes.data(), bytes.size())) > 0) {
    write(bytes.data(), static_cast<std::size_t>(got));
  }
  if (got < 0) failTemporary("read", errno);
}

void Output::commit() {
  if (straight_) copyStraight();
  // Pipes and devices have nothing to sync, so only the temporary file is.
  const bool isWritten = flush() && (!waits_ || (fsync(file_.number()) == 0 && nameTemporary()));
  error_ = errno;
  const bool isClosed = file_.close();
  if (isWritten) error_ = errno;
  if (!isWritten || !isClosed) failWrite();
  if (temporary_.empty()) return;
  if (std::rename(temporary_.c_str(), final_.c_str()) != 0) {
    error_ = errno;
    failWrite();
  }
  pendingTemporary = nullptr;
  temporary_.clear();
}

void Output::failWrite() const {
  fail(ExitCode::output, "cannot be written: ", std::strerror(error_));
}

void print(const std::string& text) {
  Output out("-");
  out.write(text);
  out.commit();
}

}  // namespace rast::tool
