#include "image_io.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include <filesystem>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#endif
#endif

namespace tarvo::cli {

namespace OIIO = OIIO_NAMESPACE;
namespace fs = std::filesystem;

namespace {

// The library stacks messages a line each, the most specific first; ours
// are one line.
std::string OneLine(std::string s) {
  const size_t end = s.find_first_of("\r\n");
  if (end != std::string::npos) s.resize(end);
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s.empty() ? "unknown error" : s;
}

// Some format libraries print their own complaints on stderr; the image
// library reports the same errors to us, so they are silenced while it works.
class QuietStderr {
 public:
  QuietStderr() {
    fflush(stderr);
    saved_ = dup(STDERR_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    if (saved_ >= 0 && null >= 0) dup2(null, STDERR_FILENO);
    if (null >= 0) close(null);
  }
  ~QuietStderr() {
    fflush(stderr);
    if (saved_ >= 0) {
      dup2(saved_, STDERR_FILENO);
      close(saved_);
    }
  }
  QuietStderr(const QuietStderr&) = delete;
  QuietStderr& operator=(const QuietStderr&) = delete;

 private:
  int saved_ = -1;
};

// The temporary file of the write in progress, for the interrupt handler.
char g_pendingPath[4096];
volatile sig_atomic_t g_pending = 0;

void OnInterrupt(int sig) {
  if (g_pending) unlink(g_pendingPath);
  signal(sig, SIG_DFL);
  raise(sig);
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARVO_LEAK_CHECKED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define TARVO_LEAK_CHECKED 1
#endif

// OpenImageIO 2.4's PNG reader loses an error string when libpng abandons a
// truncated file. Under the leak checker, what the image library allocates
// while reading is its own business; our code allocates nothing meanwhile.
class LibraryAllocations {
 public:
#if defined(TARVO_LEAK_CHECKED)
  LibraryAllocations() { __lsan_disable(); }
  ~LibraryAllocations() { __lsan_enable(); }
#else
  LibraryAllocations() = default;
#endif
  LibraryAllocations(const LibraryAllocations&) = delete;
  LibraryAllocations& operator=(const LibraryAllocations&) = delete;
};

}  // namespace

std::string CheckImageSize(int32_t width, int32_t height) {
  if (width <= 0 || height <= 0) return "has no pixels (" + std::to_string(width) + "x" + std::to_string(height) + ")";
  if (width > kMaxImageWidth || height > kMaxImageHeight)
    return "is " + std::to_string(width) + "x" + std::to_string(height) + ", larger than the effect allows (" +
           std::to_string(kMaxImageWidth) + "x" + std::to_string(kMaxImageHeight) + " at most)";
  return "";
}

bool ReadImage(const std::string& path, host::Image* out, std::string* error) {
  std::error_code ec;
  if (!fs::exists(path, ec)) {
    *error = "cannot read " + path + ": no such file";
    return false;
  }
  if (fs::is_directory(path, ec)) {
    *error = "cannot read " + path + ": it is a directory";
    return false;
  }
  QuietStderr quiet;
  [[maybe_unused]] LibraryAllocations library;
  OIIO::ImageSpec config;
  config.attribute("oiio:UnassociatedAlpha", 1);
  auto in = OIIO::ImageInput::open(path, &config);
  if (!in) {
    *error = "cannot read " + path + ": " + OneLine(OIIO::geterror());
    return false;
  }
  const OIIO::ImageSpec format = in->spec_dimensions(0);  // sizes, channels and alpha: all this needs
  if (format.depth > 1) {
    *error = "cannot read " + path + ": volume images are not supported";
    return false;
  }
  if (const std::string bad = CheckImageSize(format.width, format.height); !bad.empty()) {
    *error = path + " " + bad;
    return false;
  }
  const int nch = format.nchannels;
  if (nch < 1) {
    *error = "cannot read " + path + ": it has no channels";
    return false;
  }
  const size_t w = static_cast<size_t>(format.width), h = static_cast<size_t>(format.height);
  // Every channel is read at 8 bits: more than the largest frame's four
  // channels hold is refused before it is allocated.
  if (w * h * static_cast<size_t>(nch) > static_cast<size_t>(kMaxImageWidth) * kMaxImageHeight * 4) {
    *error = path + " is " + std::to_string(w) + "x" + std::to_string(h) + " with " + std::to_string(nch) +
             " channels, more than the effect allows (4 channels of 4095x32767 at most)";
    return false;
  }
  std::vector<uint8_t> pixels(w * h * static_cast<size_t>(nch));
  if (!in->read_image(0, 0, 0, nch, OIIO::TypeDesc::UINT8, pixels.data())) {
    *error = "cannot read " + path + ": " + OneLine(in->geterror());
    return false;
  }
  in->close();

  // Channels: gray (1), gray + alpha (2), colour (3), colour + alpha (4 or more).
  int alpha = format.alpha_channel;
  if (alpha < 0 && (nch == 2 || nch >= 4)) alpha = nch == 2 ? 1 : 3;
  const bool gray = nch <= 2;
  host::Image img(format.width, format.height);
  for (size_t y = 0; y < h; ++y) {
    const uint8_t* s = pixels.data() + y * w * static_cast<size_t>(nch);
    PF_Pixel* d = img.Row(static_cast<int32_t>(y));
    for (size_t x = 0; x < w; ++x, s += nch) {
      d[x].red = s[0];
      d[x].green = gray ? s[0] : s[1];
      d[x].blue = gray ? s[0] : s[2];
      d[x].alpha = alpha >= 0 ? s[alpha] : 255;
    }
  }
  *out = std::move(img);
  return true;
}

bool CanWriteFormat(const std::string& path, std::string* error) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) {
    const std::string ext = fs::path(path).extension().string();
    OIIO::geterror();
    *error = "cannot write " + path + ": " +
             (ext.empty() ? std::string("no file extension to choose a format by") : "no image format for \"" + ext + "\"");
    return false;
  }
  return true;
}

namespace {
// zlib level of PNG output. 1 writes a frame about twice as fast as the
// library's default of 6 for files a sixth or so larger: in a sequence the
// writing, not the effect, is most of a frame's time.
int g_pngCompression = kDefaultPngCompression;
}  // namespace

void SetPngCompression(int level) { g_pngCompression = level; }

bool WriteImage(const std::string& path, const host::Image& image, std::string* error) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) {
    OIIO::geterror();
    return CanWriteFormat(path, error);
  }
  const bool alpha = out->supports("alpha");
  const int nch = alpha ? 4 : 3;
  OIIO::ImageSpec format(image.width, image.height, nch, OIIO::TypeDesc::UINT8);
  format.attribute("png:compressionLevel", g_pngCompression);  // other formats ignore it
  if (alpha) {
    format.alpha_channel = 3;
    format.attribute("oiio:UnassociatedAlpha", 1);
  }
  const size_t w = static_cast<size_t>(image.width), h = static_cast<size_t>(image.height);
  std::vector<uint8_t> pixels(w * h * static_cast<size_t>(nch));
  for (size_t y = 0; y < h; ++y) {
    const PF_Pixel* s = image.Row(static_cast<int32_t>(y));
    uint8_t* d = pixels.data() + y * w * static_cast<size_t>(nch);
    for (size_t x = 0; x < w; ++x, d += nch) {
      d[0] = s[x].red;
      d[1] = s[x].green;
      d[2] = s[x].blue;
      if (alpha) d[3] = s[x].alpha;
    }
  }

  // A hidden name beside the output: same file system, so the rename is atomic.
  const fs::path target(path);
  const fs::path dir = target.has_parent_path() ? target.parent_path() : fs::path(".");
  const fs::path temp = dir / ("." + target.filename().string() + ".tarvo-" + std::to_string(getpid()) + ".tmp");
  const std::string tempName = temp.string();
  if (tempName.size() >= sizeof g_pendingPath) {
    *error = "cannot write " + path + ": the path is too long";
    return false;
  }
  std::error_code dirError;
  if (!fs::is_directory(dir, dirError)) {
    *error = "cannot write " + path + ": directory " + dir.string() + " does not exist";
    return false;
  }
  memcpy(g_pendingPath, tempName.c_str(), tempName.size() + 1);
  g_pending = 1;
  auto discard = [&](std::string why) {
    // Name the file the user asked for, not the temporary one.
    for (size_t at; (at = why.find(tempName)) != std::string::npos;) why.replace(at, tempName.size(), path);
    out.reset();
    std::error_code ec;
    fs::remove(temp, ec);
    g_pending = 0;
    *error = "cannot write " + path + ": " + why;
    return false;
  };
  QuietStderr quiet;
  if (!out->open(tempName, format)) return discard(OneLine(out->geterror()));
  if (!out->write_image(OIIO::TypeDesc::UINT8, pixels.data())) return discard(OneLine(out->geterror()));
  if (!out->close()) return discard(OneLine(out->geterror()));
  out.reset();
  std::error_code ec;
  fs::rename(temp, target, ec);
  if (ec) return discard(ec.message());
  g_pending = 0;
  return true;
}

void InstallInterruptCleanup() {
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) signal(sig, OnInterrupt);
}

void UseSingleThreadedImageLibrary() { OIIO::attribute("threads", 1); }

}  // namespace tarvo::cli
