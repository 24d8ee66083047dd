#include "ripple_renderer.h"

#include <math.h>

#include <algorithm>

#include "fixed_point.h"
#include "geometry.h"
#include "plugin_alloc.h"

namespace tarvo {

namespace {

// The low 16 bits of a grid position, as the int16 fields keep it.
int16_t LowBits16(int32_t v) { return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(v))); }

}  // namespace

int32_t NormaliseStretchAngle(float degrees) {
  // 64-bit so that even the conversion's out-of-range value negates safely.
  const int64_t a = RoundHalfAway(static_cast<double>(degrees));
  if (a >= 0) return static_cast<int32_t>(a % 360);
  return static_cast<int32_t>((360 - (-a) % 360) % 360);
}

QuadrantField::QuadrantField(int32_t rows_, int32_t cols_)
    : rowLength(nullptr), displacement(nullptr), polar(nullptr), ok(false), rows(rows_), cols(cols_) {
  const int64_t entries = static_cast<int64_t>(rows) * cols;
  rowLength = PluginAllocArray<int32_t>(rows);
  displacement = PluginAllocArray<Displacement>(entries);
  polar = PluginAllocArray<Polar>(entries);
  ok = rowLength && displacement && polar;
  if (!ok) Release();
}

QuadrantField::~QuadrantField() { Release(); }

void QuadrantField::Release() {
  PluginFree(rowLength);
  PluginFree(displacement);
  PluginFree(polar);
  rowLength = nullptr;
  displacement = nullptr;
  polar = nullptr;
}

EllipseSpans::EllipseSpans(int16_t centreRow_, int16_t centreCol_, const PixelImage& source, float outerRadius_,
                           float stretch_, float angle_)
    : centreRow(centreRow_),
      centreCol(centreCol_),
      outerRadius(outerRadius_),
      stretch(stretch_),
      angle(angle_),
      rows(0),
      height(source.Height()),
      width(source.Width()),
      firstCol(nullptr),
      lastCol(nullptr),
      hasSpan(nullptr),
      ok(false) {
  rows = std::max<int32_t>(centreRow, height - centreRow - 1) + 1;
  firstCol = PluginAllocArray<int32_t>(rows);
  lastCol = PluginAllocArray<int32_t>(rows);
  hasSpan = PluginAllocArray<uint8_t>(rows);
  ok = firstCol && lastCol && hasSpan;
  if (!ok) Release();
}

EllipseSpans::~EllipseSpans() { Release(); }

void EllipseSpans::Release() {
  PluginFree(firstCol);
  PluginFree(lastCol);
  PluginFree(hasSpan);
  firstCol = nullptr;
  lastCol = nullptr;
  hasSpan = nullptr;
}

void EllipseSpans::Build() {
  if (!ok) return;
  const double s = SinDeg(angle);
  const double c = CosDeg(angle);
  const double s2 = static_cast<double>(stretch) * stretch;
  const double d = outerRadius;
  const double a = s2 * (s * s) + c * c;
  const double cFactor = s2 * (c * c) + s * s;
  const double cConst = s2 * (d * d);
  const double twoA = 2.0 * a;

  // Buffer columns whose grid point lands in 0..width, by which of the two
  // mirrored rows exist.
  const int32_t w = width;
  const int32_t cc = centreCol;
  const int32_t upperLo = w - cc, upperHi = 2 * w - cc;
  const int32_t lowerLo = cc, lowerHi = w + cc;
  const int32_t bothLo = std::min(upperLo, lowerLo), bothHi = std::max(upperHi, lowerHi);

  for (int32_t r = 0; r < rows; ++r) {
    const double y = static_cast<float>(r + 0.5);
    const double b = 2.0 * y * (s2 - 1.0) * s * c;
    const double cq = y * y * cFactor - cConst;
    const float disc = static_cast<float>(b * b - 4.0 * a * cq);
    hasSpan[r] = 0;
    if (disc < 0.0f) continue;
    const double q = sqrt(static_cast<double>(disc));
    const double x1 = (-b - q) / twoA;
    const double x2 = (-b + q) / twoA;
    int32_t first = std::max(TruncToInt32(x1), -w);
    int32_t last = std::min(TruncToInt32(x2 + static_cast<double>(0.999f)), w);
    if (first > w || last < -w) continue;
    hasSpan[r] = 1;
    first += w;
    last += w;
    const bool upper = centreRow - r >= 0;
    const bool lower = centreRow + r < height;
    int32_t lo, hi;
    if (upper && lower) {
      lo = bothLo;
      hi = bothHi;
    } else if (upper) {
      lo = upperLo;
      hi = upperHi;
    } else {
      lo = lowerLo;
      hi = lowerHi;
    }
    firstCol[r] = std::max(first, lo);
    lastCol[r] = std::min(last, hi);
  }
}

