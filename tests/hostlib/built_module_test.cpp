// The module this build produced, loaded and driven the way a host does.
#include <gtest/gtest.h>

#include <string>

#include "host.h"

namespace tarvo::host {
namespace {

TEST(BuiltModule, LoadsDeclaresItselfAndSetsUp) {
  std::string error;
  std::unique_ptr<Module> module = Module::LoadBuilt(&error);
  ASSERT_NE(module, nullptr) << error;
  ASSERT_NE(module->Entry(), nullptr);

  ASSERT_EQ(module->PropertyList().size(), 282u);
  const PropertyInfo info = ParsePropertyList(module->PropertyList());
  ASSERT_TRUE(info.ok) << info.error;
  EXPECT_EQ(CheckEffectProperties(info), "");
  EXPECT_EQ(info.name, "Tarvo FX Ripple");
  EXPECT_EQ(info.category, "Distort");
  EXPECT_EQ(info.entryPoint, "main");
  EXPECT_EQ(info.version, 0x00180600u);
  EXPECT_EQ(info.globalFlags, 5);

  Host host(module->Entry());
  EXPECT_EQ(host.GlobalSetup(), PF_Err_NONE);
  EXPECT_EQ(host.OutData().my_version, info.version);
  EXPECT_EQ(host.OutData().out_flags, info.globalFlags);

  EXPECT_EQ(host.ParamsSetup(), PF_Err_NONE);
  EXPECT_EQ(host.counts().addParam, 16);
  ASSERT_EQ(host.Declared().size(), 16u);
  EXPECT_EQ(host.OutData().num_params, 17);
  EXPECT_STREQ(host.Declared()[0].def.name, "Radius");
  EXPECT_STREQ(host.Declared()[15].def.name, "Phase");
  EXPECT_EQ(host.Declared()[5].choices.size(), 22u);  // WaveForm: 22 names for 24 values
  EXPECT_EQ(host.Declared()[5].def.u.pd.num_choices, 24);
  EXPECT_EQ(host.GlobalSetdown(), PF_Err_NONE);
}

}  // namespace
}  // namespace tarvo::host
