// A list of pages of a stream.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "formats/pageInput.h"
#include "formats/page.h"

namespace rast::tool {

class PageList {
 public:
  // All of them.
  PageList() : ranges_{{1, kOpen}} {}
  // A list such as "1-10,15,20-", in the order of the stream.
  explicit PageList(const std::string& text);

  bool holds(std::uint64_t page) const;
  // None where the number depends on the stream.
  std::optional<std::uint64_t> count() const;
  // The number of the list, or else an estimate from a page of the stream.
  std::optional<std::uint64_t> count(const PageReader& page) const;

  // At the end of the stream: rejects a list that names later pages, unless there is no page at
  // all.
  void checkEnd(const PageInput& in) const;

 private:
  static constexpr std::uint64_t kOpen = UINT64_MAX;
  struct Range {
    std::uint64_t first;
    std::uint64_t last;  // kOpen: the last one of the stream
  };

  // The list that names the same pages, each once.
  std::string inOrder() const;

  std::vector<Range> ranges_;
};

// Acts on the chosen pages of the stream and reads past the others.
template <class Act>
void everyPage(PageInput& in, PageStream& stream, const PageList& pages, const Act& act) {
  while (const std::unique_ptr<PageReader> page = stream.next()) {
    if (pages.holds(in.page())) {
      act(*page);
    } else {
      readPast(in, *page);
    }
  }
  pages.checkEnd(in);
}

}  // namespace rast::tool
