#include "demo_image.h"

#include <algorithm>
#include <cmath>

namespace tarvo::cli {

namespace {

constexpr double kPi = 3.14159265358979323846;

// Hue in turns (0..1) at full value and saturation s, channels 0..1.
void Hsv(double hue, double s, double rgb[3]) {
  const double h = (hue - std::floor(hue)) * 6.0;
  const int sector = static_cast<int>(h) % 6;
  const double f = h - std::floor(h);
  const double p = 1.0 - s, q = 1.0 - s * f, t = 1.0 - s * (1.0 - f);
  const double table[6][3] = {{1, t, p}, {q, 1, p}, {p, 1, t}, {p, q, 1}, {t, p, 1}, {1, p, q}};
  for (int i = 0; i < 3; ++i) rgb[i] = table[sector][i];
}

uint8_t Byte(double v) { return static_cast<uint8_t>(std::clamp(v, 0.0, 1.0) * 255.0 + 0.5); }

}  // namespace

host::Image MakeDemoImage(int32_t width, int32_t height) {
  host::Image img(width, height);
  const double cx = width / 2.0, cy = height / 2.0;
  const double small = std::min(width, height);
  const double fade = std::max(1.0, small * 0.08);  // width of the soft alpha edge
  // Zones of fine detail, as fractions of the frame.
  const int32_t stripeL = width * 62 / 100, stripeR = width * 90 / 100;
  const int32_t stripeT = height * 68 / 100, stripeB = height * 86 / 100;
  const double eyeX = width * 0.25, eyeY = height * 0.3, eyeR = small * 0.14;

  for (int32_t y = 0; y < height; ++y) {
    PF_Pixel* row = img.Row(y);
    for (int32_t x = 0; x < width; ++x) {
      const double dx = x + 0.5 - cx, dy = y + 0.5 - cy;
      double rgb[3];
      Hsv(std::atan2(dy, dx) / (2 * kPi) + std::hypot(dx, dy) / (small * 1.5), 0.8, rgb);
      const double checker = ((x / 32 + y / 32) % 2) ? 1.0 : 0.82;
      double k = checker;
      if (x % 16 == 0 || y % 16 == 0) k *= 0.3;  // one-pixel grid
      for (double& c : rgb) c *= k;

      if (x >= stripeL && x < stripeR && y >= stripeT && y < stripeB) {
        const double v = (x % 2) ? 1.0 : 0.0;  // single-pixel stripes
        rgb[0] = rgb[1] = rgb[2] = v;
      }
      const double er = std::hypot(x + 0.5 - eyeX, y + 0.5 - eyeY);
      if (er < eyeR && static_cast<int>(er / 3.0) % 2 == 0) {  // rings three pixels wide
        rgb[0] = 1.0 - rgb[0];
        rgb[1] = 1.0 - rgb[1];
        rgb[2] = 1.0 - rgb[2];
      }

      const double edge = std::min({x + 0.5, y + 0.5, width - x - 0.5, height - y - 0.5});
      const double a = std::clamp(edge / fade, 0.0, 1.0);
      PF_Pixel& p = row[x];
      p.alpha = Byte(a * a * (3.0 - 2.0 * a));
      p.red = Byte(rgb[0]);
      p.green = Byte(rgb[1]);
      p.blue = Byte(rgb[2]);
    }
  }
  return img;
}

}  // namespace tarvo::cli
