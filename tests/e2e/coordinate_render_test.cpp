// End to end through the module's exported entry point, on inputs whose
// pixels encode their own coordinates: red = x & 255, green = y & 255,
// blue = (x >> 8) | (y >> 8) << 4, alpha 255. Decoding an output pixel tells
// which source pixel it was sampled from (nearest sampling) or whether it is
// an untouched copy.
//
// The golden images pin the pixels of every family of settings on a small
// frame; these hold what must stay exact on a larger one (coordinates past
// 255), off-centre and in combinations the goldens do not render.
//
// Geometry as the render computes it: the centre grid position is the
// Center point in pixels rounded half away from zero, the ripple's centre
// point is half a pixel beyond it in both directions, and the ripple has
// faded to nothing at twice Radius × width pixels.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "module_test.h"

namespace tarvo::host {
namespace {

enum PinMode { kNoPin = 1, kPinEdges, kPinLeft = 5, kPinTop, kPinHoriz = 10, kPinVertical };
constexpr int32_t kW = 300, kH = 220;

bool Same(const PF_Pixel& a, const PF_Pixel& b) {
  return a.alpha == b.alpha && a.red == b.red && a.green == b.green && a.blue == b.blue;
}
bool Background(const PF_Pixel& p) { return Same(p, PF_Pixel{0, 0, 0, 0}); }  // sampled outside the source

// The rotated field writes the point reflection of each entry one grid
// column to the left of where it belongs, so below the centre row a pixel
// with no displacement reads its right-hand neighbour (or, in the last
// column, outside the source). That is the defined output.
bool RotatedShift(const Image& out, const Image& in, int32_t y, int32_t x) {
  return x + 1 < in.width ? Same(out.At(y, x), in.At(y, x + 1)) : Background(out.At(y, x));
}

class CoordinateRender : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    ASSERT_EQ(ParamsSetup(), PF_Err_NONE);
    for (int32_t y = 0; y < kH; ++y)
      for (int32_t x = 0; x < kW; ++x)
        input.At(y, x) = PF_Pixel{255, static_cast<uint8_t>(x & 255), static_cast<uint8_t>(y & 255),
                                  static_cast<uint8_t>((x >> 8) | (y >> 8) << 4)};
  }
  Image input{kW, kH};
};

