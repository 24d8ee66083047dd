// Drives the built module through the platform's own loader, as the video
// host does on Windows: LoadLibrary, GetProcAddress("main"), the property list
// through FindResource, messages through the module's string table, the
// version resource, and the commands up to a render.
//
//   tarvo_windows_host MODULE EXPECTED_PROPERTY_LIST
//
// EXPECTED_PROPERTY_LIST holds the bytes generated from pipl.txt. Prints one
// line per failed check, the render checksum, and last "N passed, M failed";
// exits 0 only when nothing failed. The same program builds on Linux, where
// the loader checks go through dlopen and the platform-neutral ones still run.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <type_traits>
#include <vector>

#include "host.h"

#if defined(_WIN32)
#include <windows.h>
#endif

using tarvo::host::Host;
using tarvo::host::Image;
using tarvo::host::Module;

namespace {

int g_passed = 0;
int g_failed = 0;

void Check(bool ok, const char* group, const std::string& what) {
  if (ok) {
    ++g_passed;
  } else {
    ++g_failed;
    printf("FAILED [%s] %s\n", group, what.c_str());
  }
}

// The expected value converts to the type of the value got.
template <class T>
void CheckEq(const T& got, const std::type_identity_t<T>& want, const char* group, const std::string& what) {
  Check(got == want, group, what + ": got " + std::to_string(got) + ", want " + std::to_string(want));
}

void CheckText(const std::string& got, const std::string& want, const char* group, const std::string& what) {
  Check(got == want, group, what + ": got \"" + got + "\", want \"" + want + "\"");
}

bool ReadFile(const char* path, std::vector<uint8_t>* bytes) {
  FILE* f = fopen(path, "rb");
  if (!f) return false;
  uint8_t buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) bytes->insert(bytes->end(), buf, buf + n);
  const bool ok = !ferror(f);
  fclose(f);
  return ok;
}

constexpr uint32_t kVersionWord = 0x00180600;  // 3.0.0, release, build 0
constexpr const char* kOutOfMemory = "Memory Allocation Failure!";

#if defined(_WIN32)
// The loader's view of the module, independent of the host library.
void CheckWindowsLoader(const char* path, const std::vector<uint8_t>& expectedList, PF_EntryFunc entry) {
  const char* g = "loader";
  HMODULE h = LoadLibraryA(path);
  Check(h != nullptr, g, "LoadLibraryA(" + std::string(path) + ")");
  if (!h) return;
  FARPROC byName = GetProcAddress(h, "main");
  Check(byName != nullptr, g, "GetProcAddress(\"main\")");
  Check(reinterpret_cast<void*>(byName) == reinterpret_cast<void*>(entry), g, "the host library found the same \"main\"");
  Check(reinterpret_cast<void*>(GetProcAddress(h, MAKEINTRESOURCEA(1))) == reinterpret_cast<void*>(byName), g,
        "ordinal 1 is \"main\"");
  Check(GetProcAddress(h, "PluginMain") == nullptr, g, "the internal name PluginMain is not exported");

  g = "property list";
  // The type as the resource script names it, in the US English language.
  HRSRC res = FindResourceExA(h, "PIPL", MAKEINTRESOURCEA(16000), MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US));
  Check(res != nullptr, g, "FindResourceExA(\"PIPL\", 16000, 0x0409)");
  if (res) {
    const DWORD size = SizeofResource(h, res);
    CheckEq<unsigned long>(size, 282, g, "resource size");
    const auto* p = static_cast<const uint8_t*>(LockResource(LoadResource(h, res)));
    Check(p && std::vector<uint8_t>(p, p + size) == expectedList, g, "resource bytes equal those generated from pipl.txt");
  }

  g = "string table";
  char text[256];
  int n = LoadStringA(h, 42003, text, sizeof text);
  CheckText(n > 0 ? text : "", kOutOfMemory, g, "entry 42003");
  n = LoadStringA(h, 42000, text, sizeof text);
  CheckText(n > 0 ? text : "", "----- All errors start here -----", g, "entry 42000");
  n = LoadStringA(h, 42015, text, sizeof text);
  CheckText(n > 0 ? text : "", "Sorry, Tarvo Effects only supports editing one effect at a time.", g, "entry 42015");
  CheckEq(LoadStringA(h, 42006, text, sizeof text), 0, g, "entry 42006 has no text");
  CheckEq(LoadStringA(h, 42016, text, sizeof text), 0, g, "no entry past 42015");

  g = "version";
  DWORD ignored = 0;
  const DWORD infoSize = GetFileVersionInfoSizeA(path, &ignored);
  Check(infoSize > 0, g, "GetFileVersionInfoSizeA");
  std::vector<uint8_t> info(infoSize ? infoSize : 1);
  if (infoSize && GetFileVersionInfoA(path, 0, infoSize, info.data())) {
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT len = 0;
    if (VerQueryValueA(info.data(), "\\", reinterpret_cast<void**>(&fixed), &len) && fixed) {
      CheckEq<unsigned long>(fixed->dwSignature, 0xFEEF04BD, g, "fixed information signature");
      CheckEq<unsigned long>(fixed->dwFileVersionMS, 0x00030000, g, "file version 3.0");
      CheckEq<unsigned long>(fixed->dwFileVersionLS, 0, g, "file version .0.0");
      CheckEq<unsigned long>(fixed->dwProductVersionMS, 0x00030000, g, "product version 3.0");
      CheckEq<unsigned long>(fixed->dwProductVersionLS, 0, g, "product version .0.0");
    } else {
      Check(false, g, "no fixed version information");
    }
    auto value = [&](const char* name) -> std::string {
      char* s = nullptr;
      UINT l = 0;
      const std::string key = std::string("\\StringFileInfo\\040904B0\\") + name;
      if (!VerQueryValueA(info.data(), key.c_str(), reinterpret_cast<void**>(&s), &l) || !s) return "(missing)";
      return std::string(s, strnlen(s, l));
    };
    CheckText(value("ProductName"), "Tarvo FX Ripple", g, "ProductName");
    CheckText(value("CompanyName"), "Tarvo Effects", g, "CompanyName");
    CheckText(value("OriginalFilename"), "TarvoFXRipple.AEX", g, "OriginalFilename");
    CheckText(value("FileVersion"), "3.0.0.0", g, "FileVersion");
  } else {
    Check(false, g, "GetFileVersionInfoA");
  }
  FreeLibrary(h);
}
#endif

