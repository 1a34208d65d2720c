#include "files/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "files/temporary.h"
#include "text/error.h"

namespace rast::tool {

namespace {

// Longer reads go past the buffer: copying them is not worth it.
constexpr std::size_t kBufferSize = 1 << 14;

}  // namespace

Input::Input(const std::string& path)
    : name_(path == "-" ? "standard input" : path),
      // A private descriptor, so that closing it leaves descriptor 0 taken.
      file_(path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC)),
      buffer_(std::make_unique_for_overwrite<std::uint8_t[]>(kBufferSize)) {
  if (!file_) fail(ExitCode::runTime, name_, ": cannot be opened: ", std::strerror(errno));
  measure();
}

void Input::measure() {
  struct stat status = {};
  const off_t start = lseek(file_.number(), 0, SEEK_CUR);
  if (fstat(file_.number(), &status) != 0 || !S_ISREG(status.st_mode) || start < 0) return;
  start_ = static_cast<std::uint64_t>(start);
  size_ = static_cast<std::uint64_t>(std::max<off_t>(status.st_size - start, 0));
}

std::size_t Input::readFile(std::uint8_t* data, std::size_t size) noexcept {
  const ssize_t got = ended_ ? 0 : file_.read(data, size);
  if (got < 0) error_ = errno;
  ended_ = got <= 0;
  const auto bytes = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  read_ += bytes;
  return bytes;
}

bool Input::fill() noexcept {
  next_ = 0;
  end_ = readFile(buffer_.get(), kBufferSize);
  return end_ != 0;
}

void Input::requireRead() const {
  if (error_ != 0) {
    fail(ExitCode::runTime, place(), ": cannot be read: ", std::strerror(error_));
  }
}

std::span<const std::uint8_t> Input::ahead(std::size_t count) {
  if (end_ - next_ < count) {
    std::memmove(&buffer_[0], &buffer_[next_], end_ - next_);
    end_ -= std::exchange(next_, 0);
    while (end_ < count) {
      const std::size_t got = readFile(&buffer_[end_], kBufferSize - end_);
      if (got == 0) break;
      end_ += got;
    }
  }
  if (next_ == end_) requireRead();
  return {&buffer_[next_], std::min(count, end_ - next_)};
}

int Input::peek() {
  const auto next = ahead(1);
  return next.empty() ? EOF : next[0];
}

int Input::get() {
  const int byte = peek();
  if (byte != EOF) ++next_;
  return byte;
}

std::size_t Input::read(std::uint8_t* data, std::size_t size) noexcept {
  std::size_t got = 0;
  while (got < size) {
    if (next_ == end_ && size - got >= kBufferSize) {
      const std::size_t count = readFile(data + got, size - got);
      if (count == 0) break;
      got += count;
    } else {
      if (next_ == end_ && !fill()) break;
      const std::size_t count = std::min(size - got, end_ - next_);
      std::copy_n(&buffer_[next_], count, data + got);
      next_ += count;
      got += count;
    }
  }
  return got;
}

void Input::makeSeekable() {
  if (size_) return;
  Descriptor copy = openUnlinked();
  while (next_ != end_ || fill()) {
    if (!copy.write(&buffer_[next_], end_ - next_)) failTemporary("written", errno);
    next_ = end_;
  }
  requireRead();
  file_ = std::move(copy);
  seek(0);
  measure();
}

bool Input::seek(std::uint64_t offset) noexcept {
  sought_ = true;
  if (offset == position()) return true;
  if (offset > size() || lseek(file_.number(), static_cast<off_t>(start_ + offset), SEEK_SET) < 0) {
    return false;
  }
  next_ = end_ = 0;
  read_ = offset;
  ended_ = false;
  return true;
}

std::optional<std::uint64_t> Input::partsAhead(std::uint64_t bytes) const {
  if (!size_) return {};
  const std::uint64_t ahead = *size_ - std::min(*size_, position());
  return ahead / bytes + (ahead % bytes != 0 ? 1 : 0);
}

std::optional<double> Input::portion() const noexcept {
  if (sought_ || !size_ || *size_ == 0) return {};
  return std::min(1.0, static_cast<double>(position()) / static_cast<double>(*size_));
}

}  // namespace rast::tool
