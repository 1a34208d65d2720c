#include "formats/rasterPage.h"

#include <sys/types.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <iterator>
#include <span>
#include <string_view>
#include <vector>

#include "formats/sharedLibrary.h"
#include "formats/signature.h"

namespace rast::tool {

namespace {

constexpr SharedLibrary libcups(RAST_CUPS_SONAME, "raster");
RAST_LIBRARY_FUNCTION(libcups, cupsRasterClose);
RAST_LIBRARY_FUNCTION(libcups, cupsRasterErrorString);
RAST_LIBRARY_FUNCTION(libcups, cupsRasterOpenIO);
RAST_LIBRARY_FUNCTION(libcups, cupsRasterReadHeader2);
RAST_LIBRARY_FUNCTION(libcups, cupsRasterReadPixels);
RAST_LIBRARY_FUNCTION(libcups, cupsRasterWriteHeader2);
RAST_LIBRARY_FUNCTION(libcups, cupsRasterWritePixels);

using Page = cups_page_header2_t;

struct Closes {
  void operator()(cups_raster_t* raster) const { cupsRasterClose(raster); }
};
using Raster = std::unique_ptr<cups_raster_t, Closes>;

constexpr const char* kSpaceNames[] = {"W",     "RGB",  "RGBA",    "K",      "CMY",    "YMC",
                                       "CMYK",  "YMCK", "KCMY",    "KCMYcm", "GMCK",   "GMCS",
                                       "WHITE", "GOLD", "SILVER",  "CIEXYZ", "CIELab", "RGBW",
                                       "SW",    "SRGB", "ADOBERGB"};

constexpr bool isGraySpace(unsigned space) {
  return space == CUPS_CSPACE_W || space == CUPS_CSPACE_K || space == CUPS_CSPACE_SW;
}

constexpr bool isRgbSpace(unsigned space) {
  return space == CUPS_CSPACE_RGB || space == CUPS_CSPACE_SRGB || space == CUPS_CSPACE_ADOBERGB;
}

// Empty if there is no such color space.
std::string nameOfSpace(unsigned space) {
  if (space < std::size(kSpaceNames)) return kSpaceNames[space];
  if (space >= CUPS_CSPACE_ICC1 && space <= CUPS_CSPACE_ICCF) return join("ICC", space - 31);
  if (space >= CUPS_CSPACE_DEVICE1 && space <= CUPS_CSPACE_DEVICEF) {
    return join("DEVICE", space - 47);
  }
  return "";
}

// A file may hold numbers that an enumeration does not have, so none is read as one.
template <class Field>
unsigned numberIn(const Field& field) {
  static_assert(sizeof(Field) == sizeof(unsigned));
  unsigned number = 0;
  std::memcpy(&number, &field, sizeof number);
  return number;
}

bool isPwg(const Page& page) {
  return std::strncmp(page.MediaClass, "PwgRaster", sizeof page.MediaClass) == 0;
}

// The samples of K count ink.
std::uint8_t inversionOf(const Page& page) {
  return numberIn(page.cupsColorSpace) == CUPS_CSPACE_K ? 0xFF : 0;
}

std::string libraryError() {
  const char* const text = cupsRasterErrorString();
  return text != nullptr ? text : "no reason given";
}

// Turns the numbers of a page header to the other byte order. Version 1 leaves the end out.
void swapNumbers(std::span<std::uint8_t> header) {
  const std::size_t end = std::min(header.size(), offsetof(Page, cupsString));
  for (std::size_t at = offsetof(Page, AdvanceDistance); at < end; at += 4) {
    std::ranges::reverse(header.subspan(at, 4));
  }
}

// The header as it is in the file, with numbers in the order of this machine.
Page decoded(std::span<const std::uint8_t> raw, bool swapped) {
  std::array<std::uint8_t, sizeof(Page)> bytes = {};
  std::ranges::copy(raw, bytes.begin());
  if (swapped) swapNumbers(std::span(bytes).first(raw.size()));
  Page page;
  std::memcpy(&page, bytes.data(), sizeof page);
  return page;
}

// First checks that it is a page header at all, as after the last page, then whether it is
// supported.
PageHead judged(const PageInput& in, const Page& page) {
  const unsigned bits = page.cupsBitsPerColor;
  const unsigned order = numberIn(page.cupsColorOrder);
  const unsigned space = numberIn(page.cupsColorSpace);
  const std::string name = nameOfSpace(space);
  if ((bits != 1 && bits != 2 && bits != 4 && bits != 8 && bits != 16) ||
      order > CUPS_ORDER_PLANAR || name.empty()) {
    in.fail(ExitCode::damaged, 0, "no page header: ", bits, " bits a color, order ", order,
            " and color space ", space, "; expected 8 bits, order 0 and gray or RGB");
  }
  if (const std::string reason = unsupportedIn(page); !reason.empty()) {
    throw UnsupportedRaster{{ExitCode::unsupported, join(in.place(0), ": ", reason)},
                            hasColor(page)};
  }

  const bool color = isRgbSpace(space);
  PageHead head = checkedHead(in, page.cupsWidth, page.cupsHeight, color);
  head.resolution = {double(page.HWResolution[0]), double(page.HWResolution[1])};
  const unsigned colors = color ? 3 : 1;
  if (page.cupsBitsPerPixel != 8 * colors ||
      (page.cupsNumColors != 0 && page.cupsNumColors != colors)) {
    in.fail(ExitCode::damaged, 0, page.cupsBitsPerPixel, " bits a pixel and ", page.cupsNumColors,
            " colors in color space ", name, "; expected ", 8 * colors, " and ", colors);
  }
  // Lines are padded to blocks of memory at most. Libcups takes none that end inside a pixel.
  constexpr std::size_t longestPadding = 4096;
  const std::size_t stored = page.cupsBytesPerLine;
  if (stored < head.lineBytes() || stored - head.lineBytes() > longestPadding ||
      stored % colors != 0) {
    in.fail(ExitCode::damaged, 0, "lines of ", stored, " bytes, expected ", head.lineBytes());
  }
  return head;
}

// The header of a page as it was read, in the order of this machine.
struct RasterDetails final : FormatDetails {
  explicit RasterDetails(const Page& header) : page(header) {}
  Page page;
};

// A version of the format. Its streams begin with this word, or with the word reversed where numbers
// have the least significant byte first.
struct Version {
  std::string_view word;
  std::string_view reversed;
  std::size_t headerBytes;
  bool isCompressed;

