// tarvo:ripple, a GEGL operation (for the gegl command and GIMP) that hosts
// the plug-in module through the host library. Its properties are made at
// class set-up from what the plug-in declares:
//   slider  a double over the declared valid range
//   angle   a double in degrees
//   popup   an integer 1..N, the entry names in its description
//   point   center-x and center-y, fractions of the image (0.5 = middle):
//           a GEGL operation does not know the image size when its
//           properties are made, and fractions keep the declared default
//           (a percentage of the layer) for any image
//   time    seconds since the start, handed over in milliseconds
// The ripple reads anywhere in the source, so the whole image is rendered
// at once, the requested region cut from it, and the result kept for the
// same input and settings. Renders are serialised: the plug-in keeps
// process-wide state.
#include <dlfcn.h>
#include <math.h>
#include <unistd.h>

#include <gegl-plugin.h>
#include <gegl.h>
#include <operation/gegl-operation-filter.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host.h"

namespace {

struct Prop {
  int pluginIndex;  // 0 for the time
  PF_ParamType type;
  int axis;  // points: 0 = x, 1 = y
};

struct Shared {
  std::unique_ptr<tarvo::host::Module> module;
  std::unique_ptr<tarvo::host::Host> host;
  std::vector<Prop> props;  // property id − 1 → what it sets
  std::mutex mutex;
  // The last render: its input, settings and output.
  std::vector<uint8_t> lastInput;
  std::vector<double> lastValues;
  GeglRectangle lastRect{};
  std::vector<uint8_t> lastOutput;
};
Shared* shared = nullptr;

struct Op {
  GeglOperationFilter parent_instance;
  std::vector<double>* values;  // by property id − 1
};
struct OpClass {
  GeglOperationFilterClass parent_class;
};

GType op_type = 0;
gpointer parent_class = nullptr;

std::string ModulePath() {
  // Installed: lib/gegl-0.4/ beside lib/tarvo-ripple/.
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&ModulePath), &info) && info.dli_fname) {
    std::string self = info.dli_fname;
    const size_t slash = self.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : self.substr(0, slash);
    const std::string installed = dir + "/" TARVO_GEGL_MODULE_REL;
    if (access(installed.c_str(), R_OK) == 0) return installed;
  }
  return tarvo::host::Module::BuiltModulePath();
}

std::string PropertyName(const std::string& name) {
  std::string out;
  for (char c : name) {
    if (g_ascii_isalnum(c))
      out += g_ascii_tolower(c);
    else if (!out.empty() && out.back() != '-')
      out += '-';
  }
  while (!out.empty() && out.back() == '-') out.pop_back();
  return out;
}

void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec*) {
  auto* op = reinterpret_cast<Op*>(object);
  const Prop& p = shared->props[id - 1];
  (*op->values)[id - 1] = p.type == PF_Param_POPUP ? g_value_get_int(value) : g_value_get_double(value);
}

void GetProperty(GObject* object, guint id, GValue* value, GParamSpec*) {
  auto* op = reinterpret_cast<Op*>(object);
  const Prop& p = shared->props[id - 1];
  if (p.type == PF_Param_POPUP)
    g_value_set_int(value, static_cast<int>((*op->values)[id - 1]));
  else
    g_value_set_double(value, (*op->values)[id - 1]);
}

void Finalize(GObject* object) {
  delete reinterpret_cast<Op*>(object)->values;
  G_OBJECT_CLASS(parent_class)->finalize(object);
}

void Prepare(GeglOperation* operation) {
  const Babl* format = babl_format("R'G'B'A u8");
  gegl_operation_set_format(operation, "input", format);
  gegl_operation_set_format(operation, "output", format);
}

GeglRectangle WholeInput(GeglOperation* operation, const gchar*, const GeglRectangle*) {
  const GeglRectangle* in = gegl_operation_source_get_bounding_box(operation, "input");
  return in ? *in : GeglRectangle{0, 0, 0, 0};
}

GeglRectangle WholeOutput(GeglOperation* operation, const GeglRectangle*) {
  return gegl_operation_get_bounding_box(operation);
}

PF_Fixed ToFixed(double v) { return static_cast<PF_Fixed>(nearbyint(v * 65536.0)); }

