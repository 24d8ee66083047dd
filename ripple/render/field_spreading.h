// Spreading the field over the frame: every computed entry moves the grid
// points that share its offset — four mirrored points when the field is
// symmetric, a point and its reflection through the centre when rotated.
//
// A grid point whose offset has direction φ is written at
//   (centreY − r′·sin(φ + dθ), centreX + r′·cos(φ + dθ)),  r′ = d + dr,
// with sine and cosine read from g_sineTable. Only grid points inside rows
// 0..height and columns 0..width are written, each at most once.
//
// The Sink receives the spans and the points:
//   void Span(int32_t row, int32_t first, int32_t last);
//   Writer Row(int32_t row);   // Writer::Put(int32_t column, float row, float column)
// and, if it has one, void RowFinished(int32_t row) once the row's last
// point is written (each row is written within one quadrant row).
#pragma once

#include <stdint.h>

#include <algorithm>

#include "field_simd.h"
#include "output_stage.h"
#include "ripple_renderer.h"
#include "table_reads.h"

namespace tarvo {

// An entry's four mirrored points, each written only when its row and
// column lie in the frame. right: the right-hand column centreCol + 1 + i
// is inside; left: the left-hand column centreCol − i is.
template <class Writer>
inline void SpreadEntry(const Polar& polar, const Displacement& disp, bool up, bool lo, bool right, bool left,
                        double cy, double cx, const int32_t* sine, int32_t rightCol, int32_t leftCol, Writer& upper,
                        Writer& lower) {
  const double a = polar.direction;
  const double dTheta = disp.angular;
  const double rp = static_cast<double>(polar.distance) + disp.radial;
  // Upper right (direction a) and its reflection, lower left.
  if ((up && right) || (lo && left)) {
    const double theta = a + dTheta;
    const double s = ReadWave(static_cast<float>(theta), sine);
    const double c = ReadWave(static_cast<float>(theta + 90.0), sine);
    if (up && right) upper.Put(rightCol, static_cast<float>(cy - rp * s), static_cast<float>(cx + rp * c));
    if (lo && left) lower.Put(leftCol, static_cast<float>(cy + rp * s), static_cast<float>(cx - rp * c));
  }
  // Upper left (direction 180 − a) and its reflection, lower right.
  if ((up && left) || (lo && right)) {
    const double b = dTheta - (a - 180.0);
    const double s = ReadWave(static_cast<float>(b), sine);
    const double c = ReadWave(static_cast<float>(b + 90.0), sine);
    if (up && left) upper.Put(leftCol, static_cast<float>(cy - rp * s), static_cast<float>(cx + rp * c));
    if (lo && right) lower.Put(rightCol, static_cast<float>(cy + rp * s), static_cast<float>(cx - rp * c));
  }
}

// A rotated entry's point (direction a) and its reflection through the
// centre, each only when asked for.
template <class Writer>
inline void SpreadRotatedEntry(const Polar& polar, const Displacement& disp, bool upPoint, bool loPoint, double cy,
                               double cx, const int32_t* sine, int32_t upCol, int32_t loCol, Writer& upper,
                               Writer& lower) {
  const double theta = static_cast<double>(polar.direction) + disp.angular;
  const double rp = static_cast<double>(polar.distance) + disp.radial;
  const double s = ReadWave(static_cast<float>(theta), sine);
  const double co = ReadWave(static_cast<float>(theta + 90.0), sine);
  if (upPoint) upper.Put(upCol, static_cast<float>(cy - rp * s), static_cast<float>(cx + rp * co));
  if (loPoint) lower.Put(loCol, static_cast<float>(cy + rp * s), static_cast<float>(cx - rp * co));
}

// Writes into one row of the source map.
struct MapRowWriter {
  MapPoint* row;
  void Put(int32_t column, float r, float c) { row[column] = MapPoint{r, c}; }
};

// Calls run(b, e) for the pieces of begin..end − 1 that the cuts divide it
// into, in order.
template <class Run>
inline void ForEachPiece(int32_t begin, int32_t end, int32_t (&cuts)[4], Run run) {
  std::sort(cuts, cuts + 4);
  int32_t b = begin;
  for (const int32_t cut : cuts) {
    if (cut > b && cut < end) {
      run(b, cut);
      b = cut;
    }
  }
  if (b < end) run(b, end);
}

// Sinks that hand out the map's rows (the production sink) can be written
// eight floats at a time.
template <class Sink>
constexpr bool kWritesMapRows = requires {
  Sink::kWritesMapRows;
};

// Tells a sink that wants to know that the rows of a quadrant row are done.
template <class Sink>
inline void FinishRows(Sink& sink, bool up, int32_t upRow, bool lo, int32_t loRow) {
  if constexpr (requires { sink.RowFinished(upRow); }) {
    if (up) sink.RowFinished(upRow);
    if (lo) sink.RowFinished(loRow);
  }
}

// Whether the spreading runs in AVX2 for this sink.
template <class Sink>
inline bool SpreadWide([[maybe_unused]] const RippleRenderer& rr) {
#ifdef TARVO_AVX2_PATHS
  if constexpr (kWritesMapRows<Sink>) return rr.setup->simd == SimdLevel::kAvx2;
#endif
  return false;
}

// Quadrant rows jBegin .. jEnd − 1; different rows write different map rows.
template <class Sink>
void SpreadSymmetric(const RippleRenderer& rr, Sink& sink, int32_t jBegin, int32_t jEnd) {
  [[maybe_unused]] const bool wide = SpreadWide<Sink>(rr);
  const QuadrantField& q = *rr.quadrant;
  const int32_t* sine = g_sineTable.entries;
  const int32_t cc = rr.centreCol;
  const int32_t w = rr.width;
  const double cy = rr.centreY, cx = rr.centreX;
  for (int32_t j = jBegin; j < jEnd; ++j) {
    const bool up = rr.UpperRowInside(j), lo = rr.LowerRowInside(j);
    if (!up && !lo) continue;
    const int32_t upRow = rr.centreRow - j, loRow = rr.centreRow + 1 + j;
    const int32_t n = q.rowLength[j];
    const int32_t first = std::max(cc - n + 1, 0), last = std::min(cc + n, w);
    if (up) sink.Span(upRow, first, last);
    if (lo) sink.Span(loRow, first, last);

    // Entries whose right-hand column (cc + 1 + i) and left-hand column
    // (cc − i) stay inside 0..width.
    const int32_t rBegin = std::max(0, -cc - 1), rEnd = std::min(n, w - cc);
    const int32_t lBegin = std::max(0, cc - w), lEnd = std::min(n, cc + 1);
    const ColumnRange reach = rr.SymmetricReach(j, n);
#ifdef TARVO_AVX2_PATHS
    if constexpr (kWritesMapRows<Sink>) {
      if (wide) {
        MapPoint* upperRow = up ? sink.RowData(upRow) : nullptr;
        MapPoint* lowerRow = lo ? sink.RowData(loRow) : nullptr;
        const Polar* polar = q.polar + q.Index(j, 0);
        const Displacement* disp = q.displacement + q.Index(j, 0);
        int32_t cuts[4] = {rBegin, rEnd, lBegin, lEnd};
        ForEachPiece(reach.begin, reach.end, cuts, [&](int32_t b, int32_t e) {
          const bool right = b >= rBegin && b < rEnd, left = b >= lBegin && b < lEnd;
          if (right || left) avx2::SpreadSymmetricRun(polar, disp, b, e, cy, cx, cc, upperRow, lowerRow, right, left);
        });
        FinishRows(sink, up, upRow, lo, loRow);
        continue;
      }
    }
#endif
    auto upper = sink.Row(up ? upRow : loRow);
    auto lower = sink.Row(lo ? loRow : upRow);
    const Polar* polar = q.polar + q.Index(j, 0);
    const Displacement* disp = q.displacement + q.Index(j, 0);
    auto general = [&](int32_t i) {
      SpreadEntry(polar[i], disp[i], up, lo, i >= rBegin && i < rEnd, i >= lBegin && i < lEnd, cy, cx, sine, cc + 1 + i,
                  cc - i, upper, lower);
    };
    int32_t i = reach.begin;
#ifdef TARVO_SSE2_PATHS
    if constexpr (kWritesMapRows<Sink>) {
      if (up && lo && rr.setup->simd != SimdLevel::kScalar) {
        // Entries with all four points in the frame.
        const int32_t fourBegin = std::max({rBegin, lBegin, reach.begin});
        const int32_t fourEnd = std::min({rEnd, lEnd, reach.end});
        for (; i < fourBegin && i < reach.end; ++i) general(i);
        if (i < fourEnd) {
          sse2::SpreadFourPointRun(polar, disp, i, fourEnd, cy, cx, cc, sink.RowData(upRow), sink.RowData(loRow));
          i = fourEnd;
        }
      }
    }
#endif
    for (; i < reach.end; ++i) general(i);
    FinishRows(sink, up, upRow, lo, loRow);
  }
}

// The rotated field writes the reflection of buffer column c into column
// rightShift − c of the lower row. The exact reflection of the offset
// c − 0.5 − width is column rightShift + 1 − c, so with no displacement the
// lower half samples one column to the right. That is the effect's defined
// output, kept so that renders match it pixel for pixel.
template <class Sink>
void SpreadRotated(const RippleRenderer& rr, Sink& sink, int32_t jBegin, int32_t jEnd) {
  [[maybe_unused]] const bool wide = SpreadWide<Sink>(rr);
  const QuadrantField& q = *rr.quadrant;
  const EllipseSpans& spans = *rr.spans;
  const int32_t* sine = g_sineTable.entries;
  const int32_t w = rr.width;
  const int32_t ls = rr.leftShift, rs = rr.rightShift;
  const double cy = rr.centreY, cx = rr.centreX;
  for (int32_t j = jBegin; j < jEnd; ++j) {
    if (!spans.hasSpan[j]) continue;
    const int32_t fc = spans.firstCol[j], lc = spans.lastCol[j];
    const int32_t upRow = rr.centreRow - j, loRow = rr.centreRow + 1 + j;
    const int32_t uFirst = std::max(fc - ls, 0), uLast = std::min(lc - ls, w);
    const int32_t lFirst = std::max(rs - lc, 0), lLast = std::min(rs - fc, w);
    const bool up = rr.UpperRowInside(j) && uFirst <= uLast;
    const bool lo = rr.LowerRowInside(j) && lFirst <= lLast;
    if (up) sink.Span(upRow, uFirst, uLast);
    if (lo) sink.Span(loRow, lFirst, lLast);
    if (!up && !lo) continue;

    const ColumnRange reach = rr.RotatedReach(j);
#ifdef TARVO_AVX2_PATHS
    if constexpr (kWritesMapRows<Sink>) {
      if (wide) {
        // Buffer columns whose upper point, and whose lower point, is written.
        const int32_t uBegin = uFirst + ls, uEnd = uLast + ls + 1;
        const int32_t lBegin = rs - lLast, lEnd = rs - lFirst + 1;
        MapPoint* upperRow = up ? sink.RowData(upRow) : nullptr;
        MapPoint* lowerRow = lo ? sink.RowData(loRow) : nullptr;
        const Polar* polar = q.polar + q.Index(j, 0);
        const Displacement* disp = q.displacement + q.Index(j, 0);
        int32_t cuts[4] = {uBegin, uEnd, lBegin, lEnd};
        ForEachPiece(reach.begin, reach.end, cuts, [&](int32_t b, int32_t e) {
          const bool upPoint = up && b >= uBegin && b < uEnd, loPoint = lo && b >= lBegin && b < lEnd;
          if (upPoint || loPoint) {
            avx2::SpreadRotatedRun(polar, disp, b, e, cy, cx, upPoint ? upperRow : nullptr, ls,
                                   loPoint ? lowerRow : nullptr, rs);
          }
        });
        FinishRows(sink, up, upRow, lo, loRow);
        continue;
      }
    }
#endif
    auto upper = sink.Row(up ? upRow : loRow);
    auto lower = sink.Row(lo ? loRow : upRow);
    const Polar* polar = q.polar + q.Index(j, 0);
    const Displacement* disp = q.displacement + q.Index(j, 0);
    for (int32_t c = reach.begin; c < reach.end; ++c) {
      const int32_t upCol = c - ls, loCol = rs - c;
      const bool upPoint = up && upCol >= uFirst && upCol <= uLast;
      const bool loPoint = lo && loCol >= lFirst && loCol <= lLast;
      if (upPoint || loPoint)
        SpreadRotatedEntry(polar[c], disp[c], upPoint, loPoint, cy, cx, sine, upCol, loCol, upper, lower);
    }
    FinishRows(sink, up, upRow, lo, loRow);
  }
}

template <class Sink>
void SpreadFieldTo(const RippleRenderer& rr, Sink& sink, int32_t jBegin, int32_t jEnd) {
  if (rr.symmetric) {
    SpreadSymmetric(rr, sink, jBegin, jEnd);
  } else {
    SpreadRotated(rr, sink, jBegin, jEnd);
  }
}

template <class Sink>
void SpreadFieldTo(const RippleRenderer& rr, Sink& sink) {
  SpreadFieldTo(rr, sink, 0, rr.quadRows);
}

// The production sink: writes straight into the source map and, given a
// pinner, pins each row as soon as it is finished.
struct SourceMapSink {
  SourceMap& map;
  const MapRowPinner* pinner = nullptr;

  using Writer = MapRowWriter;

  static constexpr bool kWritesMapRows = true;

  void Span(int32_t row, int32_t first, int32_t last) { map.SetRowSpan(row, first, last); }
  Writer Row(int32_t row) { return Writer{RowData(row)}; }
  MapPoint* RowData(int32_t row) { return map.entries + static_cast<int64_t>(row) * map.cols; }
  void RowFinished(int32_t row) {
    if (pinner != nullptr) pinner->PinWritten(row);
  }
};

}  // namespace tarvo