  bool mayBegin(std::span<const std::uint8_t> start) const {
    return beginsLike(start, word) || beginsLike(start, reversed);
  }
};

constexpr Version kVersions[] = {
    {"RaSt", "tSaR", sizeof(cups_page_header_t), false},
    {"RaS2", "2SaR", sizeof(Page), true},
    {"RaS3", "3SaR", sizeof(Page), false},
};

// Libcups reads from it: first the bytes that were read ahead, then the stream.
struct Source {
  PageInput& in;
  std::span<const std::uint8_t> ahead = {};
  Version version = kVersions[0];
  bool ended = false;
};

ssize_t onRead(void* context, unsigned char* data, std::size_t size) noexcept {
  auto& source = *static_cast<Source*>(context);
  if (!source.ahead.empty()) {
    const auto now = source.ahead.first(std::min(size, source.ahead.size()));
    std::ranges::copy(now, data);
    source.ahead = source.ahead.subspan(now.size());
    return static_cast<ssize_t>(now.size());
  }
  // In compressed streams, only the buffer of libcups is longer than a header. Filled byte by byte
  // it never holds anything of the next page.
  if (source.version.isCompressed && size > sizeof(Page)) size = 1;
  const std::size_t got = source.in.read(data, size);
  source.ended = got != size;
  return static_cast<ssize_t>(got);
}

class RasterReader final : public PageReader {
 public:
  RasterReader(Source& source, cups_raster_t* raster, const PageHead& head, const Page& page)
      : source_(source), raster_(raster), details_(std::make_shared<RasterDetails>(page)) {
    head_ = head;
    head_.details = details_;
    if (page.cupsBytesPerLine != head.lineBytes()) padded_.resize(page.cupsBytesPerLine);
  }

