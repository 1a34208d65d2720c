// Pages on their way out, band by band: while one is drawn, a thread writes those before it.
#ifndef RAST_TOOL_BANDS_H
#define RAST_TOOL_BANDS_H

#include <cstdint>
#include <functional>

#include "formats/input.h"
#include "steps/planes.h"
#include "steps/step.h"

using WriteBand = std::function<void(const Planes& band, std::uint32_t lines)>;

// Draws a page in bands of so many lines, which are as many at once as memory has room for. Where
// that is one, or there is no other thread to be had, the caller's writes. What is drawn before
// something fails is written all the same, and of two failures the first in the page is thrown.
void drawInBands(const Input& in, PageSource& page, Layout layout, std::uint32_t lines,
                 const WriteBand& write,
                 const std::function<void(std::uint32_t lines)>& onDrawn = {});

#endif
