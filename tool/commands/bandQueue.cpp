#include "commands/bandQueue.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "files/signals.h"

namespace rast::tool {

namespace {

// Enough bands to keep a thread busy for longer than it takes to wake the other.
std::size_t bandsAtOnce(std::uint32_t pageLines, std::uint32_t lines, std::size_t bandBytes,
                        std::uint64_t memory) {
  constexpr std::uint64_t busyBytes = 1 << 18;
  const std::uint64_t wanted = std::max<std::uint64_t>(busyBytes / bandBytes, 3);
  const std::uint64_t room = std::max<std::uint64_t>(memory / bandBytes, 1);
  const std::uint64_t ofPage = (pageLines - 1) / lines + 1;
  return static_cast<std::size_t>(std::min({wanted, room, ofPage}));
}

}  // namespace

BandQueue::BandQueue(std::uint32_t pageLines, std::uint32_t lines, std::size_t lineBytes,
                     std::uint64_t memory, Write write)
    : write_(std::move(write)),
      height_(pageLines),
      lines_(lines),
      bandBytes_(lines * lineBytes),
      count_(bandsAtOnce(pageLines, lines, bandBytes_, memory)),
      bytes_(std::make_unique_for_overwrite<std::uint8_t[]>(count_ * bandBytes_)) {
  if (count_ == 1) return;
  // Signals are for the caller's thread, which knows when to keep them waiting.
  const FatalSignalsBlocked blocked;
  try {
    writer_ = std::thread([this] { writePassed(); });
  } catch (const std::system_error&) {
    count_ = 1;
  }
}

BandQueue::~BandQueue() { join(); }

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

void BandQueue::join() {
  if (!writer_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  passedSome_.notify_one();
  writer_.join();
}

void BandQueue::finish() {
  join();
  if (fault_) std::rethrow_exception(fault_);
}

void BandQueue::writePassed() {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (waiting() == 0) {
      passedSome_.wait(lock, [this] { return waiting() >= batch() || closed_; });
    }
    if (waiting() == 0) return;
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
}

}  // namespace rast::tool
