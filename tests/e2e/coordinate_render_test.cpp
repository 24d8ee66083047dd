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

#include "host.h"

namespace tarvo::host {
namespace {

enum Param { kRadius = 1, kCenter, kWaveHeight, kWaveForm = 6, kStretch = 9, kStretchAngle, kTwirl, kPinMode,
             kAntialias, kChaosBlend, kChaos };
enum PinMode { kNoPin = 1, kPinEdges, kPinLeft = 5, kPinTop, kPinHoriz = 10, kPinVertical };
constexpr int32_t kW = 300, kH = 220;

bool Same(const PF_Pixel& a, const PF_Pixel& b) {
  return a.alpha == b.alpha && a.red == b.red && a.green == b.green && a.blue == b.blue;
}
bool Background(const PF_Pixel& p) { return Same(p, PF_Pixel{0, 0, 0, 0}); }  // sampled outside the source

int CountDifferent(const Image& a, const Image& b) {
  int n = 0;
  for (int32_t y = 0; y < a.height; ++y)
    for (int32_t x = 0; x < a.width; ++x) n += !Same(a.At(y, x), b.At(y, x));
  return n;
}

// The rotated field writes the point reflection of each entry one grid
// column to the left of where it belongs, so below the centre row a pixel
// with no displacement reads its right-hand neighbour (or, in the last
// column, outside the source). That is the defined output.
bool RotatedShift(const Image& out, const Image& in, int32_t y, int32_t x) {
  return x + 1 < in.width ? Same(out.At(y, x), in.At(y, x + 1)) : Background(out.At(y, x));
}

class CoordinateRender : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int32_t y = 0; y < kH; ++y)
      for (int32_t x = 0; x < kW; ++x)
        input.At(y, x) = PF_Pixel{255, static_cast<uint8_t>(x & 255), static_cast<uint8_t>(y & 255),
                                  static_cast<uint8_t>((x >> 8) | (y >> 8) << 4)};
    std::string error;
    module = Module::LoadBuilt(&error);
    ASSERT_NE(module, nullptr) << error;
    host = std::make_unique<Host>(module->Entry());
    ASSERT_EQ(host->GlobalSetup(), PF_Err_NONE);
    ASSERT_EQ(host->ParamsSetup(), PF_Err_NONE);
  }

  // Defaults at the given quality, then values as the controls show them
  // (popups 1-based) and the centre in pixels when given.
  void Reset(bool lowQuality = false) {
    host->SetParamsToDefaults();
    host->SetQuality(lowQuality ? PF_Quality_LO : PF_Quality_HI);
  }
  void Set(int index, double shown) {
    PF_ParamDef& p = host->Param(index);
    const auto fixed = static_cast<PF_Fixed>(shown * 65536.0);
    if (p.param_type == PF_Param_POPUP) p.u.pd.value = static_cast<int32_t>(shown);
    else if (p.param_type == PF_Param_ANGLE) p.u.ad.value = fixed;
    else p.u.fd.value = fixed;
  }
  void SetCentre(double x, double y) {
    host->SetPointPixels(kCenter, static_cast<PF_Fixed>(x * 65536.0), static_cast<PF_Fixed>(y * 65536.0));
  }
  Image Render() {
    Image out(kW, kH);
    EXPECT_EQ(host->Render(input, out), PF_Err_NONE);
    EXPECT_EQ(host->ErrorMessage(), "");
    return out;
  }

  std::unique_ptr<Module> module;
  std::unique_ptr<Host> host;
  Image input{kW, kH};
};

