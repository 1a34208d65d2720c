// Bands on their way to a file: while one is made, a thread writes those before it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace rast::tool {

class BandQueue {
 public:
  using Write = std::function<void(const std::uint8_t* band, std::uint32_t lines)>;

  // Bands of `lines` lines. The queue holds as many as fit in `memory`, at least one. With one, or
  // without a thread, the caller's thread writes.
  BandQueue(std::uint32_t pageLines, std::uint32_t lines, std::size_t lineBytes,
            std::uint64_t memory, Write write);
  // Writes the bands that are passed.
  ~BandQueue();
  BandQueue(const BandQueue&) = delete;
  BandQueue& operator=(const BandQueue&) = delete;

  // Returns the memory for the next band. This and finish() throw the errors of writing.
  std::uint8_t* next();
  // Passes the band of the last next() to the writer.
  void pass();
  // Waits until all bands are written.
  void finish();

 private:
  std::uint8_t* bandAt(std::size_t number) { return &bytes_[number % count_ * bandBytes_]; }
  void write(std::size_t number);
  std::size_t waiting() const { return passed_ - written_; }
  // A thread that waits is woken for as many bands at once: waking takes longer than a band.
  std::size_t batch() const { return (count_ + 1) / 2; }
  void writePassed();
  void join();

  Write write_;
  std::uint32_t height_;  // of the page
  std::uint32_t lines_;   // of a band
  std::size_t bandBytes_;
  std::size_t count_;  // of the bands
  std::unique_ptr<std::uint8_t[]> bytes_;
  std::mutex mutex_;  // guards the members below
  std::condition_variable passedSome_;
  std::condition_variable wroteSome_;
  std::size_t passed_ = 0;
  std::size_t written_ = 0;
  bool closed_ = false;
  std::exception_ptr fault_;
  std::thread writer_;
};

}  // namespace rast::tool
