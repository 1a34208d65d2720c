// Hue adjustment by a color matrix, directly or through the caller's buffer of products.
#include <stdio.h>

#include "frame/frame.h"
#include "frame/operations.h"
#include "frame/overlap.h"

namespace rast {

namespace {

constexpr int16_t kReversed = 1;

/// A 32-bit sum of products that wraps.
class WrappingSum {
 public:
  void addProduct(int32_t a, int32_t b) {
    sum_ += static_cast<uint32_t>(a) * static_cast<uint32_t>(b);
  }
  void add(int32_t a) { sum_ += static_cast<uint32_t>(a); }
  int32_t value() const { return static_cast<int32_t>(sum_); }

 private:
  uint32_t sum_ = 0;
};

uint8_t finish(int32_t sum, int32_t offset, bool reverse) {
  const uint8_t v = clampToSample(wrappingAdd(sum / 256, offset));
  return reverse ? static_cast<uint8_t>(255 - v) : v;
}

uint8_t monoSample(const RastHueParam& param, uint8_t c) {
  WrappingSum sum;
  sum.addProduct(c + param.nMatrix[0][3], param.nMatrix[0][0]);
  return finish(sum.value(), param.nMatrix[0][4], param.nReverse == kReversed);
}

uint8_t monoSample(const RastHueLut& lut, uint8_t c) {
  return finish(lut.row[0].nProd[0][c], lut.row[0].nOutOffset, lut.nReverse == kReversed);
}

uint8_t colorSample(const RastHueParam& param, size_t k, const uint8_t (&c)[3]) {
  WrappingSum sum;
  for (size_t j = 0; j < 3; ++j) sum.addProduct(c[j] + param.nMatrix[j][3], param.nMatrix[k][j]);
  return finish(sum.value(), param.nMatrix[k][4], param.nReverse == kReversed);
}

uint8_t colorSample(const RastHueLut& lut, size_t k, const uint8_t (&c)[3]) {
  WrappingSum sum;
  for (size_t j = 0; j < 3; ++j) sum.add(lut.row[k].nProd[j][c[j]]);
  return finish(sum.value(), lut.row[k].nOutOffset, lut.nReverse == kReversed);
}

void build(const RastHueParam& param, RastHueLut& lut) {
  for (size_t k = 0; k < 3; ++k) {
    for (size_t j = 0; j < 3; ++j) {
      for (int32_t i = 0; i < 256; ++i) {
        lut.row[k].nProd[j][i] = (i + param.nMatrix[j][3]) * param.nMatrix[k][j];
      }
    }
    lut.row[k].nOutOffset = param.nMatrix[k][4];
  }
  lut.nBuilt = 1;
}

namespace definition {

/// `Source` is a RastHueParam or a RastHueLut. Three samples are read, then three written, position
/// by position from the left; mirrored, the writes go from the right.
template <class Source>
void color(const RastArea& area, const ColorPlanes& planes, const Source& source, bool mirror) {
  eachLine(area, [&](ptrdiff_t line) {
    for (ptrdiff_t j = 0; j < area.nWidth; ++j) {
      const ptrdiff_t x = line + j;
      const ptrdiff_t to = mirror ? line + area.nWidth - 1 - j : x;
      const uint8_t c[3] = {planes.in[0][x], planes.in[1][x], planes.in[2][x]};
      for (size_t k = 0; k < 3; ++k) planes.out[k][to] = colorSample(source, k, c);
    }
  });
}

template <class Source>
void mono(const RastArea& area, const uint8_t* in, uint8_t* out, const Source& source,
          bool mirror) {
  eachLine(area, [&](ptrdiff_t line) {
    for (ptrdiff_t j = 0; j < area.nWidth; ++j) {
      const ptrdiff_t to = mirror ? line + area.nWidth - 1 - j : line + j;
      out[to] = monoSample(source, in[line + j]);
    }
  });
}

}  // namespace definition

uint8_t invertMask(int16_t reverse) { return reverse == kReversed ? 0xFF : 0; }

/// The matrix of the first N components.
template <size_t N>
Matrix<N> matrixOf(const RastHueParam& param) {
  Matrix<N> matrix;
  for (size_t k = 0; k < N; ++k) {
    WrappingSum constant;
    for (size_t j = 0; j < N; ++j) {
      matrix.weight[k][j] = param.nMatrix[k][j];
      constant.addProduct(param.nMatrix[j][3], param.nMatrix[k][j]);
    }
    matrix.constant[k] = constant.value();
    matrix.offset[k] = param.nMatrix[k][4];
  }
  matrix.invert = invertMask(param.nReverse);
  return matrix;
}

/// Takes the matrix back out of a built buffer. False where a table of it is not a straight line
/// with a 16-bit slope, as one filled by hand may be.
bool matrixOf(const RastHueLut& lut, ColorMatrix& matrix) {
  for (size_t k = 0; k < 3; ++k) {
    WrappingSum constant;
    for (size_t j = 0; j < 3; ++j) {
      const int32_t(&products)[256] = lut.row[k].nProd[j];
      const uint32_t slope =
          static_cast<uint32_t>(products[1]) - static_cast<uint32_t>(products[0]);
      uint32_t bent = 0;
      for (uint32_t i = 0; i < 256; ++i) {
        bent |=
            static_cast<uint32_t>(products[i]) ^ (static_cast<uint32_t>(products[0]) + i * slope);
      }
      matrix.weight[k][j] = static_cast<int16_t>(slope);
      if (bent != 0 || static_cast<uint32_t>(int32_t{matrix.weight[k][j]}) != slope) return false;
      constant.add(products[0]);
    }
    matrix.constant[k] = constant.value();
    matrix.offset[k] = lut.row[k].nOutOffset;
  }
  matrix.invert = invertMask(lut.nReverse);
  return true;
}

template <class Kernel>
void eachRow(const RastArea& area, const ColorPlanes& planes, Kernel kernel) {
  eachLine(area, [&](ptrdiff_t line) { kernel(rowOf(planes, line, area.nWidth)); });
}

void colorDirect(const Rows* rows, const RastArea& area, const ColorPlanes& planes,
                 const RastHueParam& param) {
  const bool mirror = param.nMirror != 0;
  const InPlace inPlace = mirror ? InPlace::refused : InPlace::served;
  if (!rows || !rows->matrix || !planesApart(planes.in, planes.out, area.nWidth, inPlace)) {
    definition::color(area, planes, param, mirror);
    return;
  }
  const ColorMatrix matrix = matrixOf<3>(param);
  eachRow(area, planes, [&](const ColorRow& row) { rows->matrix(row, matrix, mirror); });
}

void colorThroughLut(const Rows* rows, const RastArea& area, const ColorPlanes& planes,
                     const RastHueLut& lut) {
  const bool served = rows && planesApart(planes.in, planes.out, area.nWidth) &&
                      linesApart(area, planes.out, &lut, sizeof lut);
  ColorMatrix matrix;
  if (served && rows->matrix && matrixOf(lut, matrix)) {
    eachRow(area, planes, [&](const ColorRow& row) { rows->matrix(row, matrix, false); });
  } else if (served && rows->products) {
    eachRow(area, planes, [&](const ColorRow& row) { rows->products(row, lut); });
  } else {
    definition::color(area, planes, lut, false);
  }
}

/// A mono result depends on one sample alone, as a curve's does.
template <class Source>
void monoByCurve(const Rows& rows, const RastArea& area, const uint8_t* const (&in)[1],
                 uint8_t* const (&out)[1], const Source& source, bool mirror) {
  uint8_t curve[256];
  for (size_t i = 0; i < 256; ++i) curve[i] = monoSample(source, static_cast<uint8_t>(i));
  eachLine(area,
           [&](ptrdiff_t line) { rows.curve(rowOf(in, out, line, area.nWidth), curve, mirror); });
}

void monoDirect(const Rows* rows, const RastArea& area, const uint8_t* const (&in)[1],
                uint8_t* const (&out)[1], const RastHueParam& param) {
  const bool mirror = param.nMirror != 0;
  const InPlace inPlace = mirror ? InPlace::refused : InPlace::served;
  if (!rows || !planesApart(in, out, area.nWidth, inPlace)) {
    definition::mono(area, in[0], out[0], param, mirror);
  } else if (rows->monoMatrix) {
    const MonoMatrix matrix = matrixOf<1>(param);
    eachLine(area, [&](ptrdiff_t line) {
      rows->monoMatrix(rowOf(in, out, line, area.nWidth), matrix, mirror);
    });
  } else {
    monoByCurve(*rows, area, in, out, param, mirror);
  }
}

void monoThroughLut(const Rows* rows, const RastArea& area, const uint8_t* const (&in)[1],
                    uint8_t* const (&out)[1], const RastHueLut& lut) {
  const bool served =
      rows && planesApart(in, out, area.nWidth) && linesApart(area, out, &lut, sizeof lut);
  if (served) {
    monoByCurve(*rows, area, in, out, lut, false);
  } else {
    definition::mono(area, in[0], out[0], lut, false);
  }
}

void trace(bool color, const RastHueParam& param) {
  puts(color ? "   Case color. " : "   Case monochrome. ");
  printf("   Reverse effect %d.\n", param.nReverse);
  if (color) {
    puts(param.nMirror ? "   Mirror effect on. " : "   Mirror effect off. ");
  } else {
    puts(param.nMirror ? "Mirror effect ON." : "Mirror effect OFF.");
  }
}

}  // namespace

uint32_t hueAdjust(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                   const RastHueParam* pParam, RastHueLut* pLut) {
  if (!pArea || !fitsLine(*pArea)) return RAST_ERR_INVALID_ARG;
  if (!pPlanes) return RAST_ERR_INVALID_ARG;
  if (pPlanes->pIn[3] ? !pPlanes->pOut[3] : !hasColorPlanes(*pPlanes)) return RAST_ERR_INVALID_ARG;
  if (pPlanes->nSize < 1) return RAST_ERR_INVALID_ARG;
  if (!pParam) return RAST_ERR_INVALID_ARG;
  if (!hasExtent(*pArea)) return RAST_ERR_INVALID_ARG;

  const RastArea area = *pArea;
  const RastPlaneSet set = *pPlanes;
  const bool color = set.pIn[0] != nullptr;
  const uint8_t* const in[] = {set.pIn[3]};
  uint8_t* const out[] = {set.pOut[3]};

  if (!pLut) {
    const RastHueParam param = *pParam;
    trace(color, param);
    if (color) {
      colorDirect(rows, area, ColorPlanes(set), param);
    } else {
      monoDirect(rows, area, in, out, param);
    }
    return RAST_OK;
  }

  if (pLut->nBuilt == 0) build(RastHueParam(*pParam), *pLut);
  if (color) {
    colorThroughLut(rows, area, ColorPlanes(set), *pLut);
  } else {
    monoThroughLut(rows, area, in, out, *pLut);
  }
  return RAST_OK;
}

}  // namespace rast

uint32_t rastHueAdjust(const RastArea* pArea, const RastPlaneSet* pPlanes,
                       const RastHueParam* pParam, RastHueLut* pLut) {
  return rast::hueAdjust(rast::repaid(rast::rows(), pArea), pArea, pPlanes, pParam, pLut);
}
