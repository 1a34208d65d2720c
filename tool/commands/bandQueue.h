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

  // Bands of so many lines of a page. The queue holds as many as fit in the memory, and one at
  // least; with one, or where no thread can be had, the caller's thread writes.
  BandQueue(std::uint32_t pageLines, std::uint32_t lines, std::size_t lineBytes,
            std::uint64_t memory, Write write);
  // Writes what has been passed.
  ~BandQueue();
  BandQueue(const BandQueue&) = delete;
  BandQueue& operator=(const BandQueue&) = delete;

  // Where the next band is to be made. This and finish() throw what writing threw.
  std::uint8_t* next();
  // The band is there.
  void pass();
  // Waits until all is written.
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
  std::mutex mutex_;  // of what follows
  std::condition_variable passedSome_;
  std::condition_variable wroteSome_;
  std::size_t passed_ = 0;
  std::size_t written_ = 0;
  bool closed_ = false;
  std::exception_ptr fault_;
  std::thread writer_;
};

}  // namespace rast::tool
