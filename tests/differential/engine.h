// Runs the call that a byte string stands for in every way there is and compares what each does.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "draft.h"

namespace rast::test {

using Bytes = std::vector<uint8_t>;

/// A call that is not the same in every way.
struct Deviation {
  std::string difference;
  std::string call;
};

/// Makes the call; the first byte names the operation.
std::optional<Deviation> deviation(std::span<const uint8_t> bytes);

/// The levels that are compared, by name.
std::string levelNames();

const Operation& operationOf(std::span<const uint8_t> bytes);

/// The smallest byte string, found by making single bytes smaller or leaving some out, for which
/// `fails` still holds.
Bytes shrunk(Bytes bytes, const std::function<bool(const Bytes&)>& fails);

/// What there is to say of a call that deviates: the shrunk case as a test that can be pasted.
std::string report(Bytes bytes);

std::string hexOf(std::span<const uint8_t> bytes);
Bytes bytesOf(const std::string& hex);

}  // namespace rast::test
