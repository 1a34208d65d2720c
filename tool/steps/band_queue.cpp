#include "steps/band_queue.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "formats/output.h"

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

}  // namespace

BandQueue::BandQueue(const Input& in, const PageHead& head, std::uint32_t lines, Write write)
    : bands_(bandsAtOnce(in, head, lines)), write_(std::move(write)) {
  for (Band& band : bands_) band.bytes = makeBytes(lines * head.lineBytes());
  if (bands_.size() == 1) return;
  // Signals are for the caller's thread, which knows when to keep them waiting.
  const FatalSignalsBlocked blocked;
  try {
    writer_ = std::thread([this] { writePassed(); });
  } catch (const std::system_error&) {
    bands_.resize(1);
  }
}

BandQueue::~BandQueue() { close(); }

std::uint8_t* BandQueue::next() {
  std::unique_lock lock(mutex_);
  if (waiting() == bands_.size()) {
    wroteSome_.wait(lock, [this] { return bands_.size() - waiting() >= batch() || fault_; });
  }
  if (fault_) std::rethrow_exception(fault_);
  return bandAt(passed_).bytes.get();
}

void BandQueue::pass(std::uint32_t lines) {
  if (!writer_.joinable()) return write_(bands_[0].bytes.get(), lines);
  const std::lock_guard lock(mutex_);
  bandAt(passed_++).lines = lines;
  if (waiting() == batch()) passedSome_.notify_one();
}

void BandQueue::finish() {
  close();
  if (fault_) std::rethrow_exception(fault_);
}

void BandQueue::close() {
  if (!writer_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  passedSome_.notify_one();
  writer_.join();
}

void BandQueue::writePassed() {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (waiting() == 0) {
      passedSome_.wait(lock, [this] { return waiting() >= batch() || closed_; });
    }
    if (waiting() == 0) return;
    const Band& band = bandAt(written_);
    lock.unlock();
    std::exception_ptr fault;
    try {
      write_(band.bytes.get(), band.lines);
    } catch (...) {
      fault = std::current_exception();
    }
    lock.lock();
    ++written_;
    fault_ = fault;
    if (fault_ || bands_.size() - waiting() == batch()) wroteSome_.notify_one();
    if (fault_) return;
  }
}