// A 64 × 48 opaque gradient with a row stride wider than the pixels.
Image TestInput() {
  Image img(64, 48, 64 * 4 + 12);
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t x = 0; x < img.width; ++x)
      img.At(y, x) = PF_Pixel{255, static_cast<uint8_t>(x * 4), static_cast<uint8_t>(y * 5),
                              static_cast<uint8_t>((x ^ y) * 3)};
  return img;
}

// FNV-1a over the visible pixels only (row padding excluded).
uint64_t Checksum(const Image& img) {
  uint64_t h = 1469598103934665603ull;
  for (int32_t y = 0; y < img.height; ++y) {
    const auto* row = reinterpret_cast<const uint8_t*>(img.Row(y));
    for (int32_t i = 0; i < img.width * 4; ++i) h = (h ^ row[i]) * 1099511628211ull;
  }
  return h;
}

bool AnyOpaque(const Image& img) {
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t x = 0; x < img.width; ++x)
      if (img.At(y, x).alpha != 0) return true;
  return false;
}

void CheckCommands(Module& module) {
  const char* g = "commands";
  const tarvo::host::PropertyInfo props = tarvo::host::ParsePropertyList(module.PropertyList());
  Check(props.ok, g, "property list decodes: " + props.error);
  CheckText(tarvo::host::CheckEffectProperties(props), "", g, "property list describes a drivable effect");
  CheckText(props.name, "Tarvo FX Ripple", g, "effect name");
  CheckText(props.category, "Distort", g, "category");
  CheckEq(props.version, kVersionWord, g, "eVER");

  Host host(module.Entry());
  CheckEq(host.GlobalSetup(), PF_Err_NONE, g, "global set-up result");
  CheckEq(host.OutData().my_version, kVersionWord, g, "my_version");
  CheckEq(static_cast<int32_t>(host.OutData().out_flags), props.globalFlags, g, "global set-up flags equal eGLO");
  CheckEq(host.About(), PF_Err_NONE, g, "about result");
  const std::string about = host.ReturnMessage();
  CheckText(about.substr(0, 22), "Tarvo FX Ripple, v3.0\r", g, "about text begins");
  CheckEq(host.ParamsSetup(), PF_Err_NONE, g, "parameter set-up result");
  CheckEq(static_cast<int>(host.Declared().size()), 16, g, "parameters declared");
  CheckText(host.ErrorMessage(), "", g, "no message after a good set-up");
}