// Beyond twice the radius nothing moves, whatever samples the inside: every
// pixel whose centre lies more than 2 × radius + 1 pixels from the ripple's
// centre point is the source pixel itself (the rotated field: or, below the
// centre, its neighbour), while the inside does change. Radius 0 moves no
// pixel at all in any branch, however high the wave.
TEST_F(CoordinateRender, PixelsTheRippleDoesNotReachAreExactCopies) {
  struct Case {
    const char* what;
    double radius, height, cx, cy;
    int waveForm, antialias;
    bool lowQuality;
    double stretch, stretchAngle;
  };
  const Case cases[] = {
      {"small, off centre", 10, 3.125, 80.4, 60.25, 1, 1, false, 0, 90},
      {"square wave, bilinear", 15, 3.125, 211, 97, 3, 2, false, 0, 90},
      {"spectrum 14, nearest", 15, 3.125, 211, 97, 22, 3, true, 0, 90},
      {"stretched along the rows", 12, 3.125, 100, 120, 1, 1, false, 10, 90},
      {"stretched along the columns", 12, 3.125, 100, 120, 1, 1, false, 10, 180},
      {"squeezed, rotated, nearest", 12, 3.125, 100, 120, 1, 3, true, -10, 120},
      {"stretched, rotated, nearest", 12, 3.125, 100, 120, 1, 3, true, 10, 120},
      {"radius 0, circular", 0, 25, 150, 110, 1, 1, false, 0, 90},
      {"radius 0, circular, rotated angle", 0, 25, 150, 110, 1, 1, false, 0, 120},
      {"radius 0, stretched", 0, 25, 150, 110, 1, 1, false, 10, 90},
      {"radius 0, rotated", 0, 25, 150, 110, 1, 1, false, 10, 120},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Reset(c.lowQuality);
    for (auto [param, value] : {std::pair{kRadius, c.radius}, {kWaveHeight, c.height}, {kWaveForm, c.waveForm * 1.0},
                                {kAntialias, c.antialias * 1.0}, {kStretch, c.stretch}, {kStretchAngle, c.stretchAngle}})
      Set(param, value);
    SetCentre(c.cx, c.cy);
    const Image out = Render();

    const bool rotated = c.stretchAngle == 120 && c.radius > 0;
    const int32_t centreRow = static_cast<int32_t>(std::round(c.cy));
    const double centreY = centreRow + 0.5, centreX = std::round(c.cx) + 0.5;
    const double limit = c.radius > 0 ? 2.0 * (c.radius / 100.0 * kW) + 1.0 : -1.0;
    int outside = 0, changedInside = 0, wrong = 0;
    for (int32_t y = 0; y < kH; ++y)
      for (int32_t x = 0; x < kW; ++x) {
        const double d = std::hypot(x + 0.5 - centreX, y + 0.5 - centreY);
        const bool same = Same(out.At(y, x), input.At(y, x));
        if (d <= limit) {
          changedInside += !same;
        } else if (++outside, !same && !(rotated && y > centreRow && RotatedShift(out, input, y, x))) {
          if (++wrong <= 5) ADD_FAILURE() << "pixel (" << y << ", " << x << ") at distance " << d;
        }
      }
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(outside, 1000);
    if (c.radius > 0) {
      EXPECT_GT(changedInside, 200);
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
  };
  const Case cases[] = {
      {"circular, whole frame", 60, 150, 110, 0, 90, 1},
      {"circular, hyper twirl", 60, 150, 110, 0, 90, 4},
      {"stretched along the rows", 40, 120, 90, 10, 90, 1},
      {"stretched along the columns", 40, 120, 90, 10, 180, 2},
      {"rotated 30", 40, 120, 90, 10, 120, 3},
      {"rotated 30, squeezed", 40, 120, 90, -10, 120, 1},
      {"centre left of and above the frame", 50, -30, -25, 0, 90, 1},
      {"centre right of and below the frame", 50, 340, 260, 0, 90, 1},
  };
  for (const Case& c : cases) {
    const bool rotated = c.stretchAngle == 120;
    int edgeMisses = 0;
    for (int pin = kNoPin; pin <= kPinVertical; ++pin) {
      SCOPED_TRACE(::testing::Message() << c.what << ", pin mode " << pin);
      Reset(true);
      for (auto [param, value] : {std::pair{kAntialias, 3.0}, {kWaveHeight, 0.0}, {kRadius, c.radius},
                                  {kStretch, c.stretch}, {kStretchAngle, c.stretchAngle}, {kTwirl, c.twirl * 1.0},
                                  {kPinMode, pin * 1.0}})
        Set(param, value);
      SetCentre(c.cx, c.cy);
      const bool leftHeld = pin == kPinEdges || pin == kPinLeft || pin == kPinHoriz;
      const bool topHeld = pin == kPinEdges || pin == kPinTop || pin == kPinVertical;
      const Image out = Render();
      int wrong = 0, shifted = 0;
      for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x) {
          if (Same(out.At(y, x), input.At(y, x))) continue;
          const bool edge = ((y == 0 && !topHeld) || (x == 0 && !leftHeld)) && Background(out.At(y, x));
          const bool shift = rotated && y > 90 && RotatedShift(out, input, y, x);
          edgeMisses += edge;
          shifted += shift;
          if (!edge && !shift && ++wrong <= 5) ADD_FAILURE() << "pixel (" << y << ", " << x << ")";
        }
      EXPECT_EQ(wrong, 0);
      if (rotated) {
        EXPECT_GT(shifted, kW * 50);
      }
    }
    if (!rotated && c.cx > 0) {
      EXPECT_GT(edgeMisses, 0) << c.what;  // the exception is real
    }
  }
}

// Antialias and host quality give three sampling modes: area only for
// "High" at high quality, nearest only for "Low" at lower quality, bilinear
// for the four other combinations.
TEST_F(CoordinateRender, AntialiasAndQualityChooseOneOfThreeSamplers) {
  Image renders[2][3];  // [high quality][antialias - 1]
  for (const bool high : {true, false})
    for (int antialias = 1; antialias <= 3; ++antialias) {
      Reset(!high);
      Set(kAntialias, antialias);
      Set(kWaveHeight, 10);
      renders[high][antialias - 1] = Render();
    }
  const Image &area = renders[1][0], &bilinear = renders[1][1], &nearest = renders[0][2];
  for (const Image* same : {&renders[1][2], &renders[0][0], &renders[0][1]}) EXPECT_EQ(CountDifferent(*same, bilinear), 0);
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
    for (auto [param, value] : {std::pair{kWaveHeight, 10.0}, {kWaveForm, waveForm * 1.0}, {kChaos, chaos},
                                {kChaosBlend, blend}})
      Set(param, value);
    return Render();
  };
  for (const int n : {1, 7, 14}) EXPECT_EQ(CountDifferent(render(3, n * 10, 100), render(8 + n, 0, 0)), 0) << n;
  const Image between = render(1, 133, 100);
  EXPECT_GT(CountDifferent(between, render(21, 0, 0)), 1000);
  EXPECT_GT(CountDifferent(between, render(22, 0, 0)), 1000);
  EXPECT_EQ(CountDifferent(render(4, 95, 0), render(4, 0, 0)), 0);
}

}  // namespace
}  // namespace tarvo::host
