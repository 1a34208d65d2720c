#include "steps/bands.h"

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include "formats/signals.h"

namespace {

// As many as keep a thread busy for longer than it takes to wake the other; as far as memory has
// room for them, besides what a band takes in work, and the page has so many.
std::size_t bandsAtOnce(const Input& in, const PageHead& head, std::uint32_t lines) {
  constexpr std::uint64_t busyBytes = 1 << 18;
  const std::uint64_t bytes = lines * head.lineBytes();
  const std::uint64_t wanted = std::max<std::uint64_t>(busyBytes / bytes, 3);
  const std::uint64_t work = lines * head.workBytes();
  const std::uint64_t room = 1 + (std::max(in.memoryForBand(), work) - work) / bytes;
  const std::uint64_t ofPage = (head.height - 1) / lines + 1;
  return static_cast<std::size_t>(std::min({wanted, room, ofPage}));
}

class BandQueue {
 public:
  using Write = std::function<void(std::uint8_t* band, std::uint32_t lines)>;

  BandQueue(const Input& in, const PageHead& head, std::uint32_t lines, const Write& write);

  // Where the next lines are to be drawn. This and finish() throw what writing threw.
  std::uint8_t* next();
  // So many lines are there.
  void pass(std::uint32_t lines);
  // Waits until all is written. To be called before the end, come what may.
  void finish();

 private:
  std::uint8_t* bandAt(std::size_t number) { return &bytes_[number % count_ * bandBytes_]; }
  std::size_t waiting() const { return passed_ - written_; }
  // A thread that waits is woken for as many bands at once: waking takes longer than a band.
  std::size_t batch() const { return (count_ + 1) / 2; }
  void writePassed();

  const Write& write_;
  std::size_t count_;  // of the bands
  std::size_t bandBytes_;
  Bytes bytes_;
  std::vector<std::uint32_t> lines_;  // in each band
  std::mutex mutex_;                  // of what follows
  std::condition_variable passedSome_;
  std::condition_variable wroteSome_;
  std::size_t passed_ = 0;
  std::size_t written_ = 0;
  bool closed_ = false;
  std::exception_ptr fault_;
  std::thread writer_;
};

BandQueue::BandQueue(const Input& in, const PageHead& head, std::uint32_t lines, const Write& write)
    : write_(write),
      count_(bandsAtOnce(in, head, lines)),
      bandBytes_(lines * head.lineBytes()),
      bytes_(makeBytes(count_ * bandBytes_)),
      lines_(count_) {
  if (count_ == 1) return;
  // Signals are for the caller's thread, which knows when to keep them waiting.
  const FatalSignalsBlocked blocked;
  try {
    writer_ = std::thread([this] { writePassed(); });
  } catch (const std::system_error&) {
    count_ = 1;
  }
}

std::uint8_t* BandQueue::next() {
  std::unique_lock lock(mutex_);
  if (waiting() == count_) {
    wroteSome_.wait(lock, [this] { return count_ - waiting() >= batch() || fault_; });
  }
  if (fault_) std::rethrow_exception(fault_);
  return bandAt(passed_);
}

void BandQueue::pass(std::uint32_t lines) {
  if (!writer_.joinable()) return write_(bandAt(0), lines);
  const std::lock_guard lock(mutex_);
  lines_[passed_++ % count_] = lines;
  if (waiting() == batch()) passedSome_.notify_one();
}

void BandQueue::finish() {
  if (!writer_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  passedSome_.notify_one();
  writer_.join();
  if (fault_) std::rethrow_exception(fault_);
}

void BandQueue::writePassed() {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (waiting() == 0) {
      passedSome_.wait(lock, [this] { return waiting() >= batch() || closed_; });
    }
    if (waiting() == 0) break;
    std::uint8_t* const band = bandAt(written_);
    const std::uint32_t lines = lines_[written_ % count_];
    lock.unlock();
    std::exception_ptr fault;
    try {
      write_(band, lines);
    } catch (...) {
      fault = std::current_exception();
    }
    lock.lock();
    ++written_;
    fault_ = fault;
    if (fault_ || count_ - waiting() == batch()) wroteSome_.notify_one();
    if (fault_) return;
  }
  // Now, since the end of a thread brings as much of the C library into memory.
  bytes_.reset();
}

}  // namespace

void drawInBands(const Input& in, PageSource& page, Layout layout, std::uint32_t lines,
                 const WriteBand& write, const std::function<void(std::uint32_t lines)>& onDrawn) {
  const PageHead& head = page.head();
  const std::size_t samples = std::size_t{lines} * head.width;
  std::optional<Lines> apart;
  if (layout == Layout::interleaved) apart.emplace(head.width, true, lines);
  const BandQueue::Write writePlanes = [&](std::uint8_t* band, std::uint32_t count) {
    write(Planes(layout, band, samples), count);
  };
  BandQueue queue(in, head, lines, writePlanes);
  try {
    for (std::uint32_t done = 0; done < head.height;) {
      const std::uint32_t count = std::min(lines, head.height - done);
      std::uint8_t* const band = queue.next();
      page.draw(apart ? apart->planes() : Planes(layout, band, samples), count);
      if (apart) interleave(apart->planes(), band, std::size_t{count} * head.width);
      queue.pass(count);
      if (onDrawn) onDrawn(count);
      done += count;
    }
  } catch (...) {
    queue.finish();
    throw;
  }
  queue.finish();
}