  const char* formatName() const override {
    return isPwg(details_->page) ? "PWG raster" : "CUPS raster";
  }
  std::optional<std::uint64_t> pagesAhead() const override {
    if (source_.version.isCompressed) return {};
    return source_.in.partsAhead(source_.version.headerBytes +
                                 std::uint64_t{details_->page.cupsBytesPerLine} * head_.height);
  }
  std::uint32_t copies() const override { return std::max(details_->page.NumCopies, 1U); }

  void readLines(std::uint8_t* lines, std::uint32_t count) override {
    const std::size_t lineBytes = head_.lineBytes();
    const std::uint8_t inversion = inversionOf(details_->page);
    for (std::uint8_t* const end = lines + count * lineBytes; lines != end; lines += lineBytes) {
      readStored(padded_.empty() ? lines : padded_.data());
      if (!padded_.empty()) std::copy_n(padded_.begin(), lineBytes, lines);
      if (inversion == 0) continue;
      for (std::uint8_t& sample : std::span(lines, lineBytes)) sample ^= inversion;
    }
  }

 private:
  void readStored(std::uint8_t* line) {
    ++line_;
    const unsigned size = details_->page.cupsBytesPerLine;
    if (cupsRasterReadPixels(raster_, line, size) == size) return;
    if (!source_.ended) source_.in.fail(ExitCode::damaged, line_, "damaged: ", libraryError());
    source_.in.failShort(line_, join(head_.height, " lines of ", size, " bytes"));
  }

  Source& source_;
  cups_raster_t* raster_;
  std::shared_ptr<const RasterDetails> details_;
  std::vector<std::uint8_t> padded_;  // one line as stored; empty where that is as wanted
  std::uint64_t line_ = 0;
};

class RasterStream final : public PageStream {
 public:
  RasterStream(PageInput& in, bool mayBeEmpty) : source_{in}, mayBeEmpty_(mayBeEmpty) {
    readAhead(word_, "a raster stream");
    source_.version = *std::ranges::find_if(
        kVersions, [this](const Version& version) { return version.mayBegin(word_); });
    isSwapped_ =
        beginsLike(word_, source_.version.word) != (std::endian::native == std::endian::big);
    raster_.reset(cupsRasterOpenIO(onRead, &source_, CUPS_RASTER_READ));
    if (!raster_) throw std::bad_alloc();
  }
  RasterStream(const RasterStream&) = delete;
  RasterStream& operator=(const RasterStream&) = delete;

  std::unique_ptr<PageReader> next() override {
    PageInput& in = source_.in;
    if (in.peek() == EOF) {
      if (in.page() == 0 && !mayBeEmpty_) in.failShort(0, "at least one page");
      return nullptr;
    }
    in.startPage();
    std::array<std::uint8_t, sizeof(Page)> buffer;
    const auto raw = std::span(buffer).first(source_.version.headerBytes);
    readAhead(raw, join("a page header of ", source_.version.headerBytes, " bytes"));
    // Checks the header before libcups, which allocates by its fields.
    Page page = decoded(raw, isSwapped_);
    const PageHead head = judged(in, page);
    if (cupsRasterReadHeader2(raster_.get(), &page) == 0) {
      in.fail(ExitCode::damaged, 0, "damaged page header: ", libraryError());
    }
    source_.ahead = {};
    return std::make_unique<RasterReader>(source_, raster_.get(), head, page);
  }

