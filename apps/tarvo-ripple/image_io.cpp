#include "image_io.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

#include <algorithm>
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

TempFileSlot g_ownSlot;
TempFileSlot* volatile g_slot = &g_ownSlot;

void OnInterrupt(int sig) {
  RemoveTempFile(g_slot);
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

namespace {

// True when a JPEG file's markers run on to its end-of-image marker. A JPEG
// cut short decodes with only a warning, which the image library keeps to
// itself, and the missing part grey. Entropy-coded data never holds a
// marker other than restarts (0xFF is stuffed as FF 00), so the walk
// follows segment lengths and scans, never the data of embedded thumbnails.
bool JpegComplete(const std::string& path) {
  FILE* f = fopen(path.c_str(), "rb");
  if (!f) return false;
  auto next = [f] { return getc_unlocked(f); };
  bool complete = false;
  int c = next();
  if (c != 0xFF || next() != 0xD8) {
    fclose(f);
    return true;  // not a JPEG stream at all: the decoder says so
  }
  for (c = next();;) {
    while (c != 0xFF && c != EOF) c = next();  // bytes between segments are skipped, as the decoder does
    if (c == EOF) break;
    int marker;
    do marker = next();
    while (marker == 0xFF);
    if (marker == EOF) break;
    if (marker == 0xD9) {
      complete = true;
      break;
    }
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
      c = next();
      continue;
    }
    const int hi = next(), lo = next();
    if (lo == EOF) break;
    const long length = hi << 8 | lo;
    if (length < 2 || fseek(f, length - 2, SEEK_CUR) != 0) break;
    c = next();
    if (marker != 0xDA) continue;
    // Scan data runs to the next marker that is neither stuffing nor a restart.
    while (c != EOF) {
      if (c != 0xFF) {
        c = next();
        continue;
      }
      int m;
      do m = next();
      while (m == 0xFF);
      if (m == 0x00 || (m >= 0xD0 && m <= 0xD7)) {
        c = next();
        continue;
      }
      if (m != EOF) ungetc(m, f);
      c = m == EOF ? EOF : 0xFF;
      break;
    }
  }
  fclose(f);
  return complete;
}

// The most pixels one byte of a file can describe: a header declaring more
// than its file's size allows is refused before any frame-sized buffer.
// PNG: deflate expands a byte to at most 1032, each of 8 one-bit pixels.
// Other formats: well above any codec's best case.
double MaxPixelsPerByte(const char* format) { return strcmp(format, "png") == 0 ? 8256.0 : 1048576.0; }

const char* FileKind(mode_t mode) {
  if (S_ISFIFO(mode)) return "a pipe";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  if (S_ISSOCK(mode)) return "a socket";
  return "not a regular file";
}

// 8-bit straight RGBA of one row of nch channels; associated colour (float)
// is divided by its alpha first.
void ToPixels(const uint8_t* s, int nch, int alpha, size_t w, PF_Pixel* d) {
  const bool gray = nch <= 2;
  for (size_t x = 0; x < w; ++x, s += nch) {
    d[x].red = s[0];
    d[x].green = gray ? s[0] : s[1];
    d[x].blue = gray ? s[0] : s[2];
    d[x].alpha = alpha >= 0 ? s[alpha] : 255;
  }
}
uint8_t ToByte(float v) { return static_cast<uint8_t>(std::clamp(v, 0.0f, 1.0f) * 255.0f + 0.5f); }
void UnassociateToPixels(const float* s, int nch, int alpha, size_t w, PF_Pixel* d) {
  const bool gray = nch <= 2;
  for (size_t x = 0; x < w; ++x, s += nch) {
    const float a = s[alpha];
    const float k = a > 0.0f ? 1.0f / a : 1.0f;  // alpha 0 keeps its colour as stored
    d[x].red = ToByte(s[0] * k);
    d[x].green = ToByte((gray ? s[0] : s[1]) * k);
    d[x].blue = ToByte((gray ? s[0] : s[2]) * k);
    d[x].alpha = ToByte(a);
  }
}

}  // namespace