RippleRenderer::RippleRenderer(const RenderSetup& setup_, const RendererSettings& in, const WaveTable& wave_)
    : setup(&setup_),
      centreRow(0),
      centreCol(0),
      centreY(0.0f),
      centreX(0.0f),
      source(setup_.source),
      waveHeightPx(in.waveHeightPx),
      angularHeightPx(in.angularHeightPx),
      degreesPerPixel(in.degreesPerPixel),
      radiusPx(in.radiusPx),
      stretch(in.stretch),
      stretchAngle(NormaliseStretchAngle(in.stretchAngle)),
      phase(in.phase),
      pinMode(in.pinMode),
      // A Twirl index the menu cannot produce renders as "No Twirl".
      twirl(in.twirl >= 0 && in.twirl <= 3 ? in.twirl : 0),
      quadrant(nullptr),
      sourceMap(nullptr),
      spans(nullptr),
      wave(&wave_),
      aborted(false),
      ready(true),
      width(source->Width()),
      height(source->Height()),
      twirlScale(static_cast<float>(180.0 / (width * 0.5))),
      twirlGrowth(static_cast<float>(3.0 / (width * 0.5))),
      leftShift(0),
      rightShift(0),
      quadCols(0),
      quadRows(0),
      symmetric(true),
      stretched(false),
      outerRadiusPx(0.0f) {
  // Clamped from above only: a centre left of or above the frame stays
  // negative. The int16 fields keep the low 16 bits.
  centreCol = LowBits16(std::min(RoundHalfAway(in.centreCol), width - 1));
  centreRow = LowBits16(std::min(RoundHalfAway(in.centreRow), height - 1));
  leftShift = width - centreCol;
  rightShift = width + centreCol;
  centreX = static_cast<float>(centreCol + 0.5);
  centreY = static_cast<float>(centreRow + 0.5);
  outerRadiusPx = static_cast<float>(2.0 * radiusPx);

  stretched = fabs(static_cast<double>(stretch) - 1.0) > static_cast<double>(0.01f);
  symmetric = stretchAngle % 90 == 0 || !stretched;

  if (symmetric) {
    const double outer = outerRadiusPx;
    const double scaled = static_cast<double>(stretch) * outer;
    const bool wideCols = stretched && stretchAngle != 90 && stretchAngle != 270 && stretch >= 1.0f;
    const bool tallRows = stretched && stretchAngle != 0 && stretchAngle != 180 && stretch >= 1.0f;
    quadCols = TruncToInt32(wideCols ? scaled : outer);
    quadRows = TruncToInt32(tallRows ? scaled : outer);
    // Never more offsets than reach the farthest edge.
    quadCols = std::min(quadCols, std::max<int32_t>(centreCol, width - centreCol - 1) + 1);
    quadRows = std::min(quadRows, std::max<int32_t>(centreRow, height - centreRow - 1) + 1);
    // A negative (or non-numeric) radius sizes nothing.
    quadCols = std::max(quadCols, 0);
    quadRows = std::max(quadRows, 0);
  } else {
    spans = PluginNew<EllipseSpans>(centreRow, centreCol, *source, outerRadiusPx, stretch > 1.0f ? stretch : 1.0f,
                                    static_cast<float>(stretchAngle));
    if (spans) {
      spans->Build();
      quadRows = spans->rows;
    }
    quadCols = 2 * width + 2;
  }

  quadrant = PluginNew<QuadrantField>(quadRows, quadCols);
  sourceMap = PluginNew<SourceMap>(height + 1, width + 1, setup_);
  ready = quadrant && quadrant->ok && sourceMap && sourceMap->ok && (symmetric || (spans && spans->ok));
  if (ready) ComputeField();
}

RippleRenderer::~RippleRenderer() {
  PluginDelete(quadrant);
  PluginDelete(sourceMap);
  PluginDelete(spans);
}

FieldBranch RippleRenderer::Branch() const {
  if (!stretched) return FieldBranch::kCircular;
  return symmetric ? FieldBranch::kAxisStretched : FieldBranch::kRotated;
}

bool RippleRenderer::UpperRowInside(int32_t j) const {
  const int32_t row = centreRow - j;
  return row >= 0 && row <= height;
}

bool RippleRenderer::LowerRowInside(int32_t j) const {
  const int32_t row = centreRow + 1 + j;
  return row >= 0 && row <= height;
}

ColumnRange RippleRenderer::SymmetricReach(int32_t j, int32_t n) const {
  if (!UpperRowInside(j) && !LowerRowInside(j)) return {0, 0};
  // Right-hand points sit at column centreCol + 1 + i, left-hand ones at
  // centreCol − i; both ranges start at 0 whenever the centre is in the
  // frame, so their hull has no gap.
  const int32_t rBegin = std::max(0, -centreCol - 1), rEnd = std::min(n, width - centreCol);
  const int32_t lBegin = std::max(0, centreCol - width), lEnd = std::min(n, centreCol + 1);
  const bool right = rBegin < rEnd, left = lBegin < lEnd;
  if (right && left) return {std::min(rBegin, lBegin), std::max(rEnd, lEnd)};
  if (right) return {rBegin, rEnd};
  if (left) return {lBegin, lEnd};
  return {0, 0};
}

ColumnRange RippleRenderer::RotatedReach(int32_t j) const {
  if (!spans->hasSpan[j]) return {0, 0};
  const int32_t first = spans->firstCol[j], last = spans->lastCol[j];
  int32_t begin = INT32_MAX, end = INT32_MIN;
  if (UpperRowInside(j)) {  // upper point at column c − leftShift
    const int32_t lo = std::max(first, leftShift), hi = std::min(last, leftShift + width);
    if (lo <= hi) {
      begin = lo;
      end = hi + 1;
    }
  }
  if (LowerRowInside(j)) {  // lower point at column rightShift − c
    const int32_t lo = std::max(first, rightShift - width), hi = std::min(last, rightShift);
    if (lo <= hi) {
      begin = std::min(begin, lo);
      end = std::max(end, hi + 1);
    }
  }
  if (begin >= end) return {0, 0};
  return {begin, end};
}

}  // namespace tarvo
