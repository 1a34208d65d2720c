#include "formats/input.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "formats/temporary.h"

Input::Input(const std::string& path, std::uint64_t memory)
    : name_(path == "-" ? "standard input" : path), memory_(memory) {
  // A private descriptor, so that closing the stream leaves descriptor 0 taken.
  file_.reset(path == "-" ? fdopen(dup(STDIN_FILENO), "rb") : std::fopen(path.c_str(), "rbe"));
  if (!file_) ::fail(ExitCode::runTime, name_, ": cannot be opened: ", std::strerror(errno));
  measure();
}

void Input::measure() {
  struct stat status = {};
  const int fd = fileno(file_.get());
  const off_t start = lseek(fd, 0, SEEK_CUR);
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || start < 0) return;
  start_ = static_cast<std::uint64_t>(start);
  size_ = static_cast<std::uint64_t>(std::max<off_t>(status.st_size - start, 0));
}

int Input::get() {
  const int byte = std::getc(file_.get());
  if (byte == EOF && std::ferror(file_.get()) != 0) {
    error_ = errno;
    failShort(0, "");
  }
  return byte;
}

int Input::peek() {
  const int byte = get();
  if (byte != EOF) std::ungetc(byte, file_.get());
  return byte;
}

std::size_t Input::read(std::uint8_t* data, std::size_t size) noexcept {
  const std::size_t got = std::fread(data, 1, size, file_.get());
  if (got != size && std::ferror(file_.get()) != 0) error_ = errno;
  return got;
}

void Input::makeSeekable() {
  if (size_) return;
  File copy = openUnlinked();
  std::vector<std::uint8_t> buffer(1 << 16);
  while (const std::size_t got = read(buffer.data(), buffer.size())) {
    if (std::fwrite(buffer.data(), 1, got, copy.get()) != got) failTemporary("written", errno);
  }
  if (error_ != 0) failShort(0, "");
  if (std::fflush(copy.get()) != 0) failTemporary("written", errno);
  std::rewind(copy.get());
  file_ = std::move(copy);
  measure();
}

bool Input::seek(std::uint64_t offset) noexcept {
  sought_ = true;
  return offset <= size() &&
         fseeko(file_.get(), static_cast<off_t>(start_ + offset), SEEK_SET) == 0;
}

std::uint64_t Input::position() const noexcept {
  return static_cast<std::uint64_t>(ftello(file_.get())) - start_;
}

std::optional<double> Input::portion() const noexcept {
  if (sought_ || !size_ || *size_ == 0) return {};
  return std::min(1.0, static_cast<double>(position()) / static_cast<double>(*size_));
}

void Input::failShort(std::uint64_t line, const std::string& expected) const {
  if (error_ != 0) fail(ExitCode::runTime, line, "cannot be read: ", std::strerror(error_));
  fail(ExitCode::damaged, line, "ends early; expected ", expected);
}

void Input::failMemory(std::uint64_t line, const std::string& what, std::uint64_t bytes) const {
  constexpr unsigned megabyte = 20;  // as a power of two
  const std::uint64_t needed = bytes * bands_;
  fail(ExitCode::memory, line, what, " needs ", needed, " bytes in all steps and ", memoryCap(),
       " are left; --memory ", ((needed + memoryForOthers - 1) >> megabyte) + 1,
       "M or more is needed");
}

std::string Input::place(std::uint64_t line) const {
  std::string place = name_;
  if (page_ != 0) place += join(": page ", page_);
  if (line != 0) place += join(", line ", line);
  return place;
}