// Renders the whole input with the given settings into shared->lastOutput
// (straight RGBA), unless the last render had the same input and settings.
bool RenderWhole(const std::vector<double>& values, const GeglRectangle& rect, std::vector<uint8_t>&& rgba,
                 std::string* error) {
  Shared& s = *shared;
  if (s.lastInput == rgba && s.lastValues == values && gegl_rectangle_equal(&s.lastRect, &rect) &&
      !s.lastOutput.empty())
    return true;
  tarvo::host::Host& host = *s.host;
  host.SetParamsToDefaults();
  tarvo::host::Image input(rect.width, rect.height), output(rect.width, rect.height);
  for (size_t i = 0; i < static_cast<size_t>(rect.width) * rect.height; ++i) {
    uint8_t* d = input.data.data() + i * 4;
    const uint8_t* src = rgba.data() + i * 4;
    d[0] = src[3], d[1] = src[0], d[2] = src[1], d[3] = src[2];
  }
  double cx = 0.5, cy = 0.5;
  int pointIndex = 0;
  for (size_t id = 0; id < s.props.size(); ++id) {
    const Prop& p = s.props[id];
    const double v = values[id];
    if (p.pluginIndex == 0) {
      host.SetTime(static_cast<int32_t>(llround(v * 1000.0)), 1, 1000);
      continue;
    }
    PF_ParamDef& d = host.Param(p.pluginIndex);
    switch (p.type) {
      case PF_Param_FIX_SLIDER: d.u.fd.value = ToFixed(v); break;
      case PF_Param_ANGLE: d.u.ad.value = ToFixed(v); break;
      case PF_Param_POPUP: d.u.pd.value = static_cast<int32_t>(v); break;
      case PF_Param_POINT:
        pointIndex = p.pluginIndex;
        (p.axis == 0 ? cx : cy) = v;
        break;
      default: break;
    }
  }
  if (pointIndex) host.SetPointPixels(pointIndex, ToFixed(cx * rect.width), ToFixed(cy * rect.height));
  const PF_Err err = host.Render(input, output);
  if (err != PF_Err_NONE) {
    *error = host.ErrorMessage().empty() ? "the plug-in failed with error " + std::to_string(err) : host.ErrorMessage();
    s.lastOutput.clear();
    return false;
  }
  s.lastOutput.resize(rgba.size());
  for (size_t i = 0; i < static_cast<size_t>(rect.width) * rect.height; ++i) {
    const uint8_t* src = output.data.data() + static_cast<size_t>(i / rect.width) * output.rowbytes +
                         (i % rect.width) * 4;
    uint8_t* d = s.lastOutput.data() + i * 4;
    d[0] = src[1], d[1] = src[2], d[2] = src[3], d[3] = src[0];
  }
  s.lastInput = std::move(rgba);
  s.lastValues = values;
  s.lastRect = rect;
  return true;
}

gboolean Process(GeglOperation* operation, GeglBuffer* in, GeglBuffer* out, const GeglRectangle* roi, gint) {
  const Babl* format = babl_format("R'G'B'A u8");
  const GeglRectangle rect = WholeInput(operation, "input", roi);
  if (rect.width <= 0 || rect.height <= 0) return TRUE;
  std::vector<uint8_t> rgba(static_cast<size_t>(rect.width) * rect.height * 4);
  gegl_buffer_get(in, &rect, 1.0, format, rgba.data(), GEGL_AUTO_ROWSTRIDE, GEGL_ABYSS_NONE);
  std::lock_guard<std::mutex> lock(shared->mutex);
  std::string error;
  if (!RenderWhole(*reinterpret_cast<Op*>(operation)->values, rect, std::move(rgba), &error)) {
    g_warning("tarvo:ripple: %s", error.c_str());
    return FALSE;
  }
  GeglRectangle part;
  if (!gegl_rectangle_intersect(&part, roi, &rect)) return TRUE;
  const size_t stride = static_cast<size_t>(rect.width) * 4;
  const uint8_t* first = shared->lastOutput.data() + static_cast<size_t>(part.y - rect.y) * stride +
                         static_cast<size_t>(part.x - rect.x) * 4;
  gegl_buffer_set(out, &part, 0, format, first, static_cast<gint>(stride));
  return TRUE;
}

void InstanceInit(GTypeInstance* instance, gpointer) {
  auto* op = reinterpret_cast<Op*>(instance);
  // Construct-time properties fill in the defaults.
  op->values = new std::vector<double>(shared->props.size());
}

