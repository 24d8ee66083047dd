// Loading the plug-in module with the platform's loader.
#include "module.h"

#include "plugin_alloc.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#ifndef TARVO_MODULE_PATH
#define TARVO_MODULE_PATH ""
#endif

namespace tarvo::host {

namespace {

// A property list larger than this is certainly not ours.
constexpr uint32_t kMaxPropertyListBytes = 1u << 20;

// The exported function's own type: calling it through any other function
// type is undefined. ModuleAllocStats has the same layout.
using AllocStatsFn = tarvo::AllocStats* (*)();
static_assert(sizeof(tarvo::AllocStats) == sizeof(ModuleAllocStats));

}  // namespace

std::unique_ptr<Module> Module::Load(const std::string& path, std::string* error) {
  auto fail = [&](const std::string& why) -> std::unique_ptr<Module> {
    if (error) *error = why;
    return nullptr;
  };
  if (path.empty()) return fail("no module path given");

  std::unique_ptr<Module> m(new Module());
#if defined(_WIN32)
  HMODULE h = LoadLibraryA(path.c_str());
  if (!h) return fail("cannot load module " + path + " (Windows error " + std::to_string(GetLastError()) + ")");
  m->handle_ = h;
  m->entry_ = reinterpret_cast<PF_EntryFunc>(reinterpret_cast<void*>(GetProcAddress(h, "main")));
  if (!m->entry_) return fail("module " + path + " exports no entry point \"main\"");
  if (HRSRC res = FindResourceA(h, MAKEINTRESOURCEA(16000), "PiPL")) {
    DWORD size = SizeofResource(h, res);
    HGLOBAL g = LoadResource(h, res);
    const void* bytes = g ? LockResource(g) : nullptr;
    if (!bytes || size == 0 || size > kMaxPropertyListBytes)
      return fail("module " + path + " has an unreadable property list resource");
    const auto* p = static_cast<const uint8_t*>(bytes);
    m->pipl_.assign(p, p + size);
  }
  if (auto fn = reinterpret_cast<AllocStatsFn>(reinterpret_cast<void*>(GetProcAddress(h, "TarvoAllocStats"))))
    m->stats_ = reinterpret_cast<ModuleAllocStats*>(fn());
#else
  dlerror();
  void* h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!h) {
    const char* why = dlerror();
    return fail("cannot load module " + path + ": " + (why ? why : "unknown error"));
  }
  m->handle_ = h;
  m->entry_ = reinterpret_cast<PF_EntryFunc>(dlsym(h, "main"));
  if (!m->entry_) return fail("module " + path + " exports no entry point \"main\"");
  const auto* list = static_cast<const uint8_t*>(dlsym(h, "TarvoPropertyList"));
  const auto* size = static_cast<const uint32_t*>(dlsym(h, "TarvoPropertyListSize"));
  if (list && size) {
    if (*size == 0 || *size > kMaxPropertyListBytes)
      return fail("module " + path + " declares a property list of " + std::to_string(*size) + " bytes");
    m->pipl_.assign(list, list + *size);
  }
  if (auto fn = reinterpret_cast<AllocStatsFn>(dlsym(h, "TarvoAllocStats")))
    m->stats_ = reinterpret_cast<ModuleAllocStats*>(fn());
  m->threadRequest_ = reinterpret_cast<tarvo::ThreadRequestFn>(dlsym(h, tarvo::kThreadRequestSymbol));
#endif
  return m;
}

int32_t Module::RequestThreads(int32_t threads) { return threadRequest_ ? threadRequest_(threads) : 1; }

std::unique_ptr<Module> Module::LoadBuilt(std::string* error) { return Load(BuiltModulePath(), error); }

std::string Module::BuiltModulePath() { return TARVO_MODULE_PATH; }

Module::~Module() {
  if (!handle_) return;
#if defined(_WIN32)
  FreeLibrary(static_cast<HMODULE>(handle_));
#elif defined(__SANITIZE_ADDRESS__)
    // Kept mapped so that leak reports can still name the module's frames.
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#else
  dlclose(handle_);
#endif
#else
  dlclose(handle_);
#endif
}

}  // namespace tarvo::host
