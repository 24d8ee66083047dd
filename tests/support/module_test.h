// Drives the built module through its exported entry point with the host
// library, and checks after every call that the plug-in gave back every heap
// block it took.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "guarded_image.h"
#include "ripple_effect.h"
#include "test_host.h"
#include "test_threads.h"

namespace tarvo::host {

using enum RippleEffect::ParamIndex;  // the indices the module declares
constexpr PF_Fixed kOne = 65536;
// A guarded image with a pattern of distinct pixels.
inline Image Pattern(int w, int h, int rowbytes = 0) {
  Image img = Guarded(w, h, rowbytes);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      img.At(y, x) = PF_Pixel{static_cast<uint8_t>(200 + (x & 31)), static_cast<uint8_t>(x * 7),
                              static_cast<uint8_t>(y * 5), static_cast<uint8_t>((x ^ y) * 3)};
  return img;
}
class PluginTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string error;
    module_ = Module::LoadBuilt(&error).release();
    if (!module_) loadError_ = error;
    if (module_) threads_ = RequestTestThreads(*module_);
  }
  static void TearDownTestSuite() {
    delete module_;
    module_ = nullptr;
  }
  void SetUp() override {
    ASSERT_NE(module_, nullptr) << loadError_;
    stats = module_->AllocStats();
    ASSERT_NE(stats, nullptr) << "module built without its test interface";
    stats->failAt = 0;
    host = std::make_unique<TestHost>(module_->Entry());
  }
  void TearDown() override {
    if (stats) stats->failAt = 0;
  }

  // One host call; main always answers 0 and keeps no block past the call.
  void Run(PF_Cmd cmd, bool keepOutData = false) {
    EXPECT_EQ(host->Call(cmd, keepOutData), PF_Err_NONE) << "command " << cmd;
    ExpectNothingLive(cmd);
  }
  void ExpectNothingLive(PF_Cmd cmd) {
    EXPECT_EQ(stats->liveBlocks, 0) << "blocks left after command " << cmd;
    EXPECT_EQ(stats->liveBytes, 0) << "bytes left after command " << cmd;
  }
  PF_Err ParamsSetup() {
    const PF_Err err = host->ParamsSetup();
    ExpectNothingLive(PF_Cmd_PARAMS_SETUP);
    return err;
  }
  // Renders in into out, which must keep its guard bytes.
  PF_Err Render(const Image& in, Image& out) {
    const PF_Err err = host->Render(in, out);
    ExpectNothingLive(PF_Cmd_RENDER);
    EXPECT_TRUE(GuardsIntact(out)) << out.width << "x" << out.height << " rowbytes " << out.rowbytes;
    return err;
  }
  const Module& module() const { return *module_; }
  // Render threads the module was asked for (TARVO_TEST_THREADS).
  static int32_t Threads() { return threads_; }

  ModuleAllocStats* stats = nullptr;
  std::unique_ptr<TestHost> host;

 private:
  static inline Module* module_ = nullptr;
  static inline std::string loadError_;
  static inline int32_t threads_ = 1;
};

}  // namespace tarvo::host
