// End to end through the module's exported entry point, on inputs whose
// pixels encode their own coordinates: red = x & 255, green = y & 255,
// blue = (x >> 8) | (y >> 8) << 4, alpha 255. Decoding an output pixel tells
// which source pixel it was sampled from (nearest sampling) or whether it is
// an untouched copy.
//
// Geometry as the render computes it: the centre grid position is the
// Center point in pixels rounded half away from zero, the ripple's centre
// point is half a pixel beyond it in both directions, and the ripple has
// faded to nothing at twice Radius × width pixels. In nearest sampling the
// output pixel (y, x) reads the source pixel whose top-left corner is
// nearest to where the grid point (y, x) was moved.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

#include "host.h"

namespace tarvo::host {
namespace {

enum Param {
  kRadius = 1, kCenter, kWaveHeight, kAngularHeight, kWaveWidth, kWaveForm, kFrequency, kIntensity,
  kStretch, kStretchAngle, kTwirl, kPinMode, kAntialias, kChaosBlend, kChaos, kPhase
};
enum PinMode { kNoPin = 1, kPinEdges, kPinCenter, kPinLeft = 5, kPinTop, kPinRight, kPinBottom, kPinHoriz = 10, kPinVertical };

PF_Pixel Encode(int32_t y, int32_t x) {
  return PF_Pixel{255, static_cast<uint8_t>(x & 255), static_cast<uint8_t>(y & 255),
                  static_cast<uint8_t>((x >> 8) | (y >> 8) << 4)};
}

struct Decoded {
  bool background;  // transparent black: sampled outside the source
  int32_t y, x;
};

Decoded Decode(const PF_Pixel& p) {
  if (p.alpha == 0 && p.red == 0 && p.green == 0 && p.blue == 0) return {true, 0, 0};
  return {false, p.green | (p.blue >> 4) << 8, p.red | (p.blue & 15) << 8};
}

Image CoordinateImage(int32_t w, int32_t h) {
  Image img(w, h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) img.At(y, x) = Encode(y, x);
  return img;
}

bool Same(const PF_Pixel& a, const PF_Pixel& b) {
  return a.alpha == b.alpha && a.red == b.red && a.green == b.green && a.blue == b.blue;
}

int CountDifferent(const Image& a, const Image& b) {
  int n = 0;
  for (int32_t y = 0; y < a.height; ++y)
    for (int32_t x = 0; x < a.width; ++x) n += !Same(a.At(y, x), b.At(y, x));
  return n;
}

class CoordinateRender : public ::testing::Test {
 protected:
  static constexpr int32_t kW = 300, kH = 220;  // coordinates above 255 exercise the high nibbles

  void SetUp() override {
    std::string error;
    module = Module::LoadBuilt(&error);
    ASSERT_NE(module, nullptr) << error;
    host = std::make_unique<Host>(module->Entry());
    ASSERT_EQ(host->GlobalSetup(), PF_Err_NONE);
    ASSERT_EQ(host->ParamsSetup(), PF_Err_NONE);
  }

  // Shown units: sliders and angles as the controls show them, popups 1-based.
  void Set(int index, double shown) {
    PF_ParamDef& p = host->Param(index);
    if (p.param_type == PF_Param_POPUP)
      p.u.pd.value = static_cast<int32_t>(shown);
    else if (p.param_type == PF_Param_ANGLE)
      p.u.ad.value = static_cast<PF_Fixed>(shown * 65536.0);
    else
      p.u.fd.value = static_cast<PF_Fixed>(shown * 65536.0);
  }
  void SetCentre(double x, double y) {
    host->SetPointPixels(kCenter, static_cast<PF_Fixed>(x * 65536.0), static_cast<PF_Fixed>(y * 65536.0));
  }
  // Nearest sampling: Antialias "Low" at the host's lower quality.
  void UseNearest() {
    host->SetQuality(PF_Quality_LO);
    Set(kAntialias, 3);
  }
  void Reset() {
    host->SetParamsToDefaults();
    host->SetQuality(PF_Quality_HI);
  }

