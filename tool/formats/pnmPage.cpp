#include "formats/pnmPage.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <vector>

namespace rast::tool {

namespace {

constexpr char kWantedPnm[] = "binary PBM, PGM, PPM or PAM (P4 to P7)";

// How the samples of an image are stored.
enum class Storage { bits, bytes, zeroOrOne };

struct ImageHead {
  const char* format;
  PageHead page;
  Storage storage;

  std::size_t storedLineBytes() const {
    return storage == Storage::bits ? (std::size_t{page.width} + 7) / 8 : page.lineBytes();
  }
};

int headerByteAsIs(PageInput& in) {
  const int byte = in.get();
  if (byte == EOF) in.failShort(0, "the rest of the header");
  return byte;
}

// One header byte; a comment reads as the end of line that closes it.
int headerByte(PageInput& in) {
  int byte = headerByteAsIs(in);
  if (byte == '#') {
    while (byte != '\n' && byte != '\r') byte = headerByteAsIs(in);
  }
  return byte;
}

constexpr bool isDigit(int byte) { return byte >= '0' && byte <= '9'; }

// More than any size, and far from an overflow.
std::uint64_t withDigit(std::uint64_t value, int digit) {
  constexpr std::uint64_t absurd = std::uint64_t{1} << 40;
  return std::min(value * 10 + static_cast<std::uint64_t>(digit - '0'), absurd);
}

[[noreturn]] void failNumber(const PageInput& in, const std::string& what) {
  in.fail(ExitCode::damaged, 0, "the ", what, " in the header is not a decimal number");
}

// A number and the one white-space byte (or comment) that ends it.
std::uint64_t headerNumber(PageInput& in, const char* what) {
  int byte = headerByte(in);
  while (isPnmSpace(byte)) byte = headerByte(in);
  const bool startsWell = isDigit(byte);
  std::uint64_t value = 0;
  for (; isDigit(byte); byte = headerByte(in)) value = withDigit(value, byte);
  if (!startsWell || !isPnmSpace(byte)) failNumber(in, what);
  return value;
}

void checkMaximum(const PageInput& in, std::uint64_t maximum) {
  if (maximum < 1 || maximum > 65535) {
    in.fail(ExitCode::damaged, 0, "the maximum value is out of range; expected 255");
  }
  if (maximum != 255) {
    in.fail(ExitCode::unsupported, 0, "a maximum value of ", maximum,
            " is not supported; rescale the samples to 255");
  }
}

ImageHead readPnmHead(PageInput& in, int kind) {
  if (!isPnmSpace(headerByte(in))) {
    in.fail(ExitCode::damaged, 0, "no white space after P", kind - '0', " in the header");
  }
  const std::uint64_t width = headerNumber(in, "width");
  const std::uint64_t height = headerNumber(in, "height");
  if (kind == '4') return {"PBM", checkedHead(in, width, height, false), Storage::bits};
  checkMaximum(in, headerNumber(in, "maximum value"));
  const bool color = kind == '6';
  return {color ? "PPM" : "PGM", checkedHead(in, width, height, color), Storage::bytes};
}

// A line of a PAM header without the white space around it.
std::string pamLine(PageInput& in) {
  constexpr std::size_t longest = 255;
  std::string line;
  for (int byte = headerByteAsIs(in); byte != '\n'; byte = headerByteAsIs(in)) {
    if (line.size() == longest) in.fail(ExitCode::damaged, 0, "a line of the header is too long");
    if (!line.empty() || !isPnmSpace(byte)) line += static_cast<char>(byte);
  }
  while (!line.empty() && isPnmSpace(line.back())) line.pop_back();
  return line;
}

struct PamField {
  const char* name;
  std::uint64_t value = 0;
  bool given = false;
};

void setPamField(const PageInput& in, PamField& field, const std::string& text) {
  if (field.given) in.fail(ExitCode::damaged, 0, "the header gives ", field.name, " twice");
  field.given = true;
  for (const char c : text) {
    if (!isDigit(c)) failNumber(in, field.name);
    field.value = withDigit(field.value, c);
  }
  if (text.empty()) failNumber(in, field.name);
}

ImageHead readPamHead(PageInput& in) {
  if (in.get() != '\n') in.fail(ExitCode::damaged, 0, "no end of line after P7 in the header");
  PamField fields[] = {{"WIDTH"}, {"HEIGHT"}, {"DEPTH"}, {"MAXVAL"}};
  std::string type;
  for (std::string line = pamLine(in); line != "ENDHDR"; line = pamLine(in)) {
    if (line.empty() || line[0] == '#') continue;
    const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
    const std::string name = line.substr(0, end);
    const std::string value =
        line.substr(std::min(line.find_first_not_of(" \t", end), line.size()));
    const auto field = std::ranges::find(fields, name, &PamField::name);
    if (field != std::end(fields)) {
      setPamField(in, *field, value);
    } else if (name == "TUPLTYPE") {
      type += (type.empty() ? "" : " ") + value;
    } else {
      in.fail(ExitCode::damaged, 0,
              "the header has an unknown line; expected WIDTH, HEIGHT, "
              "DEPTH, MAXVAL, TUPLTYPE or ENDHDR");
    }
  }
  for (const PamField& field : fields) {
    if (!field.given) in.fail(ExitCode::damaged, 0, "the header has no ", field.name);
  }
  const auto& [width, height, depth, maximum] = fields;
  if (depth.value != 1 && depth.value != 3) {
    in.fail(ExitCode::unsupported, 0, "PAM of depth ", depth.value,
            " is not supported; convert it to gray or RGB without transparency");
  }
  const bool color = depth.value == 3;
  if (!type.empty() && type != (color ? "RGB" : "GRAYSCALE") &&
      (color || type != "BLACKANDWHITE")) {
    in.fail(ExitCode::unsupported, 0, "this tuple type of PAM is not supported; convert it to ",
            color ? "RGB" : "GRAYSCALE or BLACKANDWHITE");
  }
  const bool zeroOrOne = type == "BLACKANDWHITE" && maximum.value == 1;
  if (!zeroOrOne) checkMaximum(in, maximum.value);
  return {"PAM", checkedHead(in, width.value, height.value, color),
          zeroOrOne ? Storage::zeroOrOne : Storage::bytes};
}

ImageHead readHead(PageInput& in) {
  in.get();
  const int kind = in.get();
  switch (kind) {
    case '4':
    case '5':
    case '6':
      return readPnmHead(in, kind);
    case '7':
      return readPamHead(in);
    case '1':
    case '2':
    case '3':
      in.fail(ExitCode::unsupported, 0, "ASCII PNM (P", kind - '0',
              ") is not supported; convert it to ", kWantedPnm);
    case EOF:
      in.failShort(0, kWantedPnm);
    default:
      in.fail(in.page() == 1 ? ExitCode::unsupported : ExitCode::damaged, 0,
              "unknown image type; expected ", kWantedPnm, " or PNG");
  }
}

class PnmReader final : public PageReader {
 public:
  explicit PnmReader(PageInput& in)
      : in_(in),
        start_(in.position()),
        image_(readHead(in)),
        headerBytes_(in.position() - start_),
        packed_(image_.storage == Storage::bits ? image_.storedLineBytes() : 0) {
    head_ = image_.page;
  }