 private:
  void readAhead(std::span<std::uint8_t> bytes, const std::string& expected) {
    if (source_.in.read(bytes.data(), bytes.size()) != bytes.size()) {
      source_.in.failShort(0, expected);
    }
    source_.ahead = bytes;
  }

  Source source_;
  bool mayBeEmpty_;
  Raster raster_;
  std::array<std::uint8_t, 4> word_ = {};
  bool isSwapped_ = false;  // against the order of this machine
};

struct Sink {
  Output& out;
  bool failed = false;
  const Page* pwgPage = nullptr;  // whose header libcups is about to write
};

// Libcups makes up the numbers that PWG has in the fields of vendors, and leaves their data out.
void putVendorFields(const Page& page, unsigned char* header) {
  constexpr std::size_t begin = offsetof(Page, cupsInteger);
  std::array<std::uint8_t, sizeof(Page)> bytes;
  std::memcpy(bytes.data(), &page, sizeof page);
  if (std::endian::native == std::endian::little) swapNumbers(bytes);
  std::memcpy(header + begin, &bytes[begin], offsetof(Page, cupsMarkerType) - begin);
}

ssize_t onWrite(void* context, unsigned char* data, std::size_t size) noexcept {
  auto& sink = *static_cast<Sink*>(context);
  if (sink.pwgPage != nullptr && size == sizeof(Page)) putVendorFields(*sink.pwgPage, data);
  if (sink.out.tryWrite(data, size)) return static_cast<ssize_t>(size);
  sink.failed = true;
  return -1;
}

// A resolution that a header can hold, or 0.
unsigned wholeResolution(double dots) {
  return dots >= 1 && dots <= UINT32_MAX ? static_cast<unsigned>(std::llround(dots)) : 0;
}

// The same length to less than a pixel. Where no resolution is known, pixels are compared.
bool isSameLength(unsigned pixels, unsigned dots, unsigned otherPixels, unsigned otherDots) {
  const double unit = std::max(dots, 1U);
  return std::abs(pixels - otherPixels * (unit / std::max(otherDots, 1U))) < 1;
}

double points(unsigned pixels, unsigned dots) {
  return dots == 0 ? 0 : std::min<double>(pixels * 72.0 / dots, UINT32_MAX);
}

// Sets the sizes of a page whose pixels cover all of it.
void setPageSize(Page& page, bool pwg) {
  const unsigned pixels[] = {page.cupsWidth, page.cupsHeight};
  std::ranges::fill(page.Margins, 0U);
  std::ranges::fill(page.ImagingBoundingBox, 0U);
  std::ranges::fill(page.cupsImagingBBox, 0.0F);
  std::ranges::fill(page.cupsPageSizeName, '\0');
  for (std::size_t i = 0; i < 2; ++i) {
    const double length = points(pixels[i], page.HWResolution[i]);
    page.cupsPageSize[i] = static_cast<float>(length);
    page.PageSize[i] = static_cast<unsigned>(std::llround(length));
    if (pwg) continue;  // which has no box in points
    page.cupsImagingBBox[2 + i] = page.cupsPageSize[i];
    page.ImagingBoundingBox[2 + i] = page.PageSize[i];
  }
}

constexpr unsigned kUsualResolution = 300;

// Everything is carried over that still holds:
// - the color space, if it fits the kind of the page (and PWG, which has no W)
// - the page size, its name, margins and boxes, if the page is as large as before, in whatever
//   resolution, and was not turned; otherwise the page becomes just what the pixels cover
// - not how many pages there are, which may have been chosen
// - between CUPS and PWG, not the vendor's fields, in which one has its own numbers, nor the names
//   of page sizes, which differ
Page headerFor(const PageHead& head, const RasterDetails* from, bool pwg, bool& assumed) {
  const Page before = from != nullptr ? from->page : Page{};
  const bool alien = from == nullptr || isPwg(before) != pwg;
  Page page = before;
  if (from == nullptr) page.NumCopies = 1;
  if (alien) {
    std::ranges::fill(page.MediaClass, '\0');
    std::ranges::fill(page.cupsInteger, 0U);
    std::ranges::fill(page.cupsReal, 0.0F);
    std::memset(page.cupsString, 0, sizeof page.cupsString);
  }

  page.cupsWidth = head.width;
  page.cupsHeight = head.height;
  page.cupsNumColors = head.color ? 3 : 1;
  page.cupsBitsPerColor = 8;
  page.cupsBitsPerPixel = 8 * page.cupsNumColors;
  page.cupsBytesPerLine = static_cast<unsigned>(head.lineBytes());
  page.cupsColorOrder = CUPS_ORDER_CHUNKED;
  const unsigned space = numberIn(before.cupsColorSpace);
  const bool fits = head.color ? isRgbSpace(space) : isGraySpace(space);
  if (from == nullptr || !fits || (pwg && space == CUPS_CSPACE_W)) {
    page.cupsColorSpace = head.color ? CUPS_CSPACE_SRGB : CUPS_CSPACE_SW;
  }

  const double dots[] = {head.resolution.x, head.resolution.y};
  for (std::size_t i = 0; i < 2; ++i) {
    if (const unsigned whole = wholeResolution(dots[i])) page.HWResolution[i] = whole;
    if (page.HWResolution[i] == 0 && (from == nullptr || pwg)) {
      page.HWResolution[i] = kUsualResolution;
      assumed = true;
    }
  }
  if (alien || head.turned ||
      !isSameLength(page.cupsWidth, page.HWResolution[0], before.cupsWidth,
                    before.HWResolution[0]) ||
      !isSameLength(page.cupsHeight, page.HWResolution[1], before.cupsHeight,
                    before.HWResolution[1])) {
    setPageSize(page, pwg);
  }
  if (!pwg) return page;

  if (alien) {
    page.cupsInteger[CUPS_RASTER_PWG_CrossFeedTransform] = 1;
    page.cupsInteger[CUPS_RASTER_PWG_FeedTransform] = 1;
    page.cupsInteger[CUPS_RASTER_PWG_AlternatePrimary] = 0xFFFFFF;
  }
  page.cupsInteger[CUPS_RASTER_PWG_TotalPageCount] = 0;
  if (alien || page.cupsWidth != before.cupsWidth || page.cupsHeight != before.cupsHeight) {
    page.cupsInteger[CUPS_RASTER_PWG_ImageBoxLeft] = 0;
    page.cupsInteger[CUPS_RASTER_PWG_ImageBoxTop] = 0;
    page.cupsInteger[CUPS_RASTER_PWG_ImageBoxRight] = page.cupsWidth;
    page.cupsInteger[CUPS_RASTER_PWG_ImageBoxBottom] = page.cupsHeight;
  }
  // Libcups copies these as strings.
  for (const std::span<char> text :
       {std::span(page.MediaColor), std::span(page.MediaType), std::span(page.OutputType),
        std::span(page.cupsRenderingIntent), std::span(page.cupsPageSizeName)}) {
    text.back() = '\0';
  }
  return page;
}

class RasterWriter final : public PageWriter {
 public:
  // PWG or CUPS raster, or what the first page was in.
  RasterWriter(Output& out, std::optional<bool> pwg) : sink_{out}, pwg_(pwg) {}
  RasterWriter(const RasterWriter&) = delete;
  RasterWriter& operator=(const RasterWriter&) = delete;

