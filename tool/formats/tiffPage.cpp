#include "formats/tiffPage.h"

#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "formats/sharedLibrary.h"
#include "formats/tiffExtent.h"

namespace rast::tool {

namespace {

constexpr SharedLibrary libtiff(RAST_TIFF_SONAME, "TIFF");
RAST_LIBRARY_FUNCTION(libtiff, TIFFClientOpenExt);
RAST_LIBRARY_FUNCTION(libtiff, TIFFClose);
RAST_LIBRARY_FUNCTION(libtiff, TIFFComputeStrip);
RAST_LIBRARY_FUNCTION(libtiff, TIFFCurrentDirOffset);
RAST_LIBRARY_FUNCTION(libtiff, TIFFGetField);
RAST_LIBRARY_FUNCTION(libtiff, TIFFGetFieldDefaulted);
RAST_LIBRARY_FUNCTION(libtiff, TIFFGetStrileByteCount);
RAST_LIBRARY_FUNCTION(libtiff, TIFFGetStrileOffset);
RAST_LIBRARY_FUNCTION(libtiff, TIFFIsCODECConfigured);
RAST_LIBRARY_FUNCTION(libtiff, TIFFIsTiled);
RAST_LIBRARY_FUNCTION(libtiff, TIFFLastDirectory);
RAST_LIBRARY_FUNCTION(libtiff, TIFFNumberOfDirectories);
RAST_LIBRARY_FUNCTION(libtiff, TIFFOpenOptionsAlloc);
RAST_LIBRARY_FUNCTION(libtiff, TIFFOpenOptionsFree);
RAST_LIBRARY_FUNCTION(libtiff, TIFFOpenOptionsSetErrorHandlerExtR);
RAST_LIBRARY_FUNCTION(libtiff, TIFFOpenOptionsSetMaxSingleMemAlloc);
RAST_LIBRARY_FUNCTION(libtiff, TIFFOpenOptionsSetWarningHandlerExtR);
RAST_LIBRARY_FUNCTION(libtiff, TIFFReadDirectory);
RAST_LIBRARY_FUNCTION(libtiff, TIFFReadScanline);
RAST_LIBRARY_FUNCTION(libtiff, TIFFReverseBits);
RAST_LIBRARY_FUNCTION(libtiff, TIFFScanlineSize64);
RAST_LIBRARY_FUNCTION(libtiff, TIFFSetField);
RAST_LIBRARY_FUNCTION(libtiff, TIFFSetSubDirectory);
RAST_LIBRARY_FUNCTION(libtiff, TIFFWriteDirectory);
RAST_LIBRARY_FUNCTION(libtiff, TIFFWriteScanline);

struct TiffCloser {
  void operator()(TIFF* tiff) const noexcept { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, TiffCloser>;

// The first error inside libtiff, kept until libtiff has returned.
struct Fault {
  char text[200] = "";
  bool strict = false;   // whether warnings are faults too
  bool atBytes = false;  // whether the bytes themselves could not be read or written
};

int onError(TIFF*, void* user, const char*, const char* format, std::va_list arguments) {
  auto& text = static_cast<Fault*>(user)->text;
  if (text[0] == '\0') std::vsnprintf(text, sizeof text, format, arguments);
  return 1;
}

int onWarning(TIFF* tiff, void* user, const char* module, const char* format,
              std::va_list arguments) {
  auto& fault = *static_cast<Fault*>(user);
  if (fault.strict) return onError(tiff, user, module, format, arguments);
  // Strip sizes that cannot be true, in place of which libtiff would make some up.
  if (fault.text[0] == '\0' && std::strstr(format, "ignoring and calculating") != nullptr) {
    std::snprintf(fault.text, sizeof fault.text,
                  "the strip sizes do not fit the image or the file");
  }
  return 1;
}

// The callbacks of libtiff onto a Source or a Sink. No exception may leave them.
template <class Client>
Client& clientOf(thandle_t handle) {
  return *static_cast<Client*>(handle);
}

template <class Client>
tmsize_t onRead(thandle_t handle, void* data, tmsize_t size) noexcept {
  return static_cast<tmsize_t>(clientOf<Client>(handle).read(data, static_cast<std::size_t>(size)));
}

template <class Client>
tmsize_t onWrite(thandle_t handle, void* data, tmsize_t size) noexcept {
  return clientOf<Client>(handle).write(data, static_cast<std::size_t>(size)) ? size : -1;
}

template <class Client>
toff_t onSeek(thandle_t handle, toff_t offset, int whence) noexcept {
  auto& client = clientOf<Client>(handle);
  if (whence == SEEK_CUR) offset += client.position();
  if (whence == SEEK_END) offset += client.size();
  return client.seek(offset) ? offset : std::numeric_limits<toff_t>::max();
}

template <class Client>
toff_t onSize(thandle_t handle) noexcept {
  return clientOf<Client>(handle).size();
}

int onClose(thandle_t) noexcept { return 0; }

template <class Client>
Tiff openWith(Client& client, const char* mode, std::uint64_t memoryCap) {
  const std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(),
                                                                             TIFFOpenOptionsFree);
  if (!options) throw std::bad_alloc();
  constexpr std::uint64_t most = std::numeric_limits<tmsize_t>::max();
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(),
                                      static_cast<tmsize_t>(std::min(memoryCap, most)));
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), onError, &client.fault);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), onWarning, &client.fault);
  return Tiff(TIFFClientOpenExt("", mode, &client, onRead<Client>, onWrite<Client>, onSeek<Client>,
                                onClose, onSize<Client>, nullptr, nullptr, options.get()));
}