// Every pixel the ripple does not move is the source pixel itself: beyond
// 2 × radius + 1 pixels from the ripple's centre point whatever samples the
// inside (which does change); everywhere at radius 0, however high the wave;
// and with no wave height in nearest sampling, where each grid point maps to
// itself up to the sine table's precision, which the nearest sample rounds
// away, in every field branch, twirl level and pin mode and for centres
// outside the frame. Two defined exceptions: the rotated field's shift below
// the centre row, and a point of grid row 0 or column 0 landing a hair
// outside the source (transparent black) unless the pin mode holds that edge.
TEST_F(CoordinateRender, PixelsTheRippleDoesNotMoveAreExactCopies) {
  struct Case {
    const char* what;
    double radius, height, cx, cy, stretch, stretchAngle;
    int waveForm, twirl, antialias;
    bool lowQuality;
  };
  const Case cases[] = {
      {"small, off centre", 10, 3.125, 80.4, 60.25, 0, 90, 1, 1, 1, false},
      {"square wave, bilinear", 15, 3.125, 211, 97, 0, 90, 3, 1, 2, false},
      {"spectrum 14, nearest", 15, 3.125, 211, 97, 0, 90, 22, 1, 3, true},
      {"stretched along the rows", 12, 3.125, 100, 120, 10, 90, 1, 1, 1, false},
      {"stretched along the columns", 12, 3.125, 100, 120, 10, 180, 1, 1, 1, false},
      {"squeezed, rotated, nearest", 12, 3.125, 100, 120, -10, 120, 1, 1, 3, true},
      {"stretched, rotated, nearest", 12, 3.125, 100, 120, 10, 120, 1, 1, 3, true},
      {"radius 0, circular", 0, 25, 150, 110, 0, 90, 1, 1, 1, false},
      {"radius 0, circular, rotated angle", 0, 25, 150, 110, 0, 120, 1, 1, 1, false},
      {"radius 0, stretched", 0, 25, 150, 110, 10, 90, 1, 1, 1, false},
      {"radius 0, rotated", 0, 25, 150, 110, 10, 120, 1, 1, 1, false},
      // No wave height, every pin mode:
      {"circular, whole frame", 60, 0, 150, 110, 0, 90, 1, 1, 3, true},
      {"circular, hyper twirl", 60, 0, 150, 110, 0, 90, 1, 4, 3, true},
      {"stretched along the rows", 40, 0, 120, 90, 10, 90, 1, 1, 3, true},
      {"stretched along the columns", 40, 0, 120, 90, 10, 180, 1, 2, 3, true},
      {"rotated 30", 40, 0, 120, 90, 10, 120, 1, 3, 3, true},
      {"rotated 30, squeezed", 40, 0, 120, 90, -10, 120, 1, 1, 3, true},
      {"centre left of and above the frame", 50, 0, -30, -25, 0, 90, 1, 1, 3, true},
      {"centre right of and below the frame", 50, 0, 340, 260, 0, 90, 1, 1, 3, true},
  };
  for (const Case& c : cases) {
    const bool noWave = c.height == 0, rotated = c.stretchAngle == 120 && c.radius > 0;
    const int32_t centreRow = static_cast<int32_t>(std::round(c.cy));
    const double centreY = centreRow + 0.5, centreX = std::round(c.cx) + 0.5;
    const double limit = c.radius > 0 && !noWave ? 2.0 * (c.radius / 100.0 * kW) + 1.0 : -1.0;
    int edgeMisses = 0;
    for (int pin = noWave ? kNoPin : kPinEdges; pin <= (noWave ? kPinVertical : kPinEdges); ++pin) {
      SCOPED_TRACE(::testing::Message() << c.what << ", pin mode " << pin);
      host->SetParamsToDefaults();
      host->SetQuality(c.lowQuality ? PF_Quality_LO : PF_Quality_HI);
      for (auto [param, value] : {std::pair{kRadius, c.radius},
                                  {kWaveHeight, c.height},
                                  {kWaveForm, c.waveForm * 1.0},
                                  {kStretch, c.stretch},
                                  {kStretchAngle, c.stretchAngle},
                                  {kTwirl, c.twirl * 1.0},
                                  {kAntialias, c.antialias * 1.0},
                                  {kPinMode, pin * 1.0}})
        SetShown(*host, param, value);
      host->SetPointPixels(kCenter, static_cast<PF_Fixed>(c.cx * kOne), static_cast<PF_Fixed>(c.cy * kOne));
      const bool leftHeld = pin == kPinEdges || pin == kPinLeft || pin == kPinHoriz;
      const bool topHeld = pin == kPinEdges || pin == kPinTop || pin == kPinVertical;
      Image out(kW, kH);
      ASSERT_EQ(Render(input, out), PF_Err_NONE);
      EXPECT_EQ(host->ErrorMessage(), "");
      int outside = 0, changedInside = 0, shifted = 0, wrong = 0;
      for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x) {
          const double d = std::hypot(x + 0.5 - centreX, y + 0.5 - centreY);
          const bool same = Same(out.At(y, x), input.At(y, x));
          if (d <= limit) {
            changedInside += !same;
            continue;
          }
          ++outside;
          if (same) continue;
          const bool edge = ((y == 0 && !topHeld) || (x == 0 && !leftHeld)) && Background(out.At(y, x));
          const bool shift = rotated && y > centreRow && RotatedShift(out, input, y, x);
          edgeMisses += edge;
          shifted += shift;
          if (!edge && !shift && ++wrong <= 5) ADD_FAILURE() << "pixel (" << y << ", " << x << ") at distance " << d;
        }
      EXPECT_EQ(wrong, 0);
      EXPECT_GT(outside, 1000);
      if (limit > 0) {
        EXPECT_GT(changedInside, 200);
      }
      if (rotated && noWave) {
        EXPECT_GT(shifted, kW * 50);
      }
    }
    if (noWave && !rotated && c.cx > 0) {
      EXPECT_GT(edgeMisses, 0) << c.what;  // the exception is real
    }
  }
}

}  // namespace
}  // namespace tarvo::host
