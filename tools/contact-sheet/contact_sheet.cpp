// Draws the contact sheet: every golden case rendered over the test
// pattern at a larger size, composited over a checkerboard (so that
// transparency shows), captioned with the built-in font.
//
//   tarvo_contact_sheet OUTPUT.png [--columns N] [--tile WxH]
//
// `cmake --build build --target contact-sheet` remakes docs/contact-sheet.png.
#include <OpenImageIO/imagebuf.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bitmap_font.h"
#include "golden_support.h"

namespace tarvo::golden {
namespace {

constexpr int32_t kPad = 8, kCaption = 12, kTitle = 22;
const PF_Pixel kBackground{255, 30, 30, 30};
const PF_Pixel kText{255, 230, 230, 230};

// The sheet is opaque: RGB at the strongest compression.
bool WriteSheet(const std::string& path, const host::Image& sheet, std::string* error) {
  const RgbaImage rgba = ToRgba(sheet);
  std::vector<uint8_t> rgb;
  for (size_t i = 0; i < rgba.bytes.size(); ++i)
    if (i % 4 != 3) rgb.push_back(rgba.bytes[i]);
  OIIO::ImageSpec layout(sheet.width, sheet.height, 3, OIIO::TypeDesc::UINT8);
  layout.attribute("png:compressionLevel", 9);
  const OIIO::ImageBuf buf(layout, rgb.data());
  if (buf.write(path)) return true;
  *error = path + ": " + buf.geterror();
  return false;
}

// tile over a checkerboard of 8-pixel squares, at (top, left) of sheet.
void Composite(host::Image& sheet, const host::Image& tile, int32_t top, int32_t left) {
  for (int32_t y = 0; y < tile.height; ++y)
    for (int32_t x = 0; x < tile.width; ++x) {
      const PF_Pixel& p = tile.At(y, x);
      const int back = ((x >> 3) + (y >> 3)) & 1 ? 150 : 100;
      auto mix = [&](int c) { return static_cast<uint8_t>((c * p.alpha + back * (255 - p.alpha) + 127) / 255); };
      sheet.At(top + y, left + x) = PF_Pixel{255, mix(p.red), mix(p.green), mix(p.blue)};
    }
}

int Run(int argc, char** argv) {
  std::string output;
  int columns = 7;
  int32_t tileW = 136, tileH = 102;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--columns" && i + 1 < argc) {
      columns = std::atoi(argv[++i]);
    } else if (a == "--tile" && i + 1 < argc) {
      if (std::sscanf(argv[++i], "%dx%d", &tileW, &tileH) != 2) tileW = 0;
    } else if (output.empty() && !a.empty() && a[0] != '-') {
      output = a;
    } else {
      output.clear();
      break;
    }
  }
  if (output.empty() || columns < 1 || columns > 32 || tileW < 32 || tileH < 24 || tileW > 1024 || tileH > 1024) {
    std::fprintf(stderr, "usage: tarvo_contact_sheet OUTPUT.png [--columns 1-32] [--tile WxH, 32x24 to 1024x1024]\n");
    return 2;
  }

  std::string error;
  const std::vector<Case>& cases = Cases();
  const int rows = (static_cast<int>(cases.size()) + columns - 1) / columns;
  const int32_t cellW = tileW + kPad, cellH = tileH + kCaption + kPad;
  host::Image sheet(kPad + columns * cellW, kTitle + rows * cellH);
  for (int32_t y = 0; y < sheet.height; ++y)
    for (int32_t x = 0; x < sheet.width; ++x) sheet.At(y, x) = kBackground;
  DrawText(sheet, 8, kPad, "Tarvo FX Ripple: one render per family of settings (the golden cases)", kText);

  const host::Image input = TestPattern(tileW, tileH);
  for (size_t i = 0; i < cases.size(); ++i) {
    host::Image out;
    if (!Render(cases[i], input, &out, &error)) {
      std::fprintf(stderr, "tarvo_contact_sheet: %s: %s\n", cases[i].name.c_str(), error.c_str());
      return 1;
    }
    const int32_t top = kTitle + static_cast<int32_t>(i / columns) * cellH;
    const int32_t left = kPad + static_cast<int32_t>(i % columns) * cellW;
    Composite(sheet, out, top, left);
    std::string label = cases[i].label;
    const size_t fit = static_cast<size_t>((tileW + 1) / kGlyphAdvance);
    if (label.size() > fit) label.resize(fit);
    DrawText(sheet, top + tileH + 3, left + (tileW - TextWidth(label)) / 2, label, kText);
  }
  if (!WriteSheet(output, sheet, &error)) {
    std::fprintf(stderr, "tarvo_contact_sheet: %s\n", error.c_str());
    return 1;
  }
  std::printf("%s: %zu renders, %dx%d\n", output.c_str(), cases.size(), sheet.width, sheet.height);
  return 0;
}

}  // namespace
}  // namespace tarvo::golden

int main(int argc, char** argv) { return tarvo::golden::Run(argc, argv); }
