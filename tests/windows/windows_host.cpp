// Drives the built module through the platform's own loader, as the video
// host does on Windows: LoadLibrary, GetProcAddress("main"), the property list
// through FindResource, messages through the module's string table, and the
// commands up to a render.
//
//   tarvo_windows_host MODULE EXPECTED_PROPERTY_LIST
//
// EXPECTED_PROPERTY_LIST holds the bytes generated from pipl.txt. Prints one
// line per failed check, the render checksum, and last "N passed, M failed";
// exits 0 only when nothing failed. The same program builds on Linux, where
// the loader checks go through dlopen and the platform-neutral ones still run.
// Everything else about the commands is tested on Linux (tests/plugin,
// tests/faults) and the resources' contents in the 32-bit module
// (inspect_module.py); here they run once as Windows code.
#include <stdint.h>
#include <stdio.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
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

void Check(bool ok, const std::string& what) {
  ok ? ++g_passed : ++g_failed;
  if (!ok) printf("FAILED %s\n", what.c_str());
}

template <class Got, class Want>
void CheckEq(const Got& got, const Want& want, const std::string& what) {
  std::ostringstream s;
  s << what << ": got \"" << got << "\", want \"" << want << "\"";
  Check(got == want, s.str());
}

constexpr uint32_t kVersionWord = 0x00180600;  // 3.0.0, release, build 0
constexpr const char* kOutOfMemory = "Memory Allocation Failure!";

#if defined(_WIN32)
// The loader's view of the module, independent of the host library.
void CheckWindowsLoader(const char* path, const std::vector<uint8_t>& expectedList, PF_EntryFunc entry) {
  HMODULE h = LoadLibraryA(path);
  Check(h != nullptr, "LoadLibraryA(" + std::string(path) + ")");
  if (!h) return;
  FARPROC byName = GetProcAddress(h, "main");
  Check(byName && reinterpret_cast<void*>(byName) == reinterpret_cast<void*>(entry),
        "GetProcAddress(\"main\") is the entry point the host library found");
  Check(GetProcAddress(h, MAKEINTRESOURCEA(1)) == byName, "ordinal 1 is \"main\"");
  Check(GetProcAddress(h, "PluginMain") == nullptr, "the internal name PluginMain is not exported");

  // The type as the resource script names it, in the US English language.
  HRSRC res = FindResourceExA(h, "PIPL", MAKEINTRESOURCEA(16000), MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US));
  const auto* pipl = res ? static_cast<const uint8_t*>(LockResource(LoadResource(h, res))) : nullptr;
  const DWORD size = res ? SizeofResource(h, res) : 0;
  CheckEq(size, 282ul, "size of resource \"PIPL\" 16000, language 0x0409");
  Check(pipl && std::vector<uint8_t>(pipl, pipl + size) == expectedList, "resource bytes equal those generated");

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

// Set-up, about, a failed allocation's message and a render from a fresh
// host; returns the FNV-1a checksum of the visible output pixels.
uint64_t CheckCommands(Module& module) {
  Host host(module.Entry());
  CheckEq(host.GlobalSetup(), PF_Err_NONE, "global set-up result");
  CheckEq(host.OutData().my_version, kVersionWord, "my_version");
  CheckEq(host.About(), PF_Err_NONE, "about result");
  CheckEq(host.ReturnMessage().substr(0, 22), "Tarvo FX Ripple, v3.0\r", "about text begins");

  // The first allocation of parameter set-up fails: the message comes from
  // the module's messages (the string table on Windows), no block is left.
  tarvo::host::ModuleAllocStats* stats = module.AllocStats();
  Check(stats != nullptr, "the module exports its allocation test interface");
  if (stats) {
    const int64_t before = stats->liveBlocks;
    stats->failAt = 1;
    host.ParamsSetup();
    stats->failAt = 0;
    CheckEq(host.ErrorMessage(), kOutOfMemory, "message after a failed parameter set-up");
    CheckEq(stats->liveBlocks, before, "blocks left after the failed set-up");
  }
  CheckEq(host.ParamsSetup(), PF_Err_NONE, "parameter set-up result");
  CheckEq(host.Declared().size(), 16u, "parameters declared");

  host.SetTime(15, 1, 30);
  const Image input = TestInput();
  Image output(input.width, input.height, input.width * 4 + 8);
  CheckEq(host.Render(input, output), PF_Err_NONE, "render result");
  CheckEq(host.ErrorMessage(), "", "message after the render");
  CheckEq(host.LiveWorlds(), 0, "worlds left after the render");
  uint64_t sum = 1469598103934665603ull;
  int opaque = 0;
  for (int32_t y = 0; y < output.height; ++y)
    for (int32_t x = 0; x < output.width; ++x) {
      const PF_Pixel& p = output.At(y, x);
      opaque += p.alpha != 0;
      for (uint8_t b : {p.alpha, p.red, p.green, p.blue}) sum = (sum ^ b) * 1099511628211ull;
    }
  Check(opaque > 0, "the output is not empty");
  return sum;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s MODULE EXPECTED_PROPERTY_LIST\n", argc > 0 ? argv[0] : "tarvo_windows_host");
    return 2;
  }
  std::ifstream file(argv[2], std::ios::binary);
  if (!file) {
    fprintf(stderr, "cannot read %s\n", argv[2]);
    return 2;
  }
  const std::vector<uint8_t> expectedList((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::string error;
  std::unique_ptr<Module> module = Module::Load(argv[1], &error);
  Check(module != nullptr, "the host library loads the module: " + error);
  if (module) {
    Check(module->PropertyList() == expectedList, "the host library reads the property list generated from pipl.txt");
#if defined(_WIN32)
    CheckWindowsLoader(argv[1], expectedList, module->Entry());
#endif
    // Two fresh hosts render the same pixels: nothing depends on memory left
    // over from an earlier render.
    const uint64_t sum = CheckCommands(*module);
    CheckEq(CheckCommands(*module), sum, "checksum of a second render from a fresh host");
    printf("render checksum %016llx\n", static_cast<unsigned long long>(sum));
  }
  printf("%d passed, %d failed\n", g_passed, g_failed);
  return g_failed == 0 ? 0 : 1;
}
