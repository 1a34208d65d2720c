#include "formats/pngPage.h"

#include <png.h>

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "formats/sharedLibrary.h"

namespace rast::tool {

namespace {

constexpr SharedLibrary libpng(RAST_PNG_SONAME, "PNG");
RAST_LIBRARY_FUNCTION(libpng, png_create_info_struct);
RAST_LIBRARY_FUNCTION(libpng, png_create_read_struct);
RAST_LIBRARY_FUNCTION(libpng, png_create_write_struct);
RAST_LIBRARY_FUNCTION(libpng, png_destroy_read_struct);
RAST_LIBRARY_FUNCTION(libpng, png_destroy_write_struct);
RAST_LIBRARY_FUNCTION(libpng, png_error);
RAST_LIBRARY_FUNCTION(libpng, png_get_bit_depth);
RAST_LIBRARY_FUNCTION(libpng, png_get_color_type);
RAST_LIBRARY_FUNCTION(libpng, png_get_error_ptr);
RAST_LIBRARY_FUNCTION(libpng, png_get_image_height);
RAST_LIBRARY_FUNCTION(libpng, png_get_image_width);
RAST_LIBRARY_FUNCTION(libpng, png_get_interlace_type);
RAST_LIBRARY_FUNCTION(libpng, png_get_io_ptr);
RAST_LIBRARY_FUNCTION(libpng, png_get_pHYs);
RAST_LIBRARY_FUNCTION(libpng, png_get_rowbytes);
RAST_LIBRARY_FUNCTION(libpng, png_get_valid);
RAST_LIBRARY_FUNCTION(libpng, png_longjmp);
RAST_LIBRARY_FUNCTION(libpng, png_read_end);
RAST_LIBRARY_FUNCTION(libpng, png_read_info);
RAST_LIBRARY_FUNCTION(libpng, png_read_row);
RAST_LIBRARY_FUNCTION(libpng, png_read_update_info);
RAST_LIBRARY_FUNCTION(libpng, png_set_IHDR);
RAST_LIBRARY_FUNCTION(libpng, png_set_chunk_cache_max);
RAST_LIBRARY_FUNCTION(libpng, png_set_chunk_malloc_max);
RAST_LIBRARY_FUNCTION(libpng, png_set_crc_action);
RAST_LIBRARY_FUNCTION(libpng, png_set_expand);
RAST_LIBRARY_FUNCTION(libpng, png_set_keep_unknown_chunks);
RAST_LIBRARY_FUNCTION(libpng, png_set_longjmp_fn);
RAST_LIBRARY_FUNCTION(libpng, png_set_pHYs);
RAST_LIBRARY_FUNCTION(libpng, png_set_read_fn);
RAST_LIBRARY_FUNCTION(libpng, png_set_user_limits);
RAST_LIBRARY_FUNCTION(libpng, png_set_write_fn);
RAST_LIBRARY_FUNCTION(libpng, png_write_end);
RAST_LIBRARY_FUNCTION(libpng, png_write_info);
RAST_LIBRARY_FUNCTION(libpng, png_write_row);

constexpr double kMetersToTheInch = 0.0254;

// A whole number where one would have been written so.
double perInch(png_uint_32 perMeter) {
  const double exact = perMeter * kMetersToTheInch;
  const auto whole = static_cast<double>(std::llround(exact));
  return std::llround(whole / kMetersToTheInch) == perMeter ? whole : exact;
}

// 0 where PNG has no such number.
png_uint_32 perMeter(double perInch) {
  const double exact = perInch / kMetersToTheInch;
  return exact < PNG_UINT_31_MAX ? static_cast<png_uint_32>(std::llround(exact)) : 0;
}

constexpr png_alloc_size_t kChunkCap = png_alloc_size_t{8} << 20;

// The error text that outlives the jump out of libpng.
struct Fault {
  char text[160] = "";
};

[[noreturn]] void onError(png_structp png, png_const_charp text) {
  auto& fault = *static_cast<Fault*>(png_get_error_ptr(png));
  std::snprintf(fault.text, sizeof fault.text, "%s", text);
  png_longjmp(png, 1);
  std::abort();  // not reached; the type of the loaded function does not show that
}

void onWarning(png_structp, png_const_charp) {}

void onRead(png_structp png, png_bytep data, std::size_t size) {
  if (static_cast<PageInput*>(png_get_io_ptr(png))->read(data, size) != size) png_error(png, "");
}

void onWrite(png_structp png, png_bytep data, std::size_t size) {
  if (!static_cast<Output*>(png_get_io_ptr(png))->tryWrite(data, size)) png_error(png, "");
}

void onFlush(png_structp) {}

// Every libpng call that can fail runs inside this frame. A failure jumps back to it past libpng,
// the callbacks above and the calls given here, none of which own anything to destroy.
template <class Calls>
bool guarded(png_structp png, const Calls& calls) {
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  calls();
  return true;
}

// The size limits are wide open because checkedHead judges sizes, with its own exit codes.
void setLimits(png_structp png) {
  png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
  png_set_chunk_cache_max(png, 64);
  png_set_chunk_malloc_max(png, kChunkCap);
}

class PngReader final : public PageReader {
 public:
  PngReader(PageInput& in, const Transparency& transparency)
      : in_(in),
        transparency_(transparency),
        png_(png_create_read_struct(PNG_LIBPNG_VER_STRING, &fault_, onError, onWarning)),
        info_(png_ != nullptr ? png_create_info_struct(png_) : nullptr) {
    if (info_ == nullptr) throw std::bad_alloc();
  }
  ~PngReader() override { png_destroy_read_struct(&png_, &info_, nullptr); }
  PngReader(const PngReader&) = delete;
  PngReader& operator=(const PngReader&) = delete;

