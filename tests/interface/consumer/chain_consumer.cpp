// The chain library as a C++ program uses it.
#include <rast_chain.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Closes {
  void operator()(RastChain* chain) const { rastChainClose(chain); }
};

int append(void* samples, const RastChainLines* lines) {
  const std::uint8_t* const first = lines->pPlane[0];
  auto* const all = static_cast<std::vector<std::uint8_t>*>(samples);
  all->insert(all->end(), first, first + lines->nPitch * lines->nCount);
  return 0;
}

}  // namespace

int main() {
  std::vector<std::uint8_t> made;
  RastChainSettings settings{};
  settings.nSize = sizeof settings;
  settings.pUser = &made;
  settings.pWriteLines = append;
  RastChain* opened = nullptr;
  RastChainError error{};
  if (rastChainOpen("gray : zom 50", &settings, &opened, &error) != RAST_CHAIN_ERR_TEXT ||
      std::string(error.sSuggestion) != "zoom") {
    return 1;
  }
  if (rastChainOpen("gray : zoom percent=50", &settings, &opened, &error) != RAST_CHAIN_OK) {
    return 1;
  }
  const std::unique_ptr<RastChain, Closes> chain(opened);
  RastChainPage page{};
  page.nWidth = page.nHeight = 8;
  page.nComponents = 3;
  if (rastChainBegin(chain.get(), &page, &page, &error) != RAST_CHAIN_OK) return 1;
  std::vector<std::uint8_t> samples(8 * 8 * 3, 90);
  RastChainLines lines{};
  lines.pPlane[0] = samples.data();
  lines.nPitch = 8 * 3;
  lines.nCount = 8;
  if (rastChainWrite(chain.get(), &lines, &error) != RAST_CHAIN_DONE) return 1;
  return page.nWidth == 4 && made == std::vector<std::uint8_t>(4 * 4, 90) ? 0 : 1;
}