  Image Render() {
    Image out(input.width, input.height);
    EXPECT_EQ(host->Render(input, out), PF_Err_NONE);
    EXPECT_EQ(host->ErrorMessage(), "");
    return out;
  }

  std::unique_ptr<Module> module;
  std::unique_ptr<Host> host;
  Image input = CoordinateImage(kW, kH);
};

// The rotated field writes the point reflection of each entry one grid
// column to the left of where it belongs (column rightShift − c for the
// offset whose reflection is column rightShift + 1 − c), so below the centre
// row a pixel with no displacement reads its right-hand neighbour. That is
// the defined output; these tests hold it to exactly that.
bool RotatedShift(const Image& out, const Image& in, int32_t y, int32_t x) {
  const PF_Pixel& p = out.At(y, x);
  if (x + 1 < in.width) return Same(p, in.At(y, x + 1));
  return Decode(p).background;  // grid column width rounds outside the source
}

// Beyond twice the radius nothing moves, whatever samples the inside: every
// pixel whose centre lies more than 2 × radius + 1 pixel from the ripple's
// centre point is the source pixel itself (the rotated field: or, below the
// centre, its right-hand neighbour), while the inside does change.
TEST_F(CoordinateRender, BeyondTwiceTheRadiusEveryPixelIsAnExactCopy) {
  struct Case {
    const char* what;
    double radius, cx, cy;  // Radius as shown; centre in pixels
    int waveForm, antialias;
    bool lowQuality;
    double stretch, stretchAngle;
  };
  const Case cases[] = {
      {"defaults", 25, 150, 110, 1, 1, false, 0, 90},
      {"small, off centre", 10, 80.4, 60.25, 1, 1, false, 0, 90},
      {"square wave, bilinear", 15, 211, 97, 3, 2, false, 0, 90},
      {"spectrum 14, nearest", 15, 211, 97, 22, 3, true, 0, 90},
      {"stretched along the rows", 12, 100, 120, 1, 1, false, 10, 90},
      {"stretched along the columns", 12, 100, 120, 1, 1, false, 10, 180},
      {"squeezed, rotated, nearest", 12, 100, 120, 1, 3, true, -10, 120},
      {"stretched, rotated, nearest", 12, 100, 120, 1, 3, true, 10, 120},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    Set(kRadius, c.radius);
    SetCentre(c.cx, c.cy);
    Set(kWaveForm, c.waveForm);
    Set(kAntialias, c.antialias);
    Set(kStretch, c.stretch);
    Set(kStretchAngle, c.stretchAngle);
    if (c.lowQuality) host->SetQuality(PF_Quality_LO);
    const Image out = Render();

    const bool rotated = c.stretchAngle == 120;
    const int32_t centreRow = static_cast<int32_t>(std::round(c.cy));
    const double centreY = centreRow + 0.5, centreX = std::round(c.cx) + 0.5;
    const double limit = 2.0 * (c.radius / 100.0 * kW) + 1.0;
    int outside = 0, changedInside = 0, wrong = 0;
    for (int32_t y = 0; y < kH; ++y)
      for (int32_t x = 0; x < kW; ++x) {
        const double d = std::hypot(x + 0.5 - centreX, y + 0.5 - centreY);
        const bool same = Same(out.At(y, x), input.At(y, x));
        if (d > limit) {
          ++outside;
          const bool ok = same || (rotated && y > centreRow && RotatedShift(out, input, y, x));
          if (!ok && ++wrong <= 5) ADD_FAILURE() << "pixel (" << y << ", " << x << ") at distance " << d;
        } else {
          changedInside += !same;
        }
      }
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(outside, 1000);
    EXPECT_GT(changedInside, 200);
  }
}

TEST_F(CoordinateRender, ARadiusOfZeroCopiesTheSourceInEveryBranch) {
  for (const double stretch : {0.0, 10.0}) {
    for (const double angle : {90.0, 120.0}) {
      Reset();
      Set(kRadius, 0);
      Set(kStretch, stretch);
      Set(kStretchAngle, angle);
      Set(kWaveHeight, 25);
      EXPECT_EQ(CountDifferent(Render(), input), 0) << stretch << " " << angle;
    }
  }
}

// With no wave height every grid point maps to itself up to the sine
// table's precision, which the nearest sample rounds away, in every field
// branch, twirl level and pin mode, and for centres outside the frame. Two
// defined exceptions: a point of grid row 0 or column 0 may land a hair
// outside the source and sample transparent black, unless a pin profile
// holds that edge with weight 1; and the rotated field's one-column shift
// below the centre.
TEST_F(CoordinateRender, NearestSamplingWithZeroWaveHeightsReproducesTheSource) {
  struct Case {
    const char* what;
    double radius, cx, cy, stretch, stretchAngle;
    int twirl;
    bool rotated;
  };
  const Case cases[] = {
      {"circular, whole frame", 60, 150, 110, 0, 90, 1, false},
      {"circular, hyper twirl", 60, 150, 110, 0, 90, 4, false},
      {"stretched along the rows", 40, 120, 90, 10, 90, 1, false},
      {"stretched along the columns", 40, 120, 90, 10, 180, 2, false},
      {"rotated 30", 40, 120, 90, 10, 120, 3, true},
      {"rotated 30, squeezed", 40, 120, 90, -10, 120, 1, true},
      {"centre left of and above the frame", 50, -30, -25, 0, 90, 1, false},
      {"centre right of and below the frame", 50, 340, 260, 0, 90, 1, false},
  };
  for (const Case& c : cases) {
    int edgeMisses = 0;
    for (int pin = kNoPin; pin <= kPinVertical; ++pin) {
      SCOPED_TRACE(::testing::Message() << c.what << ", pin mode " << pin);
      Reset();
      UseNearest();
      Set(kWaveHeight, 0);
      Set(kRadius, c.radius);
      SetCentre(c.cx, c.cy);
      Set(kStretch, c.stretch);
      Set(kStretchAngle, c.stretchAngle);
      Set(kTwirl, c.twirl);
      Set(kPinMode, pin);
      const bool leftHeld = pin == kPinEdges || pin == kPinLeft || pin == kPinHoriz;
      const bool topHeld = pin == kPinEdges || pin == kPinTop || pin == kPinVertical;
      const Image out = Render();
      int wrong = 0, shifted = 0;
      for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x) {
          if (Same(out.At(y, x), input.At(y, x))) continue;
          const bool edge = ((y == 0 && !topHeld) || (x == 0 && !leftHeld)) && Decode(out.At(y, x)).background;
          const bool shift = c.rotated && y > 90 && RotatedShift(out, input, y, x);
          edgeMisses += edge;
          shifted += shift;
          if (!edge && !shift && ++wrong <= 5)
            ADD_FAILURE() << "pixel (" << y << ", " << x << ")";
        }
      EXPECT_EQ(wrong, 0);
      if (c.rotated) {
        EXPECT_GT(shifted, kW * 50);
      }
    }
    if (!c.rotated && c.cx > 0) {
      EXPECT_GT(edgeMisses, 0) << c.what;  // the exception is real
    }
  }
}

// A purely radial wave moves every point along its ray from the centre, in
// every field branch and under pinning (pinning mixes a point with its own
// grid position, which lies on the same ray). The decoded source grid point
// must lie within rounding (√2 / 2 pixel) of the line through the centre,
// on the same side once the point is farther out than the wave can reach,
// and no farther along the ray than the wave height. Below the centre, the
// rotated field moves the right-hand neighbour's point (see RotatedShift).
TEST_F(CoordinateRender, ARadialWaveMovesPixelsAlongTheirRayOnly) {
  struct Case {
    const char* what;
    double stretch, stretchAngle;
    int pin;
  };
  const Case cases[] = {
      {"circular", 0, 90, kNoPin},
      {"circular, pin edges", 0, 90, kPinEdges},
      {"circular, pin center", 0, 90, kPinCenter},
      {"stretched along the rows", 10, 90, kNoPin},
      {"rotated 30", 10, 120, kNoPin},
  };
  const double centreY = 110.5, centreX = 150.5;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    UseNearest();
    Set(kRadius, 40);
    Set(kWaveHeight, 10);  // 10 % of half the width: 15 pixels at full wave
    Set(kStretch, c.stretch);
    Set(kStretchAngle, c.stretchAngle);
    Set(kPinMode, c.pin);
    // Along the stretch the radial displacement is scaled by the ellipse
    // factor, at most the stretch factor (2).
    const double reach = 15.0 * (c.stretch > 0 ? 2.0 : 1.0) + 1.0;
    const bool rotated = c.stretchAngle == 120;
    const Image out = Render();
    int moved = 0, failures = 0;
    for (int32_t y = 0; y < kH; ++y)
      for (int32_t x = 0; x < kW; ++x) {
        const Decoded s = Decode(out.At(y, x));
        if (s.background) continue;  // moved outside the source
        const int32_t gridX = rotated && y > 110 ? x + 1 : x;
        const double gx = gridX - centreX, gy = y - centreY, sx = s.x - centreX, sy = s.y - centreY;
        const double g = std::hypot(gx, gy), sd = std::hypot(sx, sy);
        const double offLine = std::fabs(gx * sy - gy * sx) / g;
        const bool sameSide = g <= reach || gx * sx + gy * sy > 0;
        const bool withinWave = std::fabs(sd - g) <= reach;
        if ((offLine > 0.75 || !sameSide || !withinWave) && ++failures <= 5)
          ADD_FAILURE() << "(" << y << ", " << x << ") came from (" << s.y << ", " << s.x << "): " << offLine
                        << " off the ray";
        moved += std::fabs(sd - g) > 2.0;
      }
    EXPECT_EQ(failures, 0);
    EXPECT_GT(moved, kW * kH / 10);
  }
}

