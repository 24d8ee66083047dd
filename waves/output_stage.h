// Pinning (pinning.cpp) and output resampling (resampling.cpp): from the
// source map to the output image.
#pragma once

#include <stdint.h>
#include <string.h>

#include "pf_pixel.h"
#include "pixel_image.h"
#include "source_map.h"

namespace tarvo {

struct PinWeight {
  float pin;   // 1 holds a point at its grid position
  float keep;  // 1 − pin

  // pin +0 and keep 1: grid × 0 + coordinate × 1 for a grid position ≥ 0,
  // which is coordinate + 0.
  bool IsFree() const {
    uint32_t pinBits;
    memcpy(&pinBits, &pin, sizeof pinBits);
    return pinBits == 0 && keep == 1.0f;
  }
};

// The Pin Mode's column and row weights of one render, owned by it: one
// entry per map column and per map row. ok tells whether both were had.
struct PinProfiles {
  PinWeight* columns = nullptr;
  PinWeight* rows = nullptr;
  int32_t columnCount = 0;
  int32_t rowCount = 0;
  bool ok = false;

  PinProfiles(int32_t pinMode, int32_t rowCount, int32_t columnCount);
  ~PinProfiles();
  PinProfiles(const PinProfiles&) = delete;
  PinProfiles& operator=(const PinProfiles&) = delete;
};

void FillPinProfile(int32_t shape, int32_t n, PinWeight* profile);
void PinSourceMap(SourceMap& map, const PinProfiles& pins);
// PinSourceMap's stop checks alone, one per map row, for maps whose rows
// were pinned as they were written.
void CheckPinStops(SourceMap& map);

// The column profile's runs of free entries, found once per pass; at most
// kMaxRuns of them (profiles of the effect have two at most), else none is
// used.
struct PinFreeRuns {
  static constexpr int kMaxRuns = 8;
  int32_t begin[kMaxRuns];
  int32_t end[kMaxRuns];
  int count = 0;
  bool usable = false;

  PinFreeRuns(const PinWeight* profile, int32_t n);
};

// Pins map rows one at a time, each left exactly as PinSourceMap leaves it,
// so that a row can be pinned while it is still in cache just after it was
// written. Valid while the pin profiles exist.
class MapRowPinner {
 public:
  MapRowPinner(SourceMap& map, const PinProfiles& pins);
  // Row y, once its span and points are all written; an unwritten row is
  // left alone.
  void PinWritten(int32_t y) const;

 private:
  SourceMap& map_;
  const PinProfiles& pins_;
  bool active_;
  PinFreeRuns runs_;
};

// Samples by the map's set-up: its source, size and sampling mode.
void ResampleOutput(SourceMap& map, PixelImage& destination);
void SampleMapPoint(const RenderSetup& setup, const MapPoint& p, PF_Pixel& out);
bool IsInsideSource(const RenderSetup& setup, float row, float column);
void SampleNearest(const RenderSetup& setup, float row, float column, PF_Pixel& out);
void SampleBilinear(const RenderSetup& setup, float row, float column, PF_Pixel& out);

struct BilinearWeights {
  float w00, w01, w10, w11;
  int32_t r0, r1, c0, c1;
};
BilinearWeights BilinearCell(float row, float column);
int32_t FloorToInt(float v);

}  // namespace tarvo
