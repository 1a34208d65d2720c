// Bands on their way out: while one is made, a thread writes those before it.
#ifndef RAST_TOOL_BAND_QUEUE_H
#define RAST_TOOL_BAND_QUEUE_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "formats/input.h"
#include "formats/page.h"
#include "steps/planes.h"

class BandQueue {
 public:
  using Write = std::function<void(std::uint8_t* band, std::uint32_t lines)>;

  // For a page in bands of so many lines, which are as many at once as memory has room for. Where
  // that is one, or there is no other thread to be had, the caller's writes.
  BandQueue(const Input& in, const PageHead& head, std::uint32_t lines, Write write);
  // Without finish(), what was passed is written all the same, as far as it can be.
  ~BandQueue();
  BandQueue(const BandQueue&) = delete;
  BandQueue& operator=(const BandQueue&) = delete;

  // Where the next lines are to be made. This and finish() throw what writing threw.
  std::uint8_t* next();
  // So many lines are there.
  void pass(std::uint32_t lines);
  // Waits until all is written.
  void finish();

 private:
  struct Band {
    Bytes bytes;
    std::uint32_t lines;
  };

  Band& bandAt(std::uint64_t number) { return bands_[number % bands_.size()]; }
  std::uint64_t waiting() const { return passed_ - written_; }
  // A thread that waits is woken for as many bands at once: waking takes longer than a band.
  std::uint64_t batch() const { return (bands_.size() + 1) / 2; }
  void writePassed();
  void close();

  std::vector<Band> bands_;
  Write write_;
  std::mutex mutex_;  // of what follows
  std::condition_variable passedSome_;
  std::condition_variable wroteSome_;
  std::uint64_t passed_ = 0;
  std::uint64_t written_ = 0;
  bool closed_ = false;
  std::exception_ptr fault_;
  std::thread writer_;
};

#endif