// A purely angular wave without twirl turns every point about the centre:
// the source lies on the circle through the output point.
TEST_F(CoordinateRender, AnAngularWaveMovesPixelsAlongTheirCircleOnly) {
  for (const int twirl : {1, 2, 3, 4}) {
    SCOPED_TRACE(::testing::Message() << "twirl " << twirl);
    Reset();
    UseNearest();
    Set(kPinMode, kNoPin);
    Set(kRadius, 40);
    Set(kWaveHeight, 0);
    Set(kAngularHeight, 5);
    Set(kTwirl, twirl);
    const Image out = Render();
    int moved = 0, failures = 0;
    for (int32_t y = 0; y < kH; ++y)
      for (int32_t x = 0; x < kW; ++x) {
        const Decoded s = Decode(out.At(y, x));
        if (s.background) continue;  // turned out of the frame
        const double g = std::hypot(x - 150.5, y - 110.5), sd = std::hypot(s.x - 150.5, s.y - 110.5);
        if (std::fabs(sd - g) > 0.75 && ++failures <= 5)
          ADD_FAILURE() << "(" << y << ", " << x << ") came from (" << s.y << ", " << s.x << ")";
        moved += std::hypot(s.x - x, s.y - y) > 2.0;
      }
    EXPECT_EQ(failures, 0);
    EXPECT_GT(moved, kW * kH / 10);
  }
}