  void readHead();
  const char* formatName() const override { return "PNG"; }
  std::optional<std::uint64_t> pagesAhead() const override { return 1; }
  void readLines(std::uint8_t* lines, std::uint32_t count) override;

 private:
  bool hasTransparency() const;
  void rejectUnsupported() const;
  void flatten(std::uint8_t* line) const;
  [[noreturn]] void failRead() const;

  PageInput& in_;
  Transparency transparency_;
  Fault fault_;
  png_structp png_;
  png_infop info_;
  std::uint32_t done_ = 0;
  std::unique_ptr<std::uint8_t[]> transparent_;  // one line with alpha; null where there is none
};

void PngReader::readHead() {
  const bool read = guarded(png_, [this] {
    png_set_read_fn(png_, &in_, onRead);
    png_set_crc_action(png_, PNG_CRC_ERROR_QUIT, PNG_CRC_ERROR_QUIT);
    // Ancillary chunks other than tRNS and pHYs are passed over without being interpreted.
    png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
    png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_AS_DEFAULT,
                                reinterpret_cast<png_const_bytep>("pHYs"), 1);
    setLimits(png_);
    png_read_info(png_, info_);
  });
  if (!read) failRead();
  rejectUnsupported();
  const bool color = (png_get_color_type(png_, info_) & PNG_COLOR_MASK_COLOR) != 0;
  head_ =
      checkedHead(in_, png_get_image_width(png_, info_), png_get_image_height(png_, info_), color);
  png_uint_32 x = 0;
  png_uint_32 y = 0;
  int unit = PNG_RESOLUTION_UNKNOWN;
  png_get_pHYs(png_, info_, &x, &y, &unit);
  if (unit == PNG_RESOLUTION_METER) head_.resolution = {perInch(x), perInch(y)};
  std::size_t lineBytes = head_.lineBytes();
  if (hasTransparency()) {
    lineBytes += head_.width;
    transparent_ = std::make_unique_for_overwrite<std::uint8_t[]>(lineBytes);
  }
  const bool prepared = guarded(png_, [this, lineBytes] {
    png_set_expand(png_);
    png_read_update_info(png_, info_);
    if (png_get_rowbytes(png_, info_) != lineBytes) png_error(png_, "unexpected row size");
  });
  if (!prepared) failRead();
}

void PngReader::rejectUnsupported() const {
  const auto reject = [this](const char* what, const char* hint) {
    in_.fail(ExitCode::unsupported, 0, what, " is not supported; ", hint);
  };
  if (png_get_interlace_type(png_, info_) != PNG_INTERLACE_NONE) {
    reject("interlaced PNG", "save it without interlacing");
  }
  if (png_get_bit_depth(png_, info_) == 16) reject("16-bit PNG", "reduce it to 8 bits a sample");
  if (hasTransparency() && !transparency_.background) {
    reject("PNG with transparency", transparency_.hint);
  }
}

bool PngReader::hasTransparency() const {
  return (png_get_color_type(png_, info_) & PNG_COLOR_MASK_ALPHA) != 0 ||
         png_get_valid(png_, info_, PNG_INFO_tRNS) != 0;
}

// Composites the line with alpha onto the background, rounded to nearest.
void PngReader::flatten(std::uint8_t* line) const {
  const std::uint8_t* from = transparent_.get();
  const unsigned background = *transparency_.background;
  const std::size_t components = head_.color ? 3 : 1;
  for (std::uint32_t x = 0; x < head_.width; ++x, ++from) {
    const unsigned alpha = from[components];
    for (std::size_t c = 0; c < components; ++c) {
      const unsigned sum = *from++ * alpha + background * (255 - alpha);
      *line++ = static_cast<std::uint8_t>((sum + 127) / 255);
    }
  }
}

void PngReader::readLines(std::uint8_t* lines, std::uint32_t count) {
  const bool read = guarded(png_, [&] {
    for (std::uint32_t i = 0; i < count; ++i, ++done_) {
      std::uint8_t* const line = lines + i * head_.lineBytes();
      png_read_row(png_, transparent_ ? transparent_.get() : line, nullptr);
      if (transparent_) flatten(line);
    }
    if (done_ == head_.height) png_read_end(png_, nullptr);
  });
  if (!read) failRead();
}

void PngReader::failRead() const {
  const std::uint64_t line = done_ < head_.height ? done_ + 1 : 0;
  if (fault_.text[0] == '\0') in_.failShort(line, "a PNG image up to its end chunk");
  in_.fail(ExitCode::damaged, line, "damaged PNG: ", fault_.text);
}

class PngWriter final : public PageWriter {
 public:
  explicit PngWriter(Output& out)
      : out_(out),
        png_(png_create_write_struct(PNG_LIBPNG_VER_STRING, &fault_, onError, onWarning)),
        info_(png_ != nullptr ? png_create_info_struct(png_) : nullptr) {
    if (info_ == nullptr) throw std::bad_alloc();
  }
  ~PngWriter() override { png_destroy_write_struct(&png_, &info_); }
  PngWriter(const PngWriter&) = delete;
  PngWriter& operator=(const PngWriter&) = delete;