void ClassInit(gpointer klass, gpointer) {
  parent_class = g_type_class_peek_parent(klass);
  GObjectClass* object_class = G_OBJECT_CLASS(klass);
  GeglOperationClass* operation_class = GEGL_OPERATION_CLASS(klass);
  GeglOperationFilterClass* filter_class = GEGL_OPERATION_FILTER_CLASS(klass);
  object_class->set_property = SetProperty;
  object_class->get_property = GetProperty;
  object_class->finalize = Finalize;
  operation_class->prepare = Prepare;
  operation_class->get_required_for_output = WholeInput;
  operation_class->get_cached_region = WholeOutput;
  operation_class->threaded = FALSE;
  filter_class->process = Process;

  const tarvo::host::Host& host = *shared->host;
  guint id = 1;
  auto add = [&](GParamSpec* pspec, Prop p) {
    shared->props.push_back(p);
    g_object_class_install_property(object_class, id++, pspec);
  };
  const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_CONSTRUCT);
  for (size_t i = 0; i < host.Declared().size(); ++i) {
    const tarvo::host::DeclaredParam& dp = host.Declared()[i];
    const PF_ParamDef& d = dp.def;
    const int index = static_cast<int>(i) + 1;
    const std::string key = PropertyName(d.name);
    switch (d.param_type) {
      case PF_Param_FIX_SLIDER:
        add(g_param_spec_double(key.c_str(), d.name, d.name, d.u.fd.valid_min / 65536.0, d.u.fd.valid_max / 65536.0,
                                CLAMP(d.u.fd.dephault, d.u.fd.valid_min, d.u.fd.valid_max) / 65536.0, flags),
            {index, d.param_type, 0});
        break;
      case PF_Param_ANGLE:
        add(g_param_spec_double(key.c_str(), d.name, "degrees", -1e6, 1e6, d.u.ad.dephault / 65536.0, flags),
            {index, d.param_type, 0});
        break;
      case PF_Param_POPUP: {
        std::string blurb;
        for (size_t k = 0; k < dp.choices.size(); ++k)
          blurb += (k ? ", " : "") + std::to_string(k + 1) + " " +
                   (dp.choices[k].rfind("(-", 0) == 0 ? "(separator)" : dp.choices[k]);
        add(g_param_spec_int(key.c_str(), d.name, blurb.c_str(), 1, d.u.pd.num_choices, d.u.pd.dephault, flags),
            {index, d.param_type, 0});
        break;
      }
      case PF_Param_POINT:
        add(g_param_spec_double((key + "-x").c_str(), (std::string(d.name) + " X").c_str(),
                                "fraction of the image width", -10, 10, d.u.td.x_dephault / 65536.0 / 100.0, flags),
            {index, d.param_type, 0});
        add(g_param_spec_double((key + "-y").c_str(), (std::string(d.name) + " Y").c_str(),
                                "fraction of the image height", -10, 10, d.u.td.y_dephault / 65536.0 / 100.0, flags),
            {index, d.param_type, 1});
        break;
      default: break;
    }
  }
  add(g_param_spec_double("time", "Time", "seconds since the start", -1e6, 1e6, 0, flags), {0, PF_Param_RESERVED, 0});

  gegl_operation_class_set_keys(operation_class, "name", "tarvo:ripple", "title", "Tarvo Ripple", "categories",
                                "distort", "description",
                                "Concentric waves spreading from a centre, with stretch, twirl and pinning", nullptr);
}

const GeglModuleInfo module_info = {GEGL_MODULE_ABI_VERSION};

}  // namespace

extern "C" {

G_MODULE_EXPORT const GeglModuleInfo* gegl_module_query(GTypeModule*) { return &module_info; }

G_MODULE_EXPORT gboolean gegl_module_register(GTypeModule* module) {
  if (!shared) {
    auto s = std::make_unique<Shared>();
    std::string error;
    s->module = tarvo::host::Module::Load(ModulePath(), &error);
    if (!s->module) {
      g_warning("tarvo:ripple: %s", error.c_str());
      return FALSE;
    }
    s->host = std::make_unique<tarvo::host::Host>(s->module->Entry());
    if (s->host->GlobalSetup() != PF_Err_NONE || s->host->ParamsSetup() != PF_Err_NONE) {
      g_warning("tarvo:ripple: the plug-in failed at set-up");
      return FALSE;
    }
    shared = s.release();
  }
  const GTypeInfo info = {sizeof(OpClass), nullptr,    nullptr, ClassInit,    nullptr,
                          nullptr,         sizeof(Op), 0,       InstanceInit, nullptr};
  op_type = g_type_module_register_type(module, GEGL_TYPE_OPERATION_FILTER, "TarvoRippleOp", &info,
                                        static_cast<GTypeFlags>(0));
  return TRUE;
}

}  // extern "C"
