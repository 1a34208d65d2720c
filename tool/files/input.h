// The bytes of a file or stream that is read from its start.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "files/descriptor.h"

namespace rast::tool {

class Input {
 public:
  // "-" is standard input.
  explicit Input(const std::string& path);
  virtual ~Input() = default;
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  // For messages.
  const std::string& name() const { return name_; }

  // The next byte, or EOF at the end of the stream. A failing read throws.
  int get();
  int peek();
  // The next bytes, which remain to be read: `count` of them, at most 16, or fewer at the end of the
  // stream. They stay valid until the next call that reads, looks ahead or seeks. A failing read
  // throws.
  std::span<const std::uint8_t> ahead(std::size_t count);

  // Returns the number of bytes read: `size`, or fewer at the end. Safe inside C callbacks.
  std::size_t read(std::uint8_t* data, std::size_t size) noexcept;
  // The `errno` of a read that failed, or 0.
  int error() const { return error_; }

  // Makes seeking possible, by a temporary copy where the stream is a pipe. No byte may have been
  // read, only looked at. Offsets count from the place where reading began.
  void makeSeekable();
  bool seek(std::uint64_t offset) noexcept;
  std::uint64_t position() const noexcept { return read_ - (end_ - next_); }
  std::uint64_t size() const { return size_.value_or(0); }

  // How many parts of so many bytes are still to be read, with one that is cut short; none where
  // the size is not known.
  std::optional<std::uint64_t> partsAhead(std::uint64_t bytes) const;

  // The part of the stream that is read, 0 to 1; none where its size is not known, or reading goes
  // back and forth.
  std::optional<double> portion() const noexcept;

 protected:
  // For messages about reads that fail.
  virtual std::string place() const { return name_; }

 private:
  void measure();
  std::size_t readFile(std::uint8_t* data, std::size_t size) noexcept;
  // False at the end.
  bool fill() noexcept;
  void requireRead() const;

  std::string name_;
  Descriptor file_;
  std::uint64_t start_ = 0;
  std::uint64_t read_ = 0;  // bytes of the file, from the start on
  // Bytes that are read ahead: the last ones of those counted above.
  std::unique_ptr<std::uint8_t[]> buffer_;
  std::size_t next_ = 0;
  std::size_t end_ = 0;
  bool ended_ = false;
  std::optional<std::uint64_t> size_;  // of a regular file, from the start on
  int error_ = 0;
  bool sought_ = false;
};

}  // namespace rast::tool
