// Loading the plug-in module: its entry point, its property list and, when
// it was built with them, its allocation test counters.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "host_api.h"
#include "thread_request.h"

namespace tarvo::host {

// The allocation bookkeeping the module exports (same layout as the
// plug-in's AllocStats).
struct ModuleAllocStats {
  int64_t failAt;
  int64_t allocCount;
  int64_t liveBlocks;
  int64_t liveBytes;
  int64_t peakBytes;
};

// A loaded plug-in module.
class Module {
 public:
  // Loads the module at path; on failure returns null and sets *error.
  static std::unique_ptr<Module> Load(const std::string& path, std::string* error);
  // The module this build of the project produced (its path is compiled in).
  static std::unique_ptr<Module> LoadBuilt(std::string* error);
  static std::string BuiltModulePath();
  ~Module();

  PF_EntryFunc Entry() const { return entry_; }
  // The property list the host reads before calling the entry point; empty
  // when the module carries none.
  const std::vector<uint8_t>& PropertyList() const { return pipl_; }
  // Null when the module was built without its test interface.
  ModuleAllocStats* AllocStats() const { return stats_; }
  // Asks the module to render on up to threads threads (thread_request.h);
  // returns the count in effect: 1 from a module that cannot be asked.
  // Call it between host calls.
  int32_t RequestThreads(int32_t threads);

 private:
  Module() = default;
  void* handle_ = nullptr;
  PF_EntryFunc entry_ = nullptr;
  std::vector<uint8_t> pipl_;
  ModuleAllocStats* stats_ = nullptr;
  tarvo::ThreadRequestFn threadRequest_ = nullptr;
};

}  // namespace tarvo::host
