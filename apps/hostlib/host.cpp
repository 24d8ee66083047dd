// The in-process host: its records, its callbacks and the calls it makes.
#include "host.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <map>

#include "fixed_point.h"

namespace tarvo::host {

Image::Image(int32_t w, int32_t h, int32_t rb) {
  width = w > 0 ? w : 0;
  height = h > 0 ? h : 0;
  const int64_t minRow = static_cast<int64_t>(width) * 4;
  rowbytes = rb > minRow ? rb : static_cast<int32_t>(minRow);
  data.assign(static_cast<size_t>(rowbytes) * static_cast<size_t>(height), 0);
}

bool Image::Valid() const {
  if (width < 0 || height < 0 || rowbytes < 0) return false;
  if (static_cast<int64_t>(rowbytes) < static_cast<int64_t>(width) * 4) return false;
  return data.size() >= static_cast<size_t>(rowbytes) * static_cast<size_t>(height);
}

namespace {

// Bound of the ANSI sprintf callback: every destination the plug-in formats
// into (return_msg, its about buffer) holds 256 bytes.
constexpr size_t kSprintfBound = PF_MAX_EFFECT_MSG_LEN + 1;
constexpr size_t kNameBound = PF_MAX_EFFECT_PARAM_NAME_LEN + 1;
// A choice string longer than this is treated as unterminated.
constexpr size_t kMaxChoicesBytes = 64 * 1024;
// Worlds the host allocates on request are capped like the host's own.
constexpr int32_t kMaxWorldSide = 30000;
constexpr int kMinParams = 17;

double AnsiAtan(double x) { return std::atan(x); }
double AnsiAtan2(double y, double x) { return std::atan2(y, x); }
double AnsiCeil(double x) { return std::ceil(x); }
double AnsiCos(double x) { return std::cos(x); }
double AnsiExp(double x) { return std::exp(x); }
double AnsiFabs(double x) { return std::fabs(x); }
double AnsiFloor(double x) { return std::floor(x); }
double AnsiFmod(double x, double y) { return std::fmod(x, y); }
double AnsiHypot(double x, double y) { return std::hypot(x, y); }
double AnsiLog(double x) { return std::log(x); }
double AnsiLog10(double x) { return std::log10(x); }
double AnsiPow(double x, double y) { return std::pow(x, y); }
double AnsiSin(double x) { return std::sin(x); }
double AnsiSqrt(double x) { return std::sqrt(x); }
double AnsiTan(double x) { return std::tan(x); }
double AnsiAsin(double x) { return std::asin(x); }
double AnsiAcos(double x) { return std::acos(x); }

PF_Rect WholeRect(const PF_EffectWorld& w) {
  PF_Rect r;
  r.top = 0;
  r.left = 0;
  r.bottom = static_cast<int16_t>(w.height > INT16_MAX ? INT16_MAX : w.height);
  r.right = static_cast<int16_t>(w.width > INT16_MAX ? INT16_MAX : w.width);
  return r;
}

// The part of rect r (bottom and right exclusive) inside world w; false when empty.
bool ClipRect(const PF_EffectWorld& w, const PF_Rect* r, int32_t* top, int32_t* left, int32_t* bottom, int32_t* right) {
  *top = 0;
  *left = 0;
  *bottom = w.height;
  *right = w.width;
  if (r) {
    *top = r->top > 0 ? r->top : 0;
    *left = r->left > 0 ? r->left : 0;
    if (r->bottom < *bottom) *bottom = r->bottom;
    if (r->right < *right) *right = r->right;
  }
  return *top < *bottom && *left < *right;
}

bool WorldUsable(const PF_EffectWorld* w) {
  return w && w->width >= 0 && w->height >= 0 &&
         static_cast<int64_t>(w->rowbytes) >= static_cast<int64_t>(w->width) * 4;
}

PF_EffectWorld WorldOver(const uint8_t* data, int32_t width, int32_t height, int32_t rowbytes, bool writable) {
  PF_EffectWorld w{};
  w.data = const_cast<PF_Pixel*>(reinterpret_cast<const PF_Pixel*>(data));
  w.width = width;
  w.height = height;
  w.rowbytes = rowbytes;
  w.world_flags = writable ? PF_WorldFlag_WRITEABLE : 0;
  w.extent_hint = WholeRect(w);
  w.pix_aspect_ratio.num = 1;
  w.pix_aspect_ratio.den = 1;
  return w;
}

}  // namespace

struct Host::Impl {
  Host* host = nullptr;
  // params[i] points at values[i]; both always hold at least 17 entries so
  // that a plug-in reading any of its indices reads host memory.
  std::vector<PF_ParamDef> values;
  std::vector<PF_ParamDef*> pointers;
  PF_EffectWorld output{};
  // Worlds made by new_world, keyed by their pixel address.
  std::map<const void*, std::unique_ptr<uint8_t[]>> worlds;
  // Host-owned copies of the popup choice strings (stable addresses).
  std::deque<std::string> choiceStrings;
  // Frame size the point values were derived for, and the values derived.
  struct PointDefault {
    int index;
    PF_Fixed x, y;
  };
  int32_t pointFrameW = -1, pointFrameH = -1;
  std::vector<PointDefault> pointDefaults;

