// Drives the built module through its exported entry point with the host
// library, and checks after every call that the plug-in gave back every heap
// block it took.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "host.h"

namespace tarvo::host {

class PluginTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string error;
    module_ = Module::LoadBuilt(&error).release();
    if (!module_) loadError_ = error;
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
    host = std::make_unique<Host>(module_->Entry());
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
  PF_Err Render(const Image& in, Image& out) {
    const PF_Err err = host->Render(in, out);
    ExpectNothingLive(PF_Cmd_RENDER);
    return err;
  }
  const Module& module() const { return *module_; }

  ModuleAllocStats* stats = nullptr;
  std::unique_ptr<Host> host;

 private:
  static inline Module* module_ = nullptr;
  static inline std::string loadError_;
};

}  // namespace tarvo::host
