#include "commands/pageList.h"

#include <algorithm>
#include <charconv>

#include "text/error.h"

namespace rast::tool {

namespace {

[[noreturn]] void reject(const std::string& item, const char* fault) {
  fail(ExitCode::usage, "--pages: '", item, "' ", fault,
       "; expected pages and ranges from 1 on, such as 1-10,15,20-");
}

std::uint64_t pageNumber(const std::string& item, const std::string& text) {
  std::int64_t page = 0;  // leaves numbers above for an open end
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, page);
  if (stop != end || error == std::errc::invalid_argument) reject(item, "is no page or range");
  if (error != std::errc() || page < 1) reject(item, "is out of range");
  return static_cast<std::uint64_t>(page);
}

}  // namespace

PageList::PageList(const std::string& text) {
  std::vector<std::string> items;
  for (std::size_t start = 0; start <= text.size(); start += items.back().size() + 1) {
    const std::string& item = items.emplace_back(
        text.substr(start, std::min(text.find(',', start), text.size()) - start));
    const std::size_t dash = item.find('-');
    Range range{pageNumber(item, item.substr(0, dash)), kOpen};
    if (dash == std::string::npos) {
      range.last = range.first;
    } else if (dash + 1 < item.size()) {
      range.last = pageNumber(item, item.substr(dash + 1));
      if (range.last < range.first) reject(item, "runs backwards");
    }
    ranges_.push_back(range);
  }
  for (std::size_t i = 1; i < ranges_.size(); ++i) {
    if (ranges_[i].first > ranges_[i - 1].last) continue;
    const bool repeats = ranges_[i].last >= ranges_[i - 1].first;
    fail(ExitCode::usage, "--pages: '", items[i],
         repeats ? "' repeats pages of '" : "' comes after '", items[i - 1],
         "'; pages come once, in the order of the stream: write ", inOrder());
  }
}

bool PageList::holds(std::uint64_t page) const {
  return std::ranges::any_of(
      ranges_, [page](const Range& range) { return page >= range.first && page <= range.last; });
}

std::optional<std::uint64_t> PageList::count() const {
  if (ranges_.back().last == kOpen) return {};
  std::uint64_t count = 0;
  for (const Range& range : ranges_) count += range.last - range.first + 1;
  return count;
}

std::optional<std::uint64_t> PageList::count(const PageReader& page) const {
  const std::optional<std::uint64_t> listed = count();
  return listed ? listed : page.pagesAhead();
}

void PageList::checkEnd(const PageInput& in) const {
  if (in.page() == 0) return;
  for (const Range& range : ranges_) {
    const std::uint64_t named = range.last == kOpen ? range.first : range.last;
    if (named <= in.page()) continue;
    in.fail(ExitCode::usage, 0, "is the last one; --pages names page ",
            std::max(range.first, in.page() + 1));
  }
}

std::string PageList::inOrder() const {
  std::vector<Range> ranges = ranges_;
  std::ranges::sort(ranges, {}, &Range::first);
  std::string text;
  for (std::size_t i = 0; i < ranges.size();) {
    Range whole = ranges[i];
    while (++i < ranges.size() && (whole.last == kOpen || ranges[i].first <= whole.last + 1)) {
      whole.last = std::max(whole.last, ranges[i].last);
    }
    text += join(text.empty() ? "" : ",", whole.first);
    if (whole.last != whole.first) text += '-';
    if (whole.last != whole.first && whole.last != kOpen) text += join(whole.last);
  }
  return text;
}

}  // namespace rast::tool