// Pinned low ends have weight 1 at grid column 0 and grid row 0, so the
// pixels of the first column or row read their own source pixel exactly,
// even under a ripple that covers the whole frame; the other modes leave
// that edge free to move.
TEST_F(CoordinateRender, PinModesHoldTheLeftColumnAndTopRowExactly) {
  struct Case {
    int pin;
    bool leftHeld, topHeld;
  };
  const Case cases[] = {
      {kNoPin, false, false},   {kPinEdges, true, true},      {kPinCenter, false, false},
      {4, false, false},        {kPinLeft, true, false},      {kPinTop, false, true},
      {kPinRight, false, false}, {kPinBottom, false, false},  {9, false, false},
      {kPinHoriz, true, false}, {kPinVertical, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "pin mode " << c.pin);
    Reset();
    UseNearest();
    Set(kRadius, 60);
    Set(kWaveHeight, 10);
    Set(kAngularHeight, 5);
    Set(kPinMode, c.pin);
    const Image out = Render();
    int leftMoved = 0, topMoved = 0;
    for (int32_t y = 0; y < kH; ++y) leftMoved += !Same(out.At(y, 0), input.At(y, 0));
    for (int32_t x = 0; x < kW; ++x) topMoved += !Same(out.At(0, x), input.At(0, x));
    if (c.leftHeld)
      EXPECT_EQ(leftMoved, 0);
    else
      EXPECT_GT(leftMoved, kH / 4);
    if (c.topHeld)
      EXPECT_EQ(topMoved, 0);
    else
      EXPECT_GT(topMoved, kW / 4);
  }
}