bool ReadImage(const std::string& path, host::Image* out, std::string* error) {
  auto fail = [&](const std::string& why) {
    *error = "cannot read " + path + ": " + why;
    return false;
  };
  struct stat file {};
  if (stat(path.c_str(), &file) != 0) return fail(errno == ENOENT ? "no such file" : strerror(errno));
  if (S_ISDIR(file.st_mode)) return fail("it is a directory");
  // Only regular files: a pipe or a device could block or never end.
  if (!S_ISREG(file.st_mode)) return fail(std::string("it is ") + FileKind(file.st_mode) + ", not a regular file");
  QuietStderr quiet;
  [[maybe_unused]] LibraryAllocations library;
  try {
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    auto in = OIIO::ImageInput::open(path, &config);
    if (!in) return fail(OneLine(OIIO::geterror()));
    const OIIO::ImageSpec& format = in->spec();
    if (format.depth > 1) return fail("volume images are not supported");
    if (const std::string bad = CheckImageSize(format.width, format.height); !bad.empty()) {
      *error = path + " " + bad;
      return false;
    }
    const int nch = format.nchannels;
    if (nch < 1) return fail("it has no channels");
    const size_t w = static_cast<size_t>(format.width), h = static_cast<size_t>(format.height);
    // Every channel is read at 8 bits: more than the largest frame's four
    // channels hold is refused before it is allocated.
    if (w * h * static_cast<size_t>(nch) > static_cast<size_t>(kMaxImageWidth) * kMaxImageHeight * 4) {
      *error = path + " is " + std::to_string(w) + "x" + std::to_string(h) + " with " + std::to_string(nch) +
               " channels, more than the effect allows (4 channels of 4095x32767 at most)";
      return false;
    }
    if (static_cast<double>(w) * static_cast<double>(h) >
        static_cast<double>(file.st_size) * MaxPixelsPerByte(in->format_name()))
      return fail("its header declares " + std::to_string(w) + "x" + std::to_string(h) + " pixels, more than " +
                  std::to_string(file.st_size) + " bytes can hold");
    if (strcmp(in->format_name(), "jpeg") == 0 && !JpegComplete(path))
      return fail("the file ends before its JPEG data does (cut short?)");

    // Channels: gray (1), gray + alpha (2), colour (3), colour + alpha (4 or more).
    int alpha = format.alpha_channel;
    if (alpha < 0 && (nch == 2 || nch >= 4)) alpha = nch == 2 ? 1 : 3;
    // Stored associated (OpenEXR always, TIFF unless marked unassociated):
    // colour divided by alpha, in floats. The other formats store straight
    // colour and give it as stored.
    const std::string kind = in->format_name();
    const bool associated = alpha >= 0 && (kind == "openexr" ||
                                           (kind == "tiff" && format.get_int_attribute("oiio:UnassociatedAlpha") != 1));
    const OIIO::TypeDesc type = associated ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8;

    // Rows in strips, so that a file whose data runs out fails before the
    // frame is allocated; tiled files in one piece (OpenImageIO 2.4's IFF
    // reader cannot give scanlines of its tiles).
    const bool tiled = format.tile_width > 0;
    const size_t stripRows = tiled ? h
                                   : std::max<size_t>(1,
                                                      std::min<size_t>(h, (size_t{1} << 22) / (w * nch * type.size())));
    std::vector<uint8_t> strip(stripRows * w * static_cast<size_t>(nch) * type.size());
    host::Image img;
    for (size_t y0 = 0; y0 < h; y0 += stripRows) {
      const size_t rows = std::min(stripRows, h - y0);
      const int yb = format.y + static_cast<int>(y0);
      if (!(tiled ? in->read_image(0, 0, 0, nch, type, strip.data())
                  : in->read_scanlines(0, 0, yb, yb + static_cast<int>(rows), format.z, 0, nch, type, strip.data())))
        return fail(OneLine(in->geterror()));
      if (y0 == 0) img = host::Image(format.width, format.height);
      for (size_t r = 0; r < rows; ++r) {
        PF_Pixel* d = img.Row(static_cast<int32_t>(y0 + r));
        const uint8_t* s = strip.data() + r * w * static_cast<size_t>(nch) * type.size();
        if (associated)
          UnassociateToPixels(reinterpret_cast<const float*>(s), nch, alpha, w, d);
        else
          ToPixels(s, nch, alpha, w, d);
      }
    }
    in->close();
    *out = std::move(img);
    return true;
  } catch (const std::bad_alloc&) {
    *error = "out of memory reading " + path;
    return false;
  }
}

namespace {
// Every file goes through a checked file proxy; a writer that cannot take
// one, or writes no file through it (null; jpeg2000 in OpenImageIO 2.4
// leaves an empty file), is not offered.
bool Writable(OIIO::ImageOutput& out) {
  return out.supports("ioproxy") && strcmp(out.format_name(), "null") != 0 &&
         strcmp(out.format_name(), "jpeg2000") != 0;
}
}  // namespace

bool CanWriteFormat(const std::string& path, std::string* error) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) {
    const std::string ext = fs::path(path).extension().string();
    OIIO::geterror();
    *error = "cannot write " + path + ": " +
             (ext.empty() ? std::string("no file extension to choose a format by")
                          : "no image format for \"" + ext + "\"");
    return false;
  }
  if (!Writable(*out)) {
    *error = "cannot write " + path + ": writing " + out->format_name() + " files is not supported";
    return false;
  }
  return true;
}