struct Source {
  PageInput& in;
  Fault fault = {};

  std::size_t read(void* data, std::size_t size) noexcept {
    const std::size_t got = in.read(static_cast<std::uint8_t*>(data), size);
    fault.atBytes |= got != size;
    return got;
  }
  static bool write(const void*, std::size_t) noexcept { return false; }
  bool seek(std::uint64_t offset) noexcept {
    const bool sought = in.seek(offset);
    fault.atBytes |= !sought;
    return sought;
  }
  std::uint64_t position() const noexcept { return in.position(); }
  std::uint64_t size() const noexcept { return in.size(); }

  // The mode: no memory maps (m), strips as they are in the file (c).
  Tiff open() {
    seek(0);
    return openWith(*this, "rmc", in.memory().forLines());
  }

  // Not every fault makes a call of libtiff fail, nor is there a text for every call that fails.
  void check(bool done, std::uint64_t line) const {
    if (fault.atBytes) in.failShort(line, "all data that the TIFF directories name");
    if (done && fault.text[0] == '\0') return;
    if (std::strstr(fault.text, "llocat") != nullptr) {
      in.fail(ExitCode::memory, line, "the TIFF needs too much at once: ", fault.text);
    }
    in.fail(ExitCode::damaged, line, "damaged TIFF: ",
            done || fault.text[0] != '\0'
                ? fault.text
                : "the directories lead nowhere or contradict themselves");
  }
};

template <class Value>
Value field(TIFF* tiff, std::uint32_t tag) {
  Value value = 0;
  TIFFGetFieldDefaulted(tiff, tag, &value);
  return value;
}

Resolution resolutionOf(TIFF* tiff) {
  const auto unit = field<std::uint16_t>(tiff, TIFFTAG_RESOLUTIONUNIT);
  const double scale = unit == RESUNIT_INCH ? 1 : unit == RESUNIT_CENTIMETER ? 2.54 : 0;
  const auto perInch = [&](std::uint32_t tag) {
    const double value = double{field<float>(tiff, tag)} * scale;
    return std::isfinite(value) && value > 0 ? value : 0;
  };
  return {perInch(TIFFTAG_XRESOLUTION), perInch(TIFFTAG_YRESOLUTION)};
}

class TiffReader final : public PageReader {
 public:
  // The directory of the page is the one that was read last.
  TiffReader(Source& source, TIFF* tiff);

  const char* formatName() const override { return "TIFF"; }
  std::optional<std::uint64_t> pagesAhead() const override;
  void readLines(std::uint8_t* lines, std::uint32_t count) override;

 private:
  void checkCompression() const;
  void rejectUnsupported() const;
  void setLevels();
  void readPlane(std::uint16_t plane, std::uint8_t* stored);
  void readPlain(std::uint16_t plane, std::uint8_t* stored);
  void expand(std::uint8_t* line) const;
  template <class... Parts>
  [[noreturn]] void reject(const Parts&... parts) const {
    source_.in.fail(ExitCode::unsupported, 0, parts...);
  }

