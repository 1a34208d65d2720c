#include "commands/info.h"

#include "commands/pageList.h"
#include "files/output.h"
#include "formats/format.h"
#include "progress/meter.h"
#include "text/json.h"

namespace rast::tool {

namespace {

// Empty where it is unknown.
std::string resolutionText(const Resolution& resolution) {
  if (!resolution.isKnown()) return "";
  const bool isSquare = resolution.x == resolution.y;
  return join(", ", resolution.x, isSquare ? "" : join(" x ", resolution.y), " dpi");
}

std::string describe(std::uint64_t number, const PageReader& page) {
  const PageHead& head = page.head();
  return join("page ", number, ": ", page.formatName(), ", ", head.width, " x ", head.height, ", ",
              head.kind(), resolutionText(head.resolution), '\n');
}

std::string describeJson(std::uint64_t number, const PageReader& page) {
  const PageHead& head = page.head();
  JsonObject object;
  object.add("page", number)
      .add("format", page.formatName())
      .add("width", head.width)
      .add("height", head.height)
      .add("kind", head.kind());
  if (head.resolution.isKnown()) {
    object.addRaw("resolution", join('[', head.resolution.x, ", ", head.resolution.y, ']'));
  }
  return object.text();
}

}  // namespace

// Describes a page only after reading it to its end without an error.
ExitCode info(const Job& job) {
  PageInput in(job.inPath, job.memory);
  Output out("-");
  std::uint64_t count = 0;
  Meter meter(besideReport(job.progress), in, job.pages.count());
  everyPage(in, *openPages(in), job.pages, [&](PageReader& page) {
    meter.beginPage(page.head().height);
    meter.beginOutput(0);
    readPast(in, page, [&meter](auto lines, auto bytes) { meter.linesRead(lines, bytes); });
    meter.endPage(page.copies());
    if (job.json) out.write(count == 0 ? "[\n" : ",\n");
    out.write(job.json ? describeJson(in.page(), page) : describe(in.page(), page));
    ++count;
  });
  out.write(job.json ? "\n]\n" : join(count, count == 1 ? " page\n" : " pages\n"));
  out.commit();
  meter.end();
  return ExitCode::done;
}

}  // namespace rast::tool
