#include "formats/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "formats/temporary.h"

namespace {

constexpr int fatalSignals[] = {SIGINT, SIGTERM, SIGHUP};

// Read by the signal handler: points into the Output whose temporary file exists.
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

}  // namespace

FatalSignalsBlocked::FatalSignalsBlocked() {
  sigset_t blocked;
  sigemptyset(&blocked);
  for (const int number : fatalSignals) sigaddset(&blocked, number);
  sigprocmask(SIG_BLOCK, &blocked, &before_);
}

FatalSignalsBlocked::~FatalSignalsBlocked() {
  const int error = errno;
  sigprocmask(SIG_SETMASK, &before_, nullptr);
  errno = error;
}

void removeTemporaryOnSignals() {
  for (const int number : fatalSignals) {
    // A signal that the caller chose to ignore (nohup) stays ignored.
    if (std::signal(number, onFatalSignal) == SIG_IGN) std::signal(number, SIG_IGN);
  }
}

Output::Output(const std::string& path)
    : name_(path == "-" ? "standard output" : path), final_(path) {
  struct stat status = {};
  if (path == "-") {
    file_.reset(fdopen(dup(STDOUT_FILENO), "wb"));
  } else if (stat(path.c_str(), &status) == 0) {
    if (S_ISREG(status.st_mode) && access(path.c_str(), W_OK) == 0) {
      // Through a symbolic link, the file it leads to is the one to replace.
      std::error_code ignored;
      const std::filesystem::path target = std::filesystem::canonical(path, ignored);
      if (!target.empty()) final_ = target;
      openTemporary(status.st_mode & 0777);
    } else if (!S_ISREG(status.st_mode)) {
      const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
      if (fd >= 0) file_.reset(fdopen(fd, "wb"));
    }
  } else if (lstat(path.c_str(), &status) == 0) {
    fail(ExitCode::output, "cannot be written: the symbolic link leads to no file");
  } else {
    openTemporary(defaultMode());
  }
  if (!file_) {
    error_ = errno;
    dropTemporary();
    failWrite();
  }
}

Output::~Output() { dropTemporary(); }

void Output::dropTemporary() noexcept {
  if (temporary_.empty()) return;
  unlink(temporary_.c_str());
  pendingTemporary = nullptr;
}

void Output::openTemporary(unsigned mode) {
  std::string path = std::filesystem::path(final_).parent_path() / ".rast-XXXXXX";

  int fd = -1;
  {
    // No signal may come between the file and the note of its name.
    const FatalSignalsBlocked blocked;
    fd = mkostemp(path.data(), O_CLOEXEC);
    if (fd >= 0) {
      temporary_ = std::move(path);
      pendingTemporary = temporary_.c_str();
    }
  }
  if (fd >= 0 && fchmod(fd, mode) == 0) file_.reset(fdopen(fd, "w+b"));
}

bool Output::tryWrite(const void* data, std::size_t size) noexcept {
  if (std::fwrite(data, 1, size, file_.get()) == size) return true;
  error_ = errno;
  return false;
}

void Output::write(const void* data, std::size_t size) {
  if (!tryWrite(data, size)) failWrite();
}

void Output::makeSeekable() {
  if (!temporary_.empty() || straight_) return;
  straight_ = std::exchange(file_, openUnlinked());
}

bool Output::seek(std::uint64_t offset) noexcept {
  // What is buffered is written first, which may fail.
  if (fseeko(file_.get(), static_cast<off_t>(offset), SEEK_SET) == 0) return true;
  error_ = errno;
  return false;
}

std::uint64_t Output::position() const noexcept {
  return static_cast<std::uint64_t>(ftello(file_.get()));
}

std::size_t Output::readBack(void* data, std::size_t size) noexcept {
  return std::fread(data, 1, size, file_.get());
}

void Output::copyStraight() {
  std::vector<char> buffer(1 << 16);
  const File copy = std::exchange(file_, std::move(straight_));
  if (std::fflush(copy.get()) != 0) failTemporary("written", errno);
  std::rewind(copy.get());
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), copy.get())) {
    write(buffer.data(), got);
  }
  if (std::ferror(copy.get()) != 0) failTemporary("read", errno);
}

void Output::commit() {
  if (straight_) copyStraight();
  // Pipes and devices have nothing to sync, so only the temporary file is.
  const bool renames = !temporary_.empty();
  const bool flushed =
      std::fflush(file_.get()) == 0 && (!renames || fsync(fileno(file_.get())) == 0);
  error_ = errno;
  const bool closed = std::fclose(file_.release()) == 0;
  if (flushed) error_ = errno;
  if (!flushed || !closed) failWrite();
  if (!renames) return;
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