  static Impl* From(PF_ProgPtr ref) { return reinterpret_cast<Impl*>(ref); }

  void Resize(size_t n) {
    if (n < kMinParams) n = kMinParams;
    values.resize(n);
    pointers.resize(n);
    for (size_t i = 0; i < n; ++i) pointers[i] = &values[i];
  }

  // Interaction callbacks.
  static PF_Err CheckoutParam(PF_ProgPtr ref, PF_ParamIndex index, int32_t, int32_t, uint32_t, PF_ParamDef* param) {
    Impl* self = From(ref);
    Host* h = self->host;
    if (const PF_Err err = h->BeforeCallback(HostCallback::kCheckout)) return err;
    if (!param) return PF_Err_BAD_CALLBACK_PARAM;
    if (index < 0 || index > static_cast<PF_ParamIndex>(h->declared_.size())) return PF_Err_INVALID_INDEX;
    *param = self->values[static_cast<size_t>(index)];
    return PF_Err_NONE;
  }
  static PF_Err CheckinParam(PF_ProgPtr ref, PF_ParamDef* param) {
    Host* h = From(ref)->host;
    if (const PF_Err err = h->BeforeCallback(HostCallback::kCheckin)) return err;
    return param ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
  }
  static PF_Err AddParam(PF_ProgPtr ref, PF_ParamIndex index, PF_ParamDef* def) {
    Impl* self = From(ref);
    Host* h = self->host;
    if (const PF_Err err = h->BeforeCallback(HostCallback::kAddParam)) return err;
    if (!def) return PF_Err_BAD_CALLBACK_PARAM;
    const auto next = static_cast<PF_ParamIndex>(h->declared_.size() + 1);
    if (index != -1 && index != next) return PF_Err_INVALID_INDEX;
    DeclaredParam d;
    d.def = *def;
    d.def.name[sizeof d.def.name - 1] = 0;
    if (d.def.param_type == PF_Param_POPUP) {
      const char* names = def->u.pd.u.namesptr;
      std::string raw = names ? std::string(names, strnlen(names, kMaxChoicesBytes)) : std::string();
      size_t start = 0;
      while (start < raw.size()) {
        size_t bar = raw.find('|', start);
        if (bar == std::string::npos) bar = raw.size();
        d.choices.push_back(raw.substr(start, bar - start));
        start = bar + 1;
      }
      self->choiceStrings.push_back(std::move(raw));
      d.def.u.pd.u.namesptr = self->choiceStrings.back().c_str();
    }
    h->declared_.push_back(std::move(d));
    return PF_Err_NONE;
  }
  static PF_Err Abort(PF_ProgPtr) { return PF_Err_NONE; }
  static PF_Err Progress(PF_ProgPtr ref, int32_t, int32_t) {
    Host* h = From(ref)->host;
    return h->BeforeCallback(HostCallback::kProgress);
  }

