#include "files/descriptor.h"

#include <cerrno>

namespace rast::tool {

namespace {

// Repeats a call for as long as a signal interrupts it.
template <class Call>
ssize_t uninterrupted(const Call& call) noexcept {
  ssize_t result = 0;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

// The rest of the parts after so many bytes.
std::span<iovec> without(std::span<iovec> parts, std::size_t bytes) noexcept {
  while (!parts.empty() && bytes >= parts[0].iov_len) {
    bytes -= parts[0].iov_len;
    parts = parts.subspan(1);
  }
  if (!parts.empty()) {
    parts[0].iov_base = static_cast<std::byte*>(parts[0].iov_base) + bytes;
    parts[0].iov_len -= bytes;
  }
  return parts;
}

}  // namespace

ssize_t Descriptor::read(void* data, std::size_t size) const noexcept {
  return uninterrupted([&] { return ::read(number_, data, size); });
}

bool Descriptor::write(std::span<iovec> parts) const noexcept {
  for (parts = without(parts, 0); !parts.empty();) {
    const ssize_t written = uninterrupted(
        [&] { return writev(number_, parts.data(), static_cast<int>(parts.size())); });
    if (written < 0) return false;
    parts = without(parts, static_cast<std::size_t>(written));
  }
  return true;
}

bool Descriptor::write(const void* data, std::size_t size) const noexcept {
  iovec part = {const_cast<void*>(data), size};
  return write(std::span(&part, 1));
}

bool Descriptor::writeAt(off_t offset, const void* data, std::size_t size) const noexcept {
  const auto* bytes = static_cast<const std::byte*>(data);
  while (size > 0) {
    const ssize_t written = uninterrupted([&] { return pwrite(number_, bytes, size, offset); });
    if (written < 0) return false;
    offset += written;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace rast::tool