// Antialias and host quality give three sampling modes: area only for
// "High" at high quality, nearest only for "Low" at lower quality, bilinear
// for the four other combinations.
TEST_F(CoordinateRender, AntialiasAndQualityChooseOneOfThreeSamplers) {
  Image renders[2][3];
  for (const bool high : {true, false})
    for (int antialias = 1; antialias <= 3; ++antialias) {
      Reset();
      host->SetQuality(high ? PF_Quality_HI : PF_Quality_LO);
      Set(kAntialias, antialias);
      Set(kWaveHeight, 10);
      renders[high][antialias - 1] = Render();
    }
  const Image& area = renders[1][0];
  const Image& bilinear = renders[1][1];
  const Image& nearest = renders[0][2];
  EXPECT_EQ(CountDifferent(renders[1][2], bilinear), 0);
  EXPECT_EQ(CountDifferent(renders[0][0], bilinear), 0);
  EXPECT_EQ(CountDifferent(renders[0][1], bilinear), 0);
  EXPECT_GT(CountDifferent(area, bilinear), 1000);
  EXPECT_GT(CountDifferent(area, nearest), 1000);
  EXPECT_GT(CountDifferent(nearest, bilinear), 1000);
}

// Chaos Blend 100 at a whole Chaos position n × 10 renders exactly as
// WaveForm "Spectrum n"; at position 13.3 it lies between Spectrum 13 and
// 14 and is neither. Chaos Blend 0 leaves WaveForm alone whatever Chaos is.
TEST_F(CoordinateRender, ChaosAtWholePositionsIsTheSpectrumItself) {
  auto render = [&](int waveForm, double chaos, double blend) {
    Reset();
    Set(kWaveHeight, 10);
    Set(kWaveForm, waveForm);
    Set(kChaos, chaos);
    Set(kChaosBlend, blend);
    return Render();
  };
  for (const int n : {1, 7, 14}) {
    EXPECT_EQ(CountDifferent(render(3, n * 10, 100), render(8 + n, 0, 0)), 0) << "Spectrum " << n;
  }
  const Image between = render(1, 133, 100);
  EXPECT_GT(CountDifferent(between, render(21, 0, 0)), 1000);
  EXPECT_GT(CountDifferent(between, render(22, 0, 0)), 1000);
  EXPECT_EQ(CountDifferent(render(4, 95, 0), render(4, 0, 0)), 0);
}

}  // namespace
}  // namespace tarvo::host