  void beginPage(const PageHead& head) override {
    const auto* const from = dynamic_cast<const RasterDetails*>(head.details.get());
    if (head.lineBytes() > INT32_MAX) {
      sink_.out.fail(ExitCode::unsupported, "raster holds lines of up to ", INT32_MAX,
                     " bytes and a page has ", head.lineBytes());
    }
    assumes_ = false;
    if (!raster_) {
      if (!pwg_) pwg_ = from != nullptr && isPwg(from->page);
      begin();
    }
    Page page = headerFor(head, from, *pwg_, assumes_);
    inversion_ = inversionOf(page);
    line_.resize(head.lineBytes());
    if (*pwg_) sink_.pwgPage = &page;
    const bool written = cupsRasterWriteHeader2(raster_.get(), &page) != 0;
    sink_.pwgPage = nullptr;
    check(written);
  }

  // Line by line from a copy, because libcups takes no constant.
  void writeLines(const std::uint8_t* lines, std::uint32_t count) override {
    const auto size = static_cast<unsigned>(line_.size());
    for (std::uint32_t i = 0; i < count; ++i, lines += size) {
      std::transform(lines, lines + size, line_.begin(), [this](std::uint8_t sample) {
        return static_cast<std::uint8_t>(sample ^ inversion_);
      });
      check(cupsRasterWritePixels(raster_.get(), line_.data(), size) == size);
    }
  }