bool SameFile(const std::string& a, const std::string& b) {
  std::error_code ec;
  return fs::equivalent(a, b, ec);
}

void UseTempFileSlot(TempFileSlot* slot) { g_slot = slot ? slot : &g_ownSlot; }

void RemoveTempFile(TempFileSlot* slot) {
  if (slot->active) unlink(slot->path);
  slot->active = 0;
}

namespace {
// zlib level of PNG output. 1 writes a frame about twice as fast as the
// library's default of 6 for files a sixth or so larger: in a sequence the
// writing, not the effect, is most of a frame's time.
int g_pngCompression = kDefaultPngCompression;
}  // namespace

void SetPngCompression(int level) { g_pngCompression = level; }

namespace {

// The encoders' file: remembers the first failed write and tells the
// encoder every write went through, since some encoders ignore what their
// writes return and others (libjpeg's default error handler) end the
// process on a failure. The writer checks Error() once the encoder is done.
// Not a "file" proxy, so that no encoder bypasses it through a FILE*.
class CheckedFile final : public OIIO::Filesystem::IOProxy {
 public:
  explicit CheckedFile(int fd) : IOProxy("", Write), fd_(fd) {}
  const char* proxytype() const override { return "checked"; }
  size_t write(const void* buf, size_t size) override {
    pwrite(buf, size, m_pos);
    m_pos += static_cast<int64_t>(size);
    return size;
  }
  size_t pwrite(const void* buf, size_t size, int64_t offset) override {
    const char* p = static_cast<const char*>(buf);
    for (size_t done = 0; done < size && !error_;) {
      const ssize_t n = ::pwrite(fd_, p + done, size - done, static_cast<off_t>(offset) + static_cast<off_t>(done));
      if (n > 0)
        done += static_cast<size_t>(n);
      else if (n == 0)
        error_ = EIO;
      else if (errno != EINTR)
        error_ = errno;
    }
    end_ = std::max(end_, offset + static_cast<int64_t>(size));
    return size;
  }
  size_t pread(void* buf, size_t size, int64_t offset) override {
    const ssize_t n = ::pread(fd_, buf, size, static_cast<off_t>(offset));
    return n > 0 ? static_cast<size_t>(n) : 0;
  }
  size_t read(void* buf, size_t size) override {
    const size_t n = pread(buf, size, m_pos);
    m_pos += static_cast<int64_t>(n);
    return n;
  }
  size_t size() const override { return static_cast<size_t>(end_); }
  int Error() const { return error_; }

 private:
  int fd_;
  int64_t end_ = 0;
  int error_ = 0;
};

// The file a write replaces: the path itself, or where its symbolic links lead.
fs::path WriteTarget(fs::path p) {
  for (int hops = 0; hops < 40; ++hops) {
    std::error_code ec;
    if (!fs::is_symlink(p, ec)) break;
    const fs::path link = fs::read_symlink(p, ec);
    if (ec) break;
    p = link.is_absolute() ? link : p.parent_path() / link;
  }
  return p;
}

// Why a file cannot be created in dir, for open's errno.
std::string CreateError(const fs::path& dir, int err) {
  std::error_code ec;
  if (err == ENOENT && !fs::is_directory(dir, ec)) return "directory " + dir.string() + " does not exist";
  if (err == ENOTDIR) {
    for (fs::path p = dir; !p.empty(); p = p.parent_path()) {
      std::error_code ec;
      if (fs::exists(p, ec) && !fs::is_directory(p, ec)) return p.string() + " is not a directory";
      if (p == p.parent_path()) break;
    }
  }
  return strerror(err);
}

mode_t NewFileMode() {
  static const mode_t mode = [] {
    const mode_t mask = umask(0);
    umask(mask);
    return static_cast<mode_t>(0666 & ~mask);
  }();
  return mode;
}

}  // namespace