  Source& source_;
  std::uint16_t compression_;
  std::uint16_t bits_;
  std::uint16_t samples_;
  std::uint16_t photometric_ = 0;
  bool planar_;
  TIFF* planes_[3];  // what decodes each plane; the first alone where samples are interleaved
  Tiff others_[2];   // a decoder each for the other planes, or every line would begin anew
  std::size_t storedBytes_ = 0;  // of a line, in one plane
  std::vector<std::uint8_t> stored_;
  bool expands_ = false;
  std::array<std::array<std::uint8_t, 3>, 256> levels_ = {};  // what stored samples stand for
  std::uint32_t done_ = 0;
};

TiffReader::TiffReader(Source& source, TIFF* tiff)
    : source_(source),
      compression_(field<std::uint16_t>(tiff, TIFFTAG_COMPRESSION)),
      bits_(field<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE)),
      samples_(field<std::uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL)),
      planar_(samples_ == 3 &&
              field<std::uint16_t>(tiff, TIFFTAG_PLANARCONFIG) == PLANARCONFIG_SEPARATE),
      planes_{tiff, tiff, tiff} {
  checkCompression();
  source_.check(true, 0);
  if (TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric_) == 0) {
    source_.in.fail(ExitCode::damaged, 0, "damaged TIFF: no photometric interpretation");
  }
  rejectUnsupported();
  head_ =
      checkedHead(source_.in, field<std::uint32_t>(tiff, TIFFTAG_IMAGEWIDTH),
                  field<std::uint32_t>(tiff, TIFFTAG_IMAGELENGTH),
                  photometric_ != PHOTOMETRIC_MINISBLACK && photometric_ != PHOTOMETRIC_MINISWHITE);
  head_.resolution = resolutionOf(tiff);
  setLevels();
  storedBytes_ = (std::size_t{head_.width} * bits_ * (planar_ ? 1 : samples_) + 7) / 8;
  if (expands_ || planar_) stored_.resize(storedBytes_);

  if (photometric_ == PHOTOMETRIC_YCBCR) {
    TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  }
  source_.check(TIFFScanlineSize64(tiff) == storedBytes_, 0);
  if (planar_ && compression_ != COMPRESSION_NONE) {
    for (std::size_t i = 0; i < 2; ++i) {
      others_[i] = source_.open();
      planes_[i + 1] = others_[i].get();
      source_.check(
          others_[i] && TIFFSetSubDirectory(planes_[i + 1], TIFFCurrentDirOffset(tiff)) != 0, 0);
    }
  }
}

// Comes first because libtiff also takes a codec that it lacks for a fault of the directory.
void TiffReader::checkCompression() const {
  if (TIFFIsCODECConfigured(compression_) == 0 || compression_ == COMPRESSION_OJPEG) {
    reject("TIFF compression ", compression_, " is not supported; save it with LZW or without");
  }
}

