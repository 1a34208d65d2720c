#include "pnm_page.h"

#include <algorithm>

namespace {

// One header byte; a comment reads as the end of line that closes it.
int headerByte(Input& in) {
  int byte = in.get();
  if (byte == '#') {
    while (byte != '\n' && byte != '\r' && byte != EOF) byte = in.get();
  }
  if (byte == EOF) in.failShort(0, "a header of type, width, height and maximum value");
  return byte;
}

// A number and the one white-space byte (or comment) that ends it.
std::uint64_t headerNumber(Input& in, const char* what) {
  const auto isDigit = [](int byte) { return byte >= '0' && byte <= '9'; };
  constexpr std::uint64_t absurd = std::uint64_t{1} << 40;
  int byte = headerByte(in);
  while (isPnmSpace(byte)) byte = headerByte(in);
  const bool startsWell = isDigit(byte);
  std::uint64_t value = 0;
  for (; isDigit(byte); byte = headerByte(in)) {
    value = std::min(value * 10 + static_cast<std::uint64_t>(byte - '0'), absurd);
  }
  if (!startsWell || !isPnmSpace(byte)) {
    in.fail(ExitCode::damaged, 0, "the ", what, " in the header is not a decimal number");
  }
  return value;
}

bool readMagic(Input& in) {
  in.get();
  const int kind = in.get();
  switch (kind) {
    case '5':
    case '6':
      break;
    case '1':
    case '2':
    case '3':
      in.fail(ExitCode::unsupported, 0, "ASCII PNM (P", kind - '0',
              ") is not supported; convert it to binary PGM or PPM (P5, P6)");
    case '4':
      in.fail(ExitCode::unsupported, 0,
              "bilevel PBM (P4) is not supported; convert it to binary PGM (P5)");
    case '7':
      in.fail(ExitCode::unsupported, 0,
              "PAM (P7) is not supported; convert it to binary PGM or PPM (P5, P6)");
    case EOF:
      in.failShort(0, "P5 or P6");
    default:
      in.fail(in.page() == 1 ? ExitCode::unsupported : ExitCode::damaged, 0,
              "unknown image type; expected binary PGM or PPM (P5, P6) or PNG");
  }
  if (!isPnmSpace(headerByte(in))) {
    in.fail(ExitCode::damaged, 0, "no white space after P", kind - '0', " in the header");
  }
  return kind == '6';
}

PageHead readHead(Input& in) {
  const bool colour = readMagic(in);
  const std::uint64_t width = headerNumber(in, "width");
  const std::uint64_t height = headerNumber(in, "height");
  const std::uint64_t maximum = headerNumber(in, "maximum value");
  if (maximum < 1 || maximum > 65535) {
    in.fail(ExitCode::damaged, 0, "the maximum value is out of range; expected 255");
  }
  if (maximum != 255) {
    in.fail(ExitCode::unsupported, 0, "a maximum value of ", maximum,
            " is not supported; rescale the samples to 255");
  }
  return checkedHead(in, width, height, colour);
}

class PnmReader final : public PageReader {
 public:
  explicit PnmReader(Input& in) : in_(in), head_(readHead(in)) {}

  const PageHead& head() const override { return head_; }
  const char* formatName() const override { return head_.colour ? "PPM" : "PGM"; }

  void readLines(std::uint8_t* lines, std::uint32_t count) override {
    const std::size_t lineBytes = head_.lineBytes();
    const std::size_t got = in_.read(lines, count * lineBytes);
    if (got != count * lineBytes) {
      in_.failShort(done_ + got / lineBytes + 1,
                    join(head_.height, " lines of ", lineBytes, " bytes, found ", got % lineBytes,
                         " bytes of this one"));
    }
    done_ += count;
  }

 private:
  Input& in_;
  PageHead head_;
  std::uint64_t done_ = 0;
};

class PnmWriter final : public PageWriter {
 public:
  explicit PnmWriter(Output& out) : out_(out) {}

  void beginPage(const PageHead& head) override {
    lineBytes_ = head.lineBytes();
    const std::string text =
        join(head.colour ? "P6\n" : "P5\n", head.width, ' ', head.height, "\n255\n");
    out_.write(text);
  }

  void writeLines(const std::uint8_t* lines, std::uint32_t count) override {
    out_.write(lines, count * lineBytes_);
  }

 private:
  Output& out_;
  std::size_t lineBytes_ = 0;
};

}  // namespace

std::unique_ptr<PageReader> makePnmReader(Input& in) { return std::make_unique<PnmReader>(in); }

std::unique_ptr<PageWriter> makePnmWriter(Output& out) { return std::make_unique<PnmWriter>(out); }