  const char* formatName() const override { return image_.format; }
  std::optional<std::uint64_t> pagesAhead() const override {
    return in_.partsAhead(headerBytes_ + image_.storedLineBytes() * std::uint64_t{head_.height});
  }

  void readLines(std::uint8_t* lines, std::uint32_t count) override {
    if (image_.storage == Storage::bits) {
      for (std::uint32_t i = 0; i < count; ++i, lines += head_.width) {
        readStored(packed_.data(), 1);
        unpack(lines);
      }
      return;
    }
    const std::uint64_t line = done_ + 1;
    readStored(lines, count);
    if (image_.storage == Storage::zeroOrOne) scale(lines, count * image_.storedLineBytes(), line);
  }

 private:
  void readStored(std::uint8_t* lines, std::uint32_t count) {
    const std::size_t lineBytes = image_.storedLineBytes();
    const std::size_t got = in_.read(lines, count * lineBytes);
    if (got != count * lineBytes) {
      in_.failShort(done_ + got / lineBytes + 1,
                    join(head_.height, head_.height == 1 ? " line of " : " lines of ", lineBytes,
                         " bytes, found ", got % lineBytes, " bytes of this one"));
    }
    done_ += count;
  }

  // A bit that is set is black.
  void unpack(std::uint8_t* line) const {
    for (std::uint32_t x = 0; x < head_.width; ++x) {
      line[x] = (packed_[x / 8] << x % 8 & 0x80) != 0 ? 0 : 255;
    }
  }

