// A stream that pages are read from: its bytes, the page in work and the memory that pages may use.
#pragma once

#include <cstdint>
#include <string>

#include "files/input.h"
#include "formats/memoryCap.h"
#include "text/error.h"

namespace rast::tool {

class PageInput : public Input {
 public:
  explicit PageInput(const std::string& path, const MemoryCap& memory = MemoryCap())
      : Input(path), memory_(memory) {}

  const MemoryCap& memory() const { return memory_; }

  // The number of the page in work, from 1; 0 before the first one.
  std::uint64_t page() const { return page_; }
  void startPage() { ++page_; }

  // Names a line for messages; line 0 means the page as a whole.
  std::string place(std::uint64_t line) const;

  template <class... Parts>
  [[noreturn]] void fail(ExitCode code, std::uint64_t line, const Parts&... parts) const {
    tool::fail(code, place(line), ": ", parts...);
  }
  // After a read that came back short: reports a failing device, or a file that ends early.
  [[noreturn]] void failShort(std::uint64_t line, const std::string& expected) const;
  // Rejects work that needs `bytes` bytes for lines, more than the cap allows.
  [[noreturn]] void failMemory(std::uint64_t line, const std::string& what,
                               std::uint64_t bytes) const;

 private:
  std::string place() const override { return place(0); }

  MemoryCap memory_;
  std::uint64_t page_ = 0;
};

}  // namespace rast::tool