bool WriteImage(const std::string& path, const host::Image& image, std::string* error) {
  auto fail = [&](const std::string& why) {
    *error = "cannot write " + path + ": " + why;
    return false;
  };
  auto out = OIIO::ImageOutput::create(path);
  if (!out || !Writable(*out)) {
    OIIO::geterror();
    return CanWriteFormat(path, error);
  }
  const bool alpha = out->supports("alpha");
  const int nch = alpha ? 4 : 3;
  // OpenEXR holds colour multiplied by alpha, in half floats; the other
  // formats take straight 8-bit colour.
  const bool associated = strcmp(out->format_name(), "openexr") == 0;
  const OIIO::TypeDesc type = associated ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8;
  OIIO::ImageSpec format(image.width, image.height, nch, associated ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::UINT8);
  format.attribute("png:compressionLevel", g_pngCompression);  // other formats ignore it
  if (alpha) {
    format.alpha_channel = 3;
    if (!associated) format.attribute("oiio:UnassociatedAlpha", 1);
  }
  const size_t w = static_cast<size_t>(image.width), h = static_cast<size_t>(image.height);
  std::vector<uint8_t> pixels;
  try {
    pixels.resize(w * h * static_cast<size_t>(nch) * type.size());
  } catch (const std::bad_alloc&) {
    return fail("out of memory");
  }
  for (size_t y = 0; y < h; ++y) {
    const PF_Pixel* s = image.Row(static_cast<int32_t>(y));
    const size_t row = y * w * static_cast<size_t>(nch);
    if (associated) {
      float* d = reinterpret_cast<float*>(pixels.data()) + row;
      for (size_t x = 0; x < w; ++x, d += nch) {
        const float a = s[x].alpha / 255.0f;
        d[0] = s[x].red / 255.0f * a;
        d[1] = s[x].green / 255.0f * a;
        d[2] = s[x].blue / 255.0f * a;
        d[3] = a;
      }
      continue;
    }
    uint8_t* d = pixels.data() + row;
    for (size_t x = 0; x < w; ++x, d += nch) {
      d[0] = s[x].red;
      d[1] = s[x].green;
      d[2] = s[x].blue;
      if (alpha) d[3] = s[x].alpha;
    }
  }

  // A hidden name in the target's directory (the same file system, so the
  // rename is atomic), short enough for any output name.
  const fs::path target = WriteTarget(path);
  const fs::path dir = target.has_parent_path() ? target.parent_path() : fs::path(".");
  static unsigned serial = 0;
  fs::path temp;
  struct stat old {};
  const bool replacing = stat(target.c_str(), &old) == 0;
  if (replacing && S_ISDIR(old.st_mode)) return fail(strerror(EISDIR));
  int fd = -1;
  for (int tries = 0; fd < 0 && tries < 100; ++tries) {
    temp = dir / (".tarvo-" + std::to_string(getpid()) + "-" + std::to_string(serial++) + ".tmp");
    if (temp.native().size() >= sizeof g_slot->path) return fail(strerror(ENAMETOOLONG));
    memcpy(g_slot->path, temp.c_str(), temp.native().size() + 1);
    g_slot->active = 1;
    fd = open(temp.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) g_slot->active = 0;
    if (fd < 0 && errno != EEXIST) return fail(CreateError(dir, errno));
  }
  if (fd < 0) return fail(strerror(EEXIST));
  auto discard = [&](std::string why) {
    // Name the file the user asked for, not the temporary one.
    const std::string tempName = temp.string();
    for (size_t at; (at = why.find(tempName)) != std::string::npos;) why.replace(at, tempName.size(), path);
    unlink(temp.c_str());
    g_slot->active = 0;
    return fail(why);
  };
  // The replaced file's permissions (and, where allowed, owner) carry over.
  if (replacing && fchown(fd, old.st_uid, old.st_gid) != 0) {
    // Not allowed to give it away: the new file stays ours.
  }
  if (fchmod(fd, replacing ? old.st_mode & 07777 : NewFileMode()) != 0) {
    const int err = errno;
    close(fd);
    return discard(strerror(err));
  }
  std::string encoderError;
  int err = 0;
  {
    CheckedFile proxy(fd);
    QuietStderr quiet;
    const bool encoded = out->set_ioproxy(&proxy) && out->open(temp.string(), format) &&
                         out->write_image(type, pixels.data()) && out->close();
    if (!encoded) encoderError = OneLine(out->geterror());
    out.reset();
    err = proxy.Error();
    if (!err && encoded && proxy.size() == 0) encoderError = "the encoder wrote no data";
    if (!err && encoded && fsync(fd) != 0) err = errno;
  }
  if (close(fd) != 0 && !err) err = errno;
  if (err) return discard(strerror(err));
  if (!encoderError.empty()) return discard(encoderError);
  if (rename(temp.c_str(), target.c_str()) != 0) return discard(strerror(errno));
  g_slot->active = 0;
  return true;
}

void InstallInterruptCleanup() {
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) signal(sig, OnInterrupt);
  // Past a file size limit a write fails with EFBIG and is reported.
  signal(SIGXFSZ, SIG_IGN);
}

void UseSingleThreadedImageLibrary() { OIIO::attribute("threads", 1); }

}  // namespace tarvo::cli