void TiffReader::rejectUnsupported() const {
  TIFF* const tiff = planes_[0];
  constexpr const char* orientations[] = {"top-right", "bottom-right", "bottom-left", "left-top",
                                          "right-top", "right-bottom", "left-bottom"};
  const auto kind = field<std::uint32_t>(tiff, TIFFTAG_SUBFILETYPE);
  const auto format = field<std::uint16_t>(tiff, TIFFTAG_SAMPLEFORMAT);
  const auto orientation = field<std::uint16_t>(tiff, TIFFTAG_ORIENTATION);
  if ((kind & FILETYPE_REDUCEDIMAGE) != 0) {
    reject("a thumbnail among TIFF pages is not supported; remove it from the file");
  }
  if ((kind & FILETYPE_MASK) != 0 || photometric_ == PHOTOMETRIC_MASK) {
    reject("a mask among TIFF pages is not supported; remove it from the file");
  }
  if (TIFFIsTiled(tiff) != 0) reject("tiled TIFF is not supported; save it in strips");
  if (orientation != ORIENTATION_TOPLEFT) {
    reject("TIFF that begins at the ", orientations[orientation - ORIENTATION_TOPRIGHT],
           " is not supported; turn it to begin at the top-left");
  }
  if (format != SAMPLEFORMAT_UINT && format != SAMPLEFORMAT_VOID) {
    reject(format == SAMPLEFORMAT_INT ? "signed" : "floating-point",
           " TIFF is not supported; convert it to 8 unsigned bits a sample");
  }

  std::uint16_t wanted = 1;
  switch (photometric_) {
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_PALETTE:
      break;
    case PHOTOMETRIC_YCBCR:
      if (compression_ != COMPRESSION_JPEG || planar_) {
        reject("YCbCr TIFF other than interleaved JPEG is not supported; convert it to RGB");
      }
      [[fallthrough]];
    case PHOTOMETRIC_RGB:
      wanted = 3;
      break;
    case PHOTOMETRIC_SEPARATED:
      reject("CMYK TIFF is not supported; convert it to RGB");
    case PHOTOMETRIC_CIELAB:
    case PHOTOMETRIC_ICCLAB:
    case PHOTOMETRIC_ITULAB:
      reject("Lab TIFF is not supported; convert it to RGB");
    default:
      reject("photometric interpretation ", photometric_,
             " of TIFF is not supported; convert it to gray or RGB");
  }
  const bool packs = wanted == 1 && (bits_ == 1 || bits_ == 2 || bits_ == 4);
  if (bits_ != 8 && !packs) {
    reject(bits_, "-bit TIFF is not supported; convert it to 8 bits a sample");
  }
  if (samples_ > wanted) {
    reject("TIFF with alpha or other extra samples is not supported; flatten it");
  }
  if (samples_ < wanted) {
    source_.in.fail(ExitCode::damaged, 0, "damaged TIFF: RGB of ", samples_, " samples a pixel");
  }
}

// Samples other than RGB and 8-bit gray from black to white are expanded by the levels.
void TiffReader::setLevels() {
  const std::size_t count = std::size_t{1} << bits_;
  if (photometric_ == PHOTOMETRIC_PALETTE) {
    std::uint16_t* maps[3] = {};
    if (TIFFGetField(planes_[0], TIFFTAG_COLORMAP, &maps[0], &maps[1], &maps[2]) == 0) {
      source_.in.fail(ExitCode::damaged, 0, "damaged TIFF: no color map");
    }
    // Some writers have put 8-bit values where 16 are due.
    const bool narrow = std::ranges::all_of(maps, [count](const std::uint16_t* map) {
      return std::all_of(map, map + count, [](std::uint16_t value) { return value < 256; });
    });
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t c = 0; c < 3; ++c) {
        levels_[i][c] = static_cast<std::uint8_t>(narrow ? maps[c][i] : maps[c][i] >> 8);
      }
    }
  } else {
    const bool inverted = photometric_ == PHOTOMETRIC_MINISWHITE;
    for (std::size_t i = 0; i < count; ++i) {
      levels_[i][0] = static_cast<std::uint8_t>((inverted ? count - 1 - i : i) * 255 / (count - 1));
    }
  }
  expands_ = samples_ == 1 && (bits_ != 8 || photometric_ != PHOTOMETRIC_MINISBLACK);
}

void TiffReader::readLines(std::uint8_t* lines, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i, ++done_, lines += head_.lineBytes()) {
    if (planar_) {
      for (std::uint16_t plane = 0; plane < 3; ++plane) {
        readPlane(plane, stored_.data());
        for (std::size_t x = 0; x < head_.width; ++x) lines[3 * x + plane] = stored_[x];
      }
    } else {
      readPlane(0, expands_ ? stored_.data() : lines);
      if (expands_) expand(lines);
    }
  }
}

std::optional<std::uint64_t> TiffReader::pagesAhead() const {
  // Apart from the reading of pages, so that what is wrong with one shows when it is read.
  Source again = {source_.in};
  const Tiff tiff = again.open();
  const std::uint64_t before = source_.in.page() - 1;
  return std::max<std::uint64_t>(tiff ? TIFFNumberOfDirectories(tiff.get()) : 0, before) - before;
}

