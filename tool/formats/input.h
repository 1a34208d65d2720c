// The byte stream that pages are read from, and the place in it that messages name.
#ifndef RAST_TOOL_INPUT_H
#define RAST_TOOL_INPUT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "formats/descriptor.h"
#include "formats/error.h"

inline constexpr std::uint64_t defaultMemory = std::uint64_t{256} << 20;
// What the program and the libraries for page files take of it.
inline constexpr std::uint64_t memoryForOthers = std::uint64_t{16} << 20;

class Input {
 public:
  // "-" is standard input.
  explicit Input(const std::string& path, std::uint64_t memory = defaultMemory);

  // The next byte, or EOF at the end of the stream. A failing read throws.
  int get();
  int peek();

  // As many bytes as there are, up to size; safe inside C callbacks.
  std::size_t read(std::uint8_t* data, std::size_t size) noexcept;

  // Makes seeking possible, by a temporary copy where the stream is a pipe. No byte may have been
  // taken, only peeked at. Offsets count from the place where reading began.
  void makeSeekable();
  bool seek(std::uint64_t offset) noexcept;
  std::uint64_t position() const noexcept { return read_ - (end_ - next_); }
  std::uint64_t size() const { return size_.value_or(0); }

  // How many parts of so many bytes are still to be read, with one that is cut short; none where the
  // size is not known.
  std::optional<std::uint64_t> partsAhead(std::uint64_t bytes) const;

  // The part of the stream that is read, 0 to 1; none where its size is not known, or reading goes
  // back and forth.
  std::optional<double> portion() const noexcept;

  // What all lines in work may take.
  std::uint64_t memoryCap() const { return memory_ - memoryForOthers; }
  // The megabytes to give for so many bytes of lines.
  static std::uint64_t megabytesFor(std::uint64_t bytes);
  // Rejects what needs so many bytes, more than there are.
  [[noreturn]] void failMemory(std::uint64_t line, const std::string& what,
                               std::uint64_t bytes) const;

  std::uint64_t page() const { return page_; }
  void startPage() { ++page_; }

  // Of a line, for messages. Line 0 stands for the page as a whole.
  std::string place(std::uint64_t line) const;

  template <class... Parts>
  [[noreturn]] void fail(ExitCode code, std::uint64_t line, const Parts&... parts) const {
    ::fail(code, place(line), ": ", parts...);
  }

  // After a read that came back short: tells a failing device from a file that ends early.
  [[noreturn]] void failShort(std::uint64_t line, const std::string& expected) const;

 private:
  void measure();
  std::size_t readFile(std::uint8_t* data, std::size_t size) noexcept;
  // False at the end.
  bool fill() noexcept;

  std::string name_;
  std::uint64_t memory_;
  Descriptor file_;
  std::uint64_t start_ = 0;
  std::uint64_t read_ = 0;  // bytes of the file, from the start on
  // Of the last of these, what is read ahead lies in the buffer.
  std::unique_ptr<std::uint8_t[]> buffer_;
  std::size_t next_ = 0;
  std::size_t end_ = 0;
  bool ended_ = false;
  std::optional<std::uint64_t> size_;  // of a regular file, from the start on
  std::uint64_t page_ = 0;
  int error_ = 0;
  bool sought_ = false;
};

#endif
