// Chains on threads of their own make what one alone makes. Under the thread sanitizer this shows
// that they share nothing that is written.
#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pages.h"

namespace {

using namespace rast::test;

constexpr const char* kTexts[] = {
    "hueadjust rotate=30 mirror : colbalance level=6,5,4,5 : zoom percent=60",
    "rotate cw : overlay logo.ppm at=2,3 : overlayrgb logo.ppm white : gray : colgamma gamma=1.8",
    "satadjust raise : binconv color=3 : shift x=3 y=2 : expgamma",
};

/// What each text makes of a page, or why it is rejected.
std::vector<std::string> workThrough(const Picture& in) {
  std::vector<std::string> results;
  for (const char* text : kTexts) {
    ImageSource image;
    image.picture = in;
    RastChainSettings settings = settingsFor(image);
    settings.nLines = 5;
    const ChainPointer chain = openChain(text, &settings);
    for (int page = 0; page < 3; ++page) {
      Random random(1);
      const Outcome outcome = runPage(chain.get(), in, randomFeed(random), random);
      std::string result = outcome.error.sMessage;
      for (const Plane& plane : outcome.picture.planes) result.append(plane.begin(), plane.end());
      results.push_back(result + outcome.broken);
    }
    std::string description(100000, ' ');
    description.resize(rastChainDescribe(description.data(), description.size()));
    results.push_back(description);
  }
  return results;
}

}  // namespace

int main() {
  Random random(1);
  const Picture in = randomPicture(53, 41, 3, random);
  const std::vector<std::string> expected = workThrough(in);
  std::array<std::vector<std::string>, 4> results;
  std::vector<std::thread> threads;
  for (std::vector<std::string>& result : results) {
    threads.emplace_back([&result, &in] {
      for (int round = 0; round < 10; ++round) result = workThrough(in);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::vector<std::string>& result : results) {
    if (result != expected) {
      std::puts("a thread got another page");
      return 1;
    }
  }
  return 0;
}