void TiffReader::readPlane(std::uint16_t plane, std::uint8_t* stored) {
  if (compression_ == COMPRESSION_NONE) return readPlain(plane, stored);
  const std::uint64_t line = std::uint64_t{done_} + 1;
  const PageInput& in = source_.in;
  const std::uint64_t packed = std::min(
      in.size(), TIFFGetStrileByteCount(planes_[0], TIFFComputeStrip(planes_[0], done_, plane)));
  if (packed > in.memory().forLines() / (planar_ ? 3 : 1)) {
    in.failMemory(line, "a compressed strip, which is read as a whole,",
                  packed * (planar_ ? 3 : 1));
  }
  // Where data end early or are corrupt, several codecs make samples up and merely warn.
  source_.fault.strict = true;
  const int read = TIFFReadScanline(planes_[plane], stored, done_, plane);
  source_.fault.strict = false;
  source_.check(read == 1, line);
}

// Past libtiff, which would load the strip, and that may be all of the page.
void TiffReader::readPlain(std::uint16_t plane, std::uint8_t* stored) {
  TIFF* const tiff = planes_[0];
  PageInput& in = source_.in;
  const std::uint64_t line = std::uint64_t{done_} + 1;
  const std::uint32_t strip = TIFFComputeStrip(tiff, done_, plane);
  const std::uint64_t begin = TIFFGetStrileOffset(tiff, strip);
  const std::uint64_t skipped =
      std::uint64_t{done_ % field<std::uint32_t>(tiff, TIFFTAG_ROWSPERSTRIP)} * storedBytes_;
  if (begin == 0 || TIFFGetStrileByteCount(tiff, strip) < skipped + storedBytes_) {
    in.fail(ExitCode::damaged, line, "damaged TIFF: the strip is shorter than its lines");
  }
  const bool there =
      begin <= in.size() && (in.position() == begin + skipped || in.seek(begin + skipped));
  if (!there || in.read(stored, storedBytes_) != storedBytes_) {
    in.failShort(line, join(storedBytes_, " bytes of this line"));
  }
  if (field<std::uint16_t>(tiff, TIFFTAG_FILLORDER) == FILLORDER_LSB2MSB) {
    TIFFReverseBits(stored, static_cast<tmsize_t>(storedBytes_));
  }
}

void TiffReader::expand(std::uint8_t* line) const {
  const unsigned mask = (1U << bits_) - 1;
  for (std::size_t x = 0; x < head_.width; ++x) {
    const std::size_t bit = x * bits_;
    const unsigned sample = unsigned{stored_[bit / 8]} >> (8 - bits_ - bit % 8) & mask;
    if (head_.color) {
      line = std::copy_n(levels_[sample].data(), 3, line);
    } else {
      *line++ = levels_[sample][0];
    }
  }
}

class TiffStream final : public PageStream {
 public:
  explicit TiffStream(PageInput& in) : source_{in} { in.makeSeekable(); }

  std::unique_ptr<PageReader> next() override {
    if (tiff_ && TIFFLastDirectory(tiff_.get()) != 0) {
      checkEnd();
      return nullptr;
    }
    source_.in.startPage();
    const bool first = tiff_ == nullptr;
    if (first) tiff_ = source_.open();
    const bool read = first ? tiff_ != nullptr : TIFFReadDirectory(tiff_.get()) != 0;
    if (!read) source_.check(false, 0);
    return std::make_unique<TiffReader>(source_, tiff_.get());
  }

 private:
  // Zeros fill blocks up, and what is shorter than a header is no file of its own.
  void checkEnd() {
    constexpr std::uint64_t headerBytes = 8;
    PageInput& in = source_.in;
    const std::uint64_t end = tiffExtent(in).value_or(in.size());
    if (in.size() - end < headerBytes || !in.seek(end)) return;
    int byte = 0;
    while (byte == 0) byte = in.get();
    if (byte == EOF) return;
    in.fail(ExitCode::damaged, 0, "followed by ", in.size() - end,
            " bytes that nothing in the TIFF refers to; expected the end");
  }

  Source source_;
  Tiff tiff_;
};

struct Sink {
  Output& out;
  Fault fault = {};
  std::uint64_t end = 0;

  std::size_t read(void* data, std::size_t size) noexcept { return out.readBack(data, size); }
  bool write(const void* data, std::size_t size) noexcept {
    const bool written = out.tryWrite(data, size);
    fault.atBytes |= !written;
    end = std::max(end, out.position());
    return written;
  }
  bool seek(std::uint64_t offset) noexcept {
    const bool sought = out.seek(offset);
    fault.atBytes |= !sought;
    return sought;
  }
  std::uint64_t position() const noexcept { return out.position(); }
  std::uint64_t size() const noexcept { return end; }
};