  void scale(std::uint8_t* samples, std::size_t size, std::uint64_t line) const {
    for (std::size_t i = 0; i < size; ++i) {
      if (samples[i] > 1) {
        in_.fail(ExitCode::damaged, line + i / image_.storedLineBytes(),
                 "a sample is above the maximum value, 1");
      }
      samples[i] = static_cast<std::uint8_t>(samples[i] * 255);
    }
  }

  PageInput& in_;
  std::uint64_t start_;
  ImageHead image_;
  std::uint64_t headerBytes_;
  std::vector<std::uint8_t> packed_;  // one line of bits
  std::uint64_t done_ = 0;
};

class PnmWriter : public PageWriter {
 public:
  explicit PnmWriter(Output& out) : out_(out) {}

  void beginPage(const PageHead& head) override {
    lineBytes_ = head.lineBytes();
    out_.write(headText(head));
  }

  void writeLines(const std::uint8_t* lines, std::uint32_t count) override {
    out_.write(lines, count * lineBytes_);
  }

 private:
  virtual std::string headText(const PageHead& head) const {
    return join(head.color ? "P6\n" : "P5\n", head.width, ' ', head.height, "\n255\n");
  }

  Output& out_;
  std::size_t lineBytes_ = 0;
};

class PamWriter final : public PnmWriter {
 public:
  using PnmWriter::PnmWriter;

 private:
  std::string headText(const PageHead& head) const override {
    return join("P7\nWIDTH ", head.width, "\nHEIGHT ", head.height, "\nDEPTH ", head.color ? 3 : 1,
                "\nMAXVAL 255\nTUPLTYPE ", head.color ? "RGB" : "GRAYSCALE", "\nENDHDR\n");
  }
};

class PbmWriter final : public PageWriter {
 public:
  explicit PbmWriter(Output& out) : out_(out) {}

  void beginPage(const PageHead& head) override {
    ++page_;
    if (head.color) {
      out_.fail(ExitCode::unsupported, "page ", page_,
                ": PBM holds black and white only and the page is color");
    }
    width_ = head.width;
    line_ = 0;
    packed_.assign((std::size_t{head.width} + 7) / 8, 0);
    out_.write(join("P4\n", head.width, ' ', head.height, '\n'));
  }

  void writeLines(const std::uint8_t* lines, std::uint32_t count) override {
    for (std::uint32_t i = 0; i < count; ++i, lines += width_) {
      ++line_;
      pack(lines);
      out_.write(packed_.data(), packed_.size());
    }
  }

 private:
  void pack(const std::uint8_t* line) {
    std::ranges::fill(packed_, std::uint8_t{0});
    for (std::uint32_t x = 0; x < width_; ++x) {
      if (line[x] != 0 && line[x] != 255) {
        out_.fail(ExitCode::unsupported, "page ", page_, ", line ", line_, ": a sample is ",
                  int{line[x]}, "; PBM holds black and white only, 0 and 255");
      }
      if (line[x] == 0) packed_[x / 8] |= static_cast<std::uint8_t>(0x80 >> x % 8);
    }
  }

  Output& out_;
  std::uint32_t width_ = 0;
  std::uint64_t page_ = 0;
  std::uint64_t line_ = 0;
  std::vector<std::uint8_t> packed_;
};

}  // namespace

std::unique_ptr<PageReader> makePnmReader(PageInput& in) { return std::make_unique<PnmReader>(in); }

std::unique_ptr<PageWriter> makePnmWriter(Output& out) { return std::make_unique<PnmWriter>(out); }

std::unique_ptr<PageWriter> makePbmWriter(Output& out) { return std::make_unique<PbmWriter>(out); }

std::unique_ptr<PageWriter> makePamWriter(Output& out) { return std::make_unique<PamWriter>(out); }

}  // namespace rast::tool
