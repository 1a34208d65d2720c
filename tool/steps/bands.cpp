#include "steps/bands.h"

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

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

  // Where the next band is to be drawn. This and finish() throw what writing threw.
  std::uint8_t* next();
  // It is there.
  void pass();
  // Waits until all is written. To be called before the end, come what may.
  void finish();

 private:
  std::uint8_t* bandAt(std::size_t number) { return &bytes_[number % count_ * bandBytes_]; }
  void write(std::size_t number);
  std::size_t waiting() const { return passed_ - written_; }
  // A thread that waits is woken for as many bands at once: waking takes longer than a band.
  std::size_t batch() const { return (count_ + 1) / 2; }
  void writePassed();

  const Write& write_;
  std::uint32_t height_;  // of the page
  std::uint32_t lines_;   // of a band
  std::size_t bandBytes_;
  std::size_t count_;  // of the bands
  Bytes bytes_;
  std::mutex mutex_;  // of what follows
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
      height_(head.height),
      lines_(lines),
      bandBytes_(lines * head.lineBytes()),
      count_(bandsAtOnce(in, head, lines)),
      bytes_(makeBytes(count_ * bandBytes_)) {
  if (count_ == 1) return;
  // Signals are for the caller's thread, which knows when to keep them waiting.
  const FatalSignalsBlocked blocked;
  try {
    writer_ = std::thread([this] { writePassed(); });
  } catch (const std::system_error&) {
    count_ = 1;
    bytes_.reset();  // first, where memory is so short
    bytes_ = makeBytes(bandBytes_);
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

void BandQueue::pass() {
  const std::lock_guard lock(mutex_);
  ++passed_;
  if (!writer_.joinable()) return write(written_++);
  if (waiting() == batch()) passedSome_.notify_one();
}

void BandQueue::write(std::size_t number) {
  const std::uint64_t before = std::uint64_t{number} * lines_;
  write_(bandAt(number),
         static_cast<std::uint32_t>(std::min<std::uint64_t>(lines_, height_ - before)));
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
    lock.unlock();
    std::exception_ptr fault;
    try {
      write(written_);
    } catch (...) {
      fault = std::current_exception();
    }
    lock.lock();
    ++written_;
    fault_ = fault;
    if (fault_ || count_ - waiting() == batch()) wroteSome_.notify_one();
    if (fault_) return;
  }
  // Before the thread ends, which brings as much of the C library into memory.
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
      queue.pass();
      if (onDrawn) onDrawn(count);
      done += count;
    }
  } catch (...) {
    queue.finish();
    throw;
  }
  queue.finish();
}