  // A stream without pages is no more than its beginning.
  void finish() override {
    if (!raster_) begin();
    raster_.reset();
    check(true);
  }

  unsigned assumedResolution() const override { return assumes_ ? kUsualResolution : 0; }

 private:
  void begin() {
    const bool pwg = pwg_.value_or(false);
    raster_.reset(
        cupsRasterOpenIO(onWrite, &sink_, pwg ? CUPS_RASTER_WRITE_PWG : CUPS_RASTER_WRITE));
    if (sink_.failed) sink_.out.failWrite();
    if (!raster_) throw std::bad_alloc();
  }

  void check(bool written) const {
    if (sink_.failed) sink_.out.failWrite();
    if (!written) sink_.out.fail(ExitCode::runTime, "the raster encoder failed: ", libraryError());
  }

  Sink sink_;
  std::optional<bool> pwg_;
  bool assumes_ = false;
  Raster raster_;
  std::uint8_t inversion_ = 0;
  std::vector<std::uint8_t> line_;
};

}  // namespace

bool hasColor(const cups_page_header2_t& page) {
  return !isGraySpace(numberIn(page.cupsColorSpace));
}

std::string unsupportedIn(const cups_page_header2_t& page) {
  const unsigned bits = page.cupsBitsPerColor;
  const unsigned order = numberIn(page.cupsColorOrder);
  const unsigned space = numberIn(page.cupsColorSpace);
  const auto because = [](const std::string& what, const char* hint) {
    return join(what, " is not supported; ", hint);
  };
  if (!isGraySpace(space) && !isRgbSpace(space)) {
    return because(join("raster in color space ", space, " (", nameOfSpace(space), ")"),
                   "render it in gray or RGB");
  }
  if (bits != 8) return because(join(bits, "-bit raster"), "render it with 8 bits a color");
  if (isRgbSpace(space) && order != CUPS_ORDER_CHUNKED) {
    return because(order == CUPS_ORDER_BANDED ? "banded raster" : "planar raster",
                   "render it in chunky order");
  }
  return "";
}

bool isRaster(std::span<const std::uint8_t> start) {
  return std::ranges::any_of(kVersions,
                             [start](const Version& version) { return version.mayBegin(start); });
}

std::unique_ptr<PageStream> openRaster(PageInput& in, bool mayBeEmpty) {
  return std::make_unique<RasterStream>(in, mayBeEmpty);
}

std::unique_ptr<PageWriter> makeCupsWriter(Output& out) {
  return std::make_unique<RasterWriter>(out, false);
}

std::unique_ptr<PageWriter> makePwgWriter(Output& out) {
  return std::make_unique<RasterWriter>(out, true);
}

std::unique_ptr<PageWriter> makeRasterWriter(Output& out) {
  return std::make_unique<RasterWriter>(out, std::nullopt);
}

}  // namespace rast::tool