  void beginPage(const PageHead& head) override;
  void writeLines(const std::uint8_t* lines, std::uint32_t count) override;

 private:
  void check(bool written) const;

  Output& out_;
  Fault fault_;
  png_structp png_;
  png_infop info_;
  PageHead head_ = {};
  std::uint32_t done_ = 0;
};

void PngWriter::beginPage(const PageHead& head) {
  if (head_.height != 0) {
    out_.fail(ExitCode::unsupported,
              "PNG holds one page and there are more; use --format pnm, or choose one by --pages");
  }
  head_ = head;
  check(guarded(png_, [this] {
    png_set_write_fn(png_, &out_, onWrite, onFlush);
    setLimits(png_);
    png_set_IHDR(png_, info_, head_.width, head_.height, 8,
                 head_.color ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    const png_uint_32 x = perMeter(head_.resolution.x);
    const png_uint_32 y = perMeter(head_.resolution.y);
    if (x != 0 && y != 0) png_set_pHYs(png_, info_, x, y, PNG_RESOLUTION_METER);
    png_write_info(png_, info_);
  }));
}

void PngWriter::writeLines(const std::uint8_t* lines, std::uint32_t count) {
  check(guarded(png_, [&] {
    for (std::uint32_t i = 0; i < count; ++i, ++done_) {
      png_write_row(png_, lines + i * head_.lineBytes());
    }
    if (done_ == head_.height) png_write_end(png_, info_);
  }));
}

void PngWriter::check(bool written) const {
  if (written) return;
  if (fault_.text[0] == '\0') out_.failWrite();
  out_.fail(ExitCode::runTime, "the PNG encoder failed: ", fault_.text);
}

}  // namespace

std::unique_ptr<PageReader> makePngReader(PageInput& in, const Transparency& transparency) {
  auto reader = std::make_unique<PngReader>(in, transparency);
  reader->readHead();
  return reader;
}

std::unique_ptr<PageWriter> makePngWriter(Output& out) { return std::make_unique<PngWriter>(out); }

}  // namespace rast::tool