  // Utility callbacks.
  static PF_Err Copy(PF_ProgPtr ref, PF_EffectWorld* src, PF_EffectWorld* dst, PF_Rect* srcR, PF_Rect* dstR) {
    Host* h = From(ref)->host;
    if (const PF_Err err = h->BeforeCallback(HostCallback::kCopy)) return err;
    if (!WorldUsable(src) || !WorldUsable(dst)) return PF_Err_BAD_CALLBACK_PARAM;
    int32_t st, sl, sb, sr, dt, dl, db, dr;
    const bool srcAny = ClipRect(*src, srcR, &st, &sl, &sb, &sr);
    const bool dstAny = ClipRect(*dst, dstR, &dt, &dl, &db, &dr);
    if (!srcAny || !dstAny) return PF_Err_NONE;
    if (!src->data || !dst->data) return PF_Err_BAD_CALLBACK_PARAM;
    // Same-size areas copy; otherwise the overlapping top-left part does.
    const int32_t rows = std::min(sb - st, db - dt);
    const size_t bytes = static_cast<size_t>(std::min(sr - sl, dr - dl)) * 4;
    const auto* s = reinterpret_cast<const uint8_t*>(src->data);
    auto* d = reinterpret_cast<uint8_t*>(dst->data);
    for (int32_t y = 0; y < rows; ++y)
      memmove(d + static_cast<size_t>(dt + y) * dst->rowbytes + static_cast<size_t>(dl) * 4,
              s + static_cast<size_t>(st + y) * src->rowbytes + static_cast<size_t>(sl) * 4, bytes);
    return PF_Err_NONE;
  }
  static PF_Err Fill(PF_ProgPtr ref, const PF_Pixel* color, const PF_Rect* rect, PF_EffectWorld* world) {
    Host* h = From(ref)->host;
    if (const PF_Err err = h->BeforeCallback(HostCallback::kFill)) return err;
    if (!WorldUsable(world)) return PF_Err_BAD_CALLBACK_PARAM;
    int32_t t, l, b, r;
    if (!ClipRect(*world, rect, &t, &l, &b, &r)) return PF_Err_NONE;
    if (!world->data) return PF_Err_BAD_CALLBACK_PARAM;
    const PF_Pixel px = color ? *color : PF_Pixel{0, 0, 0, 0};
    auto* base = reinterpret_cast<uint8_t*>(world->data);
    for (int32_t y = t; y < b; ++y) {
      auto* row = reinterpret_cast<PF_Pixel*>(base + static_cast<size_t>(y) * world->rowbytes);
      for (int32_t x = l; x < r; ++x) row[x] = px;
    }
    return PF_Err_NONE;
  }
  static PF_Err NewWorld(PF_ProgPtr ref, int32_t width, int32_t height, PF_NewWorldFlags, PF_EffectWorld* world) {
    Impl* self = From(ref);
    Host* h = self->host;
    if (const PF_Err err = h->BeforeCallback(HostCallback::kNewWorld)) return err;
    if (!world) return PF_Err_BAD_CALLBACK_PARAM;
    *world = PF_EffectWorld{};
    if (width < 0 || height < 0 || width > kMaxWorldSide || height > kMaxWorldSide) return PF_Err_BAD_CALLBACK_PARAM;
    const size_t rowbytes = static_cast<size_t>(width) * 4;
    // Always a real block, even for 0 × 0, so that the world has pixels to point at.
    const size_t bytes = rowbytes * static_cast<size_t>(height);
    std::unique_ptr<uint8_t[]> block(new (std::nothrow) uint8_t[bytes ? bytes : 4]());
    if (!block) return PF_Err_OUT_OF_MEMORY;
    *world = WorldOver(block.get(), width, height, static_cast<int32_t>(rowbytes), true);
    self->worlds[block.get()] = std::move(block);
    return PF_Err_NONE;
  }
  static PF_Err DisposeWorld(PF_ProgPtr ref, PF_EffectWorld* world) {
    Impl* self = From(ref);
    if (const PF_Err err = self->host->BeforeCallback(HostCallback::kDisposeWorld)) return err;
    if (!world) return PF_Err_BAD_CALLBACK_PARAM;
    auto it = self->worlds.find(world->data);
    if (it == self->worlds.end()) return PF_Err_BAD_CALLBACK_PARAM;
    self->worlds.erase(it);
    *world = PF_EffectWorld{};
    return PF_Err_NONE;
  }