constexpr std::uint64_t kMostBytes = UINT32_MAX;  // of a TIFF that is not big

class TiffWriter final : public PageWriter {
 public:
  TiffWriter(Output& out, bool big) : sink_{out}, big_(big) { out.makeSeekable(); }

  void expectPages(std::optional<std::uint64_t> pages) override { expected_ = pages; }
  void beginPage(const PageHead& head) override;
  void writeLines(const std::uint8_t* lines, std::uint32_t count) override;
  void finish() override {
    tiff_.reset();
    check(true);
  }

 private:
  void open(std::uint64_t pageBytes);
  void check(bool written) const;

  Sink sink_;
  bool big_;
  std::optional<std::uint64_t> expected_;
  Tiff tiff_;  // from the first page on
  PageHead head_ = {};
  std::uint32_t done_ = 0;
  std::uint64_t total_ = 0;  // bytes of the file, at most
};

void TiffWriter::open(std::uint64_t pageBytes) {
  big_ = big_ || !expected_ || *expected_ > kMostBytes / pageBytes;
  tiff_ = openWith(sink_, big_ ? "wl8" : "wl", 0);
  check(tiff_ != nullptr);
}

void TiffWriter::beginPage(const PageHead& head) {
  constexpr std::uint64_t stripBytes = 1 << 16;
  constexpr std::uint64_t directoryBytes = 512;
  constexpr std::uint64_t tableBytes = 8;  // for each line, if it were a strip
  head_ = head;
  done_ = 0;
  const auto stripLines =
      static_cast<std::uint32_t>(std::max<std::uint64_t>(stripBytes / head.lineBytes(), 1));
  const std::uint64_t pageBytes =
      head.height * (std::uint64_t{head.lineBytes()} + tableBytes) + directoryBytes;
  if (!tiff_) open(pageBytes);
  total_ += pageBytes;
  if (!big_ && total_ > kMostBytes) {
    sink_.out.fail(ExitCode::unsupported,
                   "TIFF holds 4 GiB at most and the pages are more; use --format bigtiff, or "
                   "choose fewer by --pages");
  }
  bool set = true;
  const auto setTag = [&](std::uint32_t tag, auto value) {
    set = TIFFSetField(tiff_.get(), tag, value) != 0 && set;
  };
  setTag(TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
  setTag(TIFFTAG_IMAGEWIDTH, head.width);
  setTag(TIFFTAG_IMAGELENGTH, head.height);
  setTag(TIFFTAG_BITSPERSAMPLE, 8);
  setTag(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  setTag(TIFFTAG_PHOTOMETRIC, head.color ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
  setTag(TIFFTAG_SAMPLESPERPIXEL, head.color ? 3 : 1);
  setTag(TIFFTAG_ROWSPERSTRIP, stripLines);
  setTag(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  if (head.resolution.isKnown()) {
    setTag(TIFFTAG_XRESOLUTION, head.resolution.x);
    setTag(TIFFTAG_YRESOLUTION, head.resolution.y);
    setTag(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  }
  check(set);
}

void TiffWriter::writeLines(const std::uint8_t* lines, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i, ++done_, lines += head_.lineBytes()) {
    // Bytes that are neither compressed nor swapped are not changed, whatever the parameter says.
    check(TIFFWriteScanline(tiff_.get(), const_cast<std::uint8_t*>(lines), done_, 0) == 1);
  }
  if (done_ == head_.height) check(TIFFWriteDirectory(tiff_.get()) != 0);
}

void TiffWriter::check(bool written) const {
  if (sink_.fault.atBytes) sink_.out.failWrite();
  if (written && sink_.fault.text[0] == '\0') return;
  sink_.out.fail(ExitCode::runTime, "the TIFF encoder failed: ", sink_.fault.text);
}

}  // namespace

std::unique_ptr<PageStream> openTiff(PageInput& in) { return std::make_unique<TiffStream>(in); }

std::unique_ptr<PageWriter> makeTiffWriter(Output& out) {
  return std::make_unique<TiffWriter>(out, false);
}

std::unique_ptr<PageWriter> makeBigTiffWriter(Output& out) {
  return std::make_unique<TiffWriter>(out, true);
}

}  // namespace rast::tool
