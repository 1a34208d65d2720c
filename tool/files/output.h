// The byte stream that pages are written to. A regular file appears under its name only when whole.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "files/descriptor.h"
#include "text/error.h"

namespace rast::tool {

class Output {
 public:
  // "-" is standard output. Devices and pipes are written straight.
  explicit Output(const std::string& path);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // False when the bytes did not go out; safe inside C callbacks.
  bool tryWrite(const void* data, std::size_t size) noexcept;
  void write(const void* data, std::size_t size);
  void write(const std::string& text) { write(text.data(), text.size()); }

  // For writers that go back and forth: what is written straight is kept in a temporary file
  // until it is complete. To be called before anything is written. Safe inside C callbacks are
  // seek, position and readBack.
  void makeSeekable();
  bool seek(std::uint64_t offset) noexcept;
  std::uint64_t position() const noexcept { return written_ + held_; }
  std::size_t readBack(void* data, std::size_t size) noexcept;

  // Makes everything written so far durable and gives it the final name. A file that was there
  // before passes on its mode, and its owner and group as far as the process may set them; other
  // links to it keep the old content.
  void commit();

  template <class... Parts>
  [[noreturn]] void fail(ExitCode code, const Parts&... parts) const {
    tool::fail(code, name_, ": ", parts...);
  }

  // Reports the write that failed last.
  [[noreturn]] void failWrite() const;

 private:
  void openTemporary(const struct stat* replaced);
  bool nameTemporary();
  bool flush() noexcept;
  void copyStraight();
  void dropTemporary() noexcept;

  std::string name_;
  std::string final_;
  bool waits_ = false;     // in a temporary file, until the content is complete
  std::string temporary_;  // the name of that file, while it has one
  Descriptor file_;
  Descriptor straight_;        // where the content of file_ goes at the end, if that is a stand-in
  std::uint64_t written_ = 0;  // the place in file_ from which on it is held back in the buffer
  std::unique_ptr<std::uint8_t[]> buffer_;
  std::size_t held_ = 0;
  int error_ = 0;
};

// Text for standard output.
void print(const std::string& text);

// Lets the signals that end the process remove a temporary file that has a name.
void removeTemporaryOnSignals();

}  // namespace rast::tool
