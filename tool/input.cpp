#include "input.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

Input::Input(const std::string& path) : name_(path == "-" ? "standard input" : path) {
  // A private descriptor, so that closing the stream leaves descriptor 0 taken.
  file_.reset(path == "-" ? fdopen(dup(STDIN_FILENO), "rb") : std::fopen(path.c_str(), "rbe"));
  if (!file_) ::fail(ExitCode::runTime, name_, ": cannot be opened: ", std::strerror(errno));
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

void Input::failShort(std::uint64_t line, const std::string& expected) const {
  if (error_ != 0) fail(ExitCode::runTime, line, "cannot be read: ", std::strerror(error_));
  fail(ExitCode::damaged, line, "ends early; expected ", expected);
}

std::string Input::place(std::uint64_t line) const {
  if (page_ == 0) return name_;
  if (line == 0) return join(name_, ": page ", page_);
  return join(name_, ": page ", page_, ", line ", line);
}