void CheckAllocationFailure(Module& module) {
  const char* g = "allocation failure";
  tarvo::host::ModuleAllocStats* stats = module.AllocStats();
  Check(stats != nullptr, g, "the module exports its allocation test interface");
  if (!stats) return;

  // The first allocation of parameter set-up fails: the message comes from
  // the module's messages (the string table on Windows).
  Host host(module.Entry());
  const int64_t before = stats->liveBlocks;
  stats->failAt = 1;
  host.ParamsSetup();
  stats->failAt = 0;
  CheckText(host.ErrorMessage(), kOutOfMemory, g, "message after a failed parameter set-up");
  Check((host.OutData().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE) != 0, g, "display-error flag set");
  CheckEq(stats->liveBlocks, before, g, "blocks left after the failed set-up");

  // Each allocation of a render in turn fails: every block comes back, every
  // world is disposed of, and the only message ever shown is the
  // out-of-memory one (the renderer's failures report it).
  CheckEq(host.ParamsSetup(), PF_Err_NONE, g, "set-up after the failure");
  const Image input = TestInput();
  Image output(input.width, input.height);
  host.Render(input, output);  // builds the process-wide tables once
  const int64_t settled = stats->liveBlocks;
  const int64_t countBefore = stats->allocCount;
  host.Render(input, output);
  const int64_t perRender = stats->allocCount - countBefore;
  Check(perRender > 0 && perRender < 1000, g, "a render allocates (" + std::to_string(perRender) + " blocks)");
  int reported = 0;
  for (int64_t k = 1; k <= perRender && k < 1000; ++k) {
    const std::string at = " (allocation " + std::to_string(k) + " fails)";
    stats->failAt = k;
    host.Render(input, output);
    stats->failAt = 0;
    const std::string msg = host.ErrorMessage();
    if (!msg.empty()) {
      CheckText(msg, kOutOfMemory, g, "message" + at);
      ++reported;
    }
    CheckEq(stats->liveBlocks, settled, g, "blocks left" + at);
    CheckEq(host.LiveWorlds(), 0, g, "worlds left" + at);
  }
  Check(reported > 0, g, "a failed render allocation shows \"" + std::string(kOutOfMemory) + "\"");
}

uint64_t CheckRender(Module& module) {
  const char* g = "render";
  const Image input = TestInput();
  uint64_t sums[2] = {};
  for (int run = 0; run < 2; ++run) {
    Host host(module.Entry());
    host.GlobalSetup();
    CheckEq(host.ParamsSetup(), PF_Err_NONE, g, "parameter set-up");
    host.SetTime(15, 1, 30);
    Image output(input.width, input.height, input.width * 4 + 8);
    CheckEq(host.Render(input, output), PF_Err_NONE, g, "render result");
    CheckText(host.ErrorMessage(), "", g, "no message after the render");
    Check(AnyOpaque(output), g, "the output is not empty");
    CheckEq(host.LiveWorlds(), 0, g, "worlds left after the render");
    sums[run] = Checksum(output);
  }
  Check(sums[0] == sums[1], g, "two renders from fresh hosts are identical");
  return sums[0];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s MODULE EXPECTED_PROPERTY_LIST\n", argc > 0 ? argv[0] : "tarvo_windows_host");
    return 2;
  }
  std::vector<uint8_t> expectedList;
  if (!ReadFile(argv[2], &expectedList)) {
    fprintf(stderr, "cannot read %s\n", argv[2]);
    return 2;
  }

  std::string error;
  std::unique_ptr<Module> module = Module::Load(argv[1], &error);
  Check(module != nullptr, "loader", "the host library loads the module: " + error);
  if (module) {
    Check(module->PropertyList() == expectedList, "property list",
          "the host library reads the bytes generated from pipl.txt");
#if defined(_WIN32)
    CheckWindowsLoader(argv[1], expectedList, module->Entry());
#endif
    CheckCommands(*module);
    CheckAllocationFailure(*module);
    const uint64_t sum = CheckRender(*module);
    printf("render checksum %016llx\n", static_cast<unsigned long long>(sum));
  }
  printf("%d passed, %d failed\n", g_passed, g_failed);
  return g_failed == 0 ? 0 : 1;
}
