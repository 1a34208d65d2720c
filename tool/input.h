// The byte stream that pages are read from, and the place in it that messages name.
#ifndef RAST_TOOL_INPUT_H
#define RAST_TOOL_INPUT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "error.h"
#include "file.h"

class Input {
 public:
  // "-" is standard input.
  explicit Input(const std::string& path);

  // The next byte, or EOF at the end of the stream. A failing read throws.
  int get();
  int peek();

  // As many bytes as there are, up to size; safe inside C callbacks.
  std::size_t read(std::uint8_t* data, std::size_t size) noexcept;

  std::uint64_t page() const { return page_; }
  void startPage() { ++page_; }

  // Line 0 stands for the page as a whole.
  template <class... Parts>
  [[noreturn]] void fail(ExitCode code, std::uint64_t line, const Parts&... parts) const {
    ::fail(code, place(line), ": ", parts...);
  }

  // After a read that came back short: tells a failing device from a file that ends early.
  [[noreturn]] void failShort(std::uint64_t line, const std::string& expected) const;

 private:
  std::string place(std::uint64_t line) const;

  std::string name_;
  File file_;
  std::uint64_t page_ = 0;
  int error_ = 0;
};

#endif