  // The plug-in's sprintf is only known by the Host it is called for, so the
  // ANSI callbacks reach their host through the one currently calling.
  static thread_local Host* calling;
  static int Sprintf(char* dst, const char* fmt, ...) {
    if (calling) calling->BeforeCallback(HostCallback::kSprintf);
    if (!dst) return -1;
    if (!fmt) {
      dst[0] = 0;
      return 0;
    }
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(dst, kSprintfBound, fmt, ap);
    va_end(ap);
    return n < 0 ? n : std::min(n, static_cast<int>(kSprintfBound - 1));
  }
  static char* Strcpy(char* dst, const char* src) {
    if (calling) calling->BeforeCallback(HostCallback::kStrcpy);
    if (!dst) return dst;
    if (!src) {
      dst[0] = 0;
      return dst;
    }
    // The plug-in copies parameter names (32-byte fields) and messages into
    // return_msg (256 bytes); anything else is held to the name size.
    size_t bound = kNameBound;
    if (calling && dst == calling->out_.return_msg) bound = sizeof calling->out_.return_msg;
    const size_t n = strnlen(src, bound - 1);
    memmove(dst, src, n);
    dst[n] = 0;
    return dst;
  }
};

thread_local Host* Host::Impl::calling = nullptr;

Host::Host(PF_EntryFunc entry) : impl_(new Impl()), entry_(entry) {
  impl_->host = this;
  impl_->Resize(kMinParams);
  impl_->values[0].param_type = PF_Param_LAYER;

  PF_InteractCallbacks& inter = in_.inter;
  inter.checkout_param = &Impl::CheckoutParam;
  inter.checkin_param = &Impl::CheckinParam;
  inter.add_param = &Impl::AddParam;
  inter.abort = &Impl::Abort;
  inter.progress = &Impl::Progress;

  utils_.copy = &Impl::Copy;
  utils_.fill = &Impl::Fill;
  utils_.new_world = &Impl::NewWorld;
  utils_.dispose_world = &Impl::DisposeWorld;
  PF_ANSICallbacks& a = utils_.ansi;
  a.atan = AnsiAtan;
  a.atan2 = AnsiAtan2;
  a.ceil = AnsiCeil;
  a.cos = AnsiCos;
  a.exp = AnsiExp;
  a.fabs = AnsiFabs;
  a.floor = AnsiFloor;
  a.fmod = AnsiFmod;
  a.hypot = AnsiHypot;
  a.log = AnsiLog;
  a.log10 = AnsiLog10;
  a.pow = AnsiPow;
  a.sin = AnsiSin;
  a.sqrt = AnsiSqrt;
  a.tan = AnsiTan;
  a.sprintf = &Impl::Sprintf;
  a.strcpy = &Impl::Strcpy;
  a.asin = AnsiAsin;
  a.acos = AnsiAcos;

  in_.utils = &utils_;
  in_.effect_ref = reinterpret_cast<PF_ProgPtr>(impl_.get());
  in_.quality = PF_Quality_HI;
  in_.version.major = 11;
  in_.version.minor = 0;
  in_.appl_id = 0x46585443;  // 'FXTC'
  in_.num_params = kMinParams;
  in_.current_time = 0;
  in_.time_step = 1;
  in_.local_time_step = 1;
  in_.total_time = 30;
  in_.time_scale = 30;
  in_.field = PF_Field_FRAME;
  in_.downsample_x = {1, 1};
  in_.downsample_y = {1, 1};
  in_.pixel_aspect_ratio = {1, 1};
}

Host::~Host() = default;

PF_Err Host::Call(PF_Cmd cmd, bool keepOutData) {
  if (!entry_) return PF_Err_INVALID_CALLBACK;
  if (!keepOutData) {
    const PF_Handle global = out_.global_data, sequence = out_.sequence_data, frame = out_.frame_data;
    out_ = PF_OutData{};
    out_.global_data = global;
    out_.sequence_data = sequence;
    out_.frame_data = frame;
    out_.out_flags = outFlagsOnEntry_;
  }
  in_.num_params = static_cast<int32_t>(impl_->pointers.size());
  Host* const outer = Impl::calling;
  Impl::calling = this;
  const PF_Err err = entry_(cmd, &in_, &out_, impl_->pointers.data(), &impl_->output, nullptr);
  Impl::calling = outer;
  return err;
}

PF_Err Host::ParamsSetup() {
  declared_.clear();
  impl_->choiceStrings.clear();
  const PF_Err err = Call(PF_Cmd_PARAMS_SETUP);
  impl_->Resize(declared_.size() + 1);
  SetParamsToDefaults();
  return err;
}

void Host::SetParamsToDefaults() {
  Impl& im = *impl_;
  // A parameter set-up sent through Call declares without resizing.
  if (im.values.size() < declared_.size() + 1) im.Resize(declared_.size() + 1);
  for (auto& v : im.values) v = PF_ParamDef{};
  im.values[0].param_type = PF_Param_LAYER;
  im.pointDefaults.clear();
  int32_t w = 0, h = 0;
  PointFrameSize(&w, &h);
  for (size_t i = 0; i < declared_.size(); ++i) {
    PF_ParamDef& p = im.values[i + 1];
    p = declared_[i].def;
    p.uu.change_flags = PF_ChangeFlag_NONE;
    switch (p.param_type) {
      case PF_Param_SLIDER: p.u.sd.value = p.u.sd.dephault; break;
      case PF_Param_FIX_SLIDER: p.u.fd.value = p.u.fd.dephault; break;
      case PF_Param_ANGLE: p.u.ad.value = p.u.ad.dephault; break;
      case PF_Param_CHECKBOX: p.u.bd.value = p.u.bd.dephault; break;
      case PF_Param_COLOR: p.u.cd.value = p.u.cd.dephault; break;
      case PF_Param_POPUP: p.u.pd.value = p.u.pd.dephault; break;
      case PF_Param_POINT:
        p.u.td.x_value = PointDefaultPixels(p.u.td.x_dephault, w);
        p.u.td.y_value = PointDefaultPixels(p.u.td.y_dephault, h);
        im.pointDefaults.push_back({static_cast<int>(i + 1), p.u.td.x_value, p.u.td.y_value});
        break;
      default: break;
    }
  }
  im.pointFrameW = w;
  im.pointFrameH = h;
}

void Host::SetPointPixels(int index, PF_Fixed x, PF_Fixed y) {
  PF_ParamDef& p = Param(index);
  p.u.td.x_value = x;
  p.u.td.y_value = y;
  std::erase_if(impl_->pointDefaults, [index](const Impl::PointDefault& d) { return d.index == index; });
}

PF_Fixed Host::PointDefaultPixels(PF_Fixed percent, int32_t size) {
  return tarvo::FloatToFixed((percent / 65536.0) / 100.0 * size);
}

void Host::PointFrameSize(int32_t* w, int32_t* h) const {
  // Point values are in pixels of the layer as rendered: the frame size
  // scaled by the downsample factors, as the plug-in scales it.
  auto scaled = [](int32_t size, const PF_RationalScale& s) -> int32_t {
    if (s.den == 0) return size;
    return tarvo::TruncToInt32(size * (static_cast<double>(s.num) / static_cast<double>(s.den)));
  };
  const int32_t fw = frameWidth_ > 0 ? frameWidth_ : lastInputWidth_;
  const int32_t fh = frameHeight_ > 0 ? frameHeight_ : lastInputHeight_;
  *w = frameWidth_ > 0 ? scaled(fw, in_.downsample_x) : fw;
  *h = frameHeight_ > 0 ? scaled(fh, in_.downsample_y) : fh;
}

PF_Err Host::Render(const Image& input, Image& output) {
  if (!input.Valid() || !output.Valid()) return PF_Err_BAD_CALLBACK_PARAM;
  if (input.width != output.width || input.height != output.height) return PF_Err_BAD_CALLBACK_PARAM;
  Impl& im = *impl_;
  lastInputWidth_ = input.width;
  lastInputHeight_ = input.height;
  in_.width = frameWidth_ > 0 ? frameWidth_ : input.width;
  in_.height = frameHeight_ > 0 ? frameHeight_ : input.height;
  in_.extent_hint.top = 0;
  in_.extent_hint.left = 0;
  in_.extent_hint.bottom = static_cast<int16_t>(std::min(in_.height, int32_t{INT16_MAX}));
  in_.extent_hint.right = static_cast<int16_t>(std::min(in_.width, int32_t{INT16_MAX}));

  // Points still at the defaults derived for another frame size follow the new one.
  int32_t pw = 0, ph = 0;
  PointFrameSize(&pw, &ph);
  if (pw != im.pointFrameW || ph != im.pointFrameH) {
    for (auto& pd : im.pointDefaults) {
      PF_PointDef& td = im.values[static_cast<size_t>(pd.index)].u.td;
      if (td.x_value == pd.x && td.y_value == pd.y) {
        td.x_value = pd.x = PointDefaultPixels(td.x_dephault, pw);
        td.y_value = pd.y = PointDefaultPixels(td.y_dephault, ph);
      }
    }
    im.pointFrameW = pw;
    im.pointFrameH = ph;
  }

  PF_ParamDef& layer = im.values[0];
  layer = PF_ParamDef{};
  layer.param_type = PF_Param_LAYER;
  layer.u.ld = WorldOver(input.data.data(), input.width, input.height, input.rowbytes, false);
  layer.u.ld.dephault = PF_LayerDefault_MYSELF;
  im.output = WorldOver(output.data.data(), output.width, output.height, output.rowbytes, true);
  const PF_Err err = Call(PF_Cmd_RENDER);
  im.output = PF_EffectWorld{};
  layer.u.ld.data = nullptr;
  return err;
}

PF_ParamDef& Host::Param(int index) {
  if (index < 0 || static_cast<size_t>(index) >= impl_->values.size()) {
    static thread_local PF_ParamDef scratch;
    scratch = PF_ParamDef{};
    return scratch;
  }
  return impl_->values[static_cast<size_t>(index)];
}

int Host::NumParams() const { return static_cast<int>(impl_->values.size()); }

int Host::LiveWorlds() const { return static_cast<int>(impl_->worlds.size()); }

void Host::SetTime(int32_t current, int32_t step, uint32_t scale) {
  in_.current_time = current;
  in_.time_step = step;
  in_.local_time_step = step;
  in_.time_scale = scale;
}

void Host::SetDownsample(int32_t nx, uint32_t dx, int32_t ny, uint32_t dy) {
  in_.downsample_x = {nx, dx};
  in_.downsample_y = {ny, dy};
}

void Host::SetFrameSize(int32_t width, int32_t height) {
  frameWidth_ = width > 0 ? width : 0;
  frameHeight_ = height > 0 ? height : 0;
}

std::string Host::ErrorMessage() const {
  if (!(out_.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE)) return "";
  return std::string(out_.return_msg, strnlen(out_.return_msg, sizeof out_.return_msg));
}

std::string Host::ReturnMessage() const {
  return std::string(out_.return_msg, strnlen(out_.return_msg, sizeof out_.return_msg));
}

}  // namespace tarvo::host
