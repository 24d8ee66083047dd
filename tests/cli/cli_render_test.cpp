// Renders through the command line, compared with the same renders made
// through the in-process host: defaults and formats, every option, channel layouts and formats, sequences and worker
// processes.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli_support.h"
#include "fixed_point.h"

namespace tarvo::clitest {
namespace {

// The CLI's output file as the effect wrote it.
host::Image Output(const std::string& path) {
  Rgba p;
  EXPECT_TRUE(ReadPicture(path, &p)) << path;
  EXPECT_EQ(p.channels, 4) << path;
  return ToArgb(p);
}

bool SamePixels(const host::Image& a, const host::Image& b) {
  if (a.width != b.width || a.height != b.height) return false;
  for (int y = 0; y < a.height; ++y)
    if (memcmp(a.Row(y), b.Row(y), static_cast<size_t>(a.width) * 4) != 0) return false;
  return true;
}

TEST(CliRender, EveryOptionReachesThePluginAsTheHostWouldSetIt) {
  const std::string dir = TestDir();
  const Rgba picture = MakePicture(120, 90, 4);
  ASSERT_TRUE(WritePicture(dir + "/in.png", picture));
  const RunResult r = RunCli({"in.png",
                              "out.png",
                              "--radius",
                              "40.5",
                              "--center",
                              "30.25,20",
                              "--wave-height",
                              "5",
                              "--angular-wave-height",
                              "2",
                              "--wave-width",
                              "10",
                              "--waveform",
                              "3",
                              "--frequency",
                              "-20",
                              "--intensity",
                              "super",
                              "--stretch",
                              "50",
                              "--stretch-angle",
                              "30",
                              "--twirl",
                              "Hyper Twirl",
                              "--pin-mode",
                              "pin-left",
                              "--antialias",
                              "med",
                              "--chaos-blend",
                              "40",
                              "--chaos",
                              "70",
                              "--phase",
                              "-45.5",
                              "--quality",
                              "low",
                              "--time",
                              "7",
                              "--time-step",
                              "2",
                              "--time-scale",
                              "24"},
                             dir);
  ASSERT_EQ(r.exitCode, 0) << r.err;

  InProcess p;
  host::Host& h = p.Host();
  h.Param(p.Index("Radius")).u.fd.value = 2654208;  // 40.5 × 65536
  h.SetPointPixels(p.Index("Center"), 1982464, 20 << 16);
  h.Param(p.Index("Wave Height")).u.fd.value = 5 << 16;
  h.Param(p.Index("Angular Wave Height")).u.fd.value = 2 << 16;
  h.Param(p.Index("Wave Width")).u.fd.value = 10 << 16;
  h.Param(p.Index("WaveForm")).u.pd.value = 3;
  h.Param(p.Index("Frequency")).u.fd.value = -20 * 65536;
  h.Param(p.Index("Intensity")).u.pd.value = 3;
  h.Param(p.Index("Stretch")).u.fd.value = 50 << 16;
  h.Param(p.Index("Stretch Angle")).u.ad.value = 30 << 16;
  h.Param(p.Index("Twirl")).u.pd.value = 4;
  h.Param(p.Index("Pin Mode")).u.pd.value = 5;
  h.Param(p.Index("Antialias")).u.pd.value = 2;
  h.Param(p.Index("Chaos Blend")).u.fd.value = 40 << 16;
  h.Param(p.Index("Chaos")).u.fd.value = 70 << 16;
  h.Param(p.Index("Phase")).u.ad.value = -2981888;  // −45.5 × 65536
  h.SetQuality(PF_Quality_LO);
  h.SetTime(7, 2, 24);
  const host::Image expected = p.Render(ToArgb(picture));
  EXPECT_TRUE(SamePixels(Output(dir + "/out.png"), expected));

  // The same options differ from the defaults' render.
  InProcess d;
  EXPECT_FALSE(SamePixels(expected, d.Render(ToArgb(picture))));
}

// Nothing of one render reaches the next: two settings that differ in every
// per-render piece (the ripple's wave, the pin profiles, the field's branch,
// the sampler) rendered alternately in one process give the files of fresh
// processes.
TEST(CliRender, AlternatingSettingsInOneProcessMatchFreshProcesses) {
  const std::string dir = TestDir();
  const Rgba picture = MakePicture(96, 72, 4);
  ASSERT_TRUE(WritePicture(dir + "/in.png", picture));
  ASSERT_EQ(RunCli({"in.png", "a.png", "--radius", "40", "--stretch", "40", "--stretch-angle", "30", "--chaos-blend",
                    "60", "--chaos", "90", "--pin-mode", "pin-center"},
                   dir)
                .exitCode,
            0);
  ASSERT_EQ(RunCli({"in.png", "b.png", "--waveform", "triangle", "--twirl", "hyper-twirl", "--angular-wave-height", "2",
                    "--pin-mode", "pin-left", "--antialias", "low", "--quality", "low"},
                   dir)
                .exitCode,
            0);
  InProcess p;
  host::Host& h = p.Host();
  const host::Image input = ToArgb(picture);
  for (int k = 0; k < 4; ++k) {
    h.SetParamsToDefaults();
    if (k % 2 == 0) {
      h.Param(p.Index("Radius")).u.fd.value = 40 << 16;
      h.Param(p.Index("Stretch")).u.fd.value = 40 << 16;
      h.Param(p.Index("Stretch Angle")).u.ad.value = 30 << 16;
      h.Param(p.Index("Chaos Blend")).u.fd.value = 60 << 16;
      h.Param(p.Index("Chaos")).u.fd.value = 90 << 16;
      h.Param(p.Index("Pin Mode")).u.pd.value = 3;
      h.SetQuality(PF_Quality_HI);
    } else {
      h.Param(p.Index("WaveForm")).u.pd.value = 2;
      h.Param(p.Index("Twirl")).u.pd.value = 4;
      h.Param(p.Index("Angular Wave Height")).u.fd.value = 2 << 16;
      h.Param(p.Index("Pin Mode")).u.pd.value = 5;
      h.Param(p.Index("Antialias")).u.pd.value = 3;
      h.SetQuality(PF_Quality_LO);
    }
    EXPECT_TRUE(SamePixels(Output(dir + (k % 2 == 0 ? "/a.png" : "/b.png")), p.Render(input))) << "render " << k;
  }
}

TEST(CliRender, ValuesTruncateTowardZeroAndTheDeclaredDefaultIsAlwaysAccepted) {
  const std::string dir = TestDir();
  const Rgba picture = MakePicture(40, 30, 4);
  ASSERT_TRUE(WritePicture(dir + "/in.png", picture));
  // 2^-17 below 25 truncates to just under 25; −0.00001 truncates to 0.
  ASSERT_EQ(
      RunCli({"in.png", "a.png", "--radius", "24.9999923706", "--stretch", "-0.00001", "--chaos", "0"}, dir).exitCode,
      0);
  InProcess p;
  p.Host().Param(p.Index("Radius")).u.fd.value = 1638399;
  EXPECT_TRUE(SamePixels(Output(dir + "/a.png"), p.Render(ToArgb(picture))));
  for (const char* v : {"0", "100"})  // both ends of the declared range
    EXPECT_EQ(RunCli({"in.png", "e.png", "--radius", v}, dir).exitCode, 0) << v;
}

TEST(CliRender, GrayAndColourInputsGetOpaqueAlphaAndKeepTheirSize) {
  const std::string dir = TestDir();
  for (int channels : {1, 2, 3}) {
    const Rgba picture = MakePicture(33, 21, channels);
    const std::string in = "in" + std::to_string(channels) + ".png", out = "out" + std::to_string(channels) + ".png";
    ASSERT_TRUE(WritePicture(dir + "/" + in, picture));
    ASSERT_EQ(RunCli({in, out}, dir).exitCode, 0) << channels;
    host::Image argb = ToArgb(picture);
    if (channels != 2) {
      EXPECT_EQ(argb.At(5, 5).alpha, 255);
    }
    InProcess p;
    EXPECT_TRUE(SamePixels(Output(dir + "/" + out), p.Render(argb))) << channels << " channels";
  }
}

// With the defaults, byte-identical to the in-process host's render, in
// every format that keeps alpha (an 8-bit value survives EXR's half floats).
TEST(CliRender, DefaultsInEveryFormatTheOutputExtensionNames) {
  const std::string dir = TestDir();
  const Rgba picture = MakePicture(64, 48, 4);
  ASSERT_TRUE(WritePicture(dir + "/in.tif", picture));
  InProcess p;
  const host::Image expected = p.Render(ToArgb(picture));
  EXPECT_FALSE(SamePixels(expected, ToArgb(picture))) << "the ripple must move pixels";
  // (OpenEXR holds colour multiplied by alpha: tests/files/inputs.sh.)
  for (const char* out : {"out.png", "out.tif"}) {
    const RunResult r = RunCli({"in.tif", out}, dir);
    ASSERT_EQ(r.exitCode, 0) << out << r.err;
    EXPECT_EQ(r.err + r.out, "");
    EXPECT_TRUE(SamePixels(Output(dir + "/" + out), expected)) << out;
  }
  // The PNG level changes the file, never the pixels.
  ASSERT_EQ(RunCli({"in.tif", "stored.png", "--png-compression", "0"}, dir).exitCode, 0);
  EXPECT_TRUE(SamePixels(Output(dir + "/stored.png"), expected));
  EXPECT_GT(std::filesystem::file_size(dir + "/stored.png"), std::filesystem::file_size(dir + "/out.png"));
  // JPEG holds no alpha: three channels, colour only roughly kept.
  ASSERT_EQ(RunCli({"in.tif", "out.jpg"}, dir).exitCode, 0);
  Rgba jpeg;
  ASSERT_TRUE(ReadPicture(dir + "/out.jpg", &jpeg));
  EXPECT_EQ(jpeg.channels, 3);
  EXPECT_EQ(jpeg.width, 64);
  // And a JPEG reads back in as an opaque input.
  ASSERT_EQ(RunCli({"out.jpg", "again.png"}, dir).exitCode, 0);
  EXPECT_EQ(Output(dir + "/again.png").width, 64);
}

TEST(CliRender, DemoPictureHasSizeColourAndASoftAlphaEdge) {
  const std::string dir = TestDir();
  ASSERT_EQ(RunCli({"--demo", "demo.png"}, dir).exitCode, 0);
  const host::Image demo = Output(dir + "/demo.png");
  EXPECT_EQ(demo.width, 640);
  EXPECT_EQ(demo.height, 480);
  int alphas[256] = {};
  for (int y = 0; y < demo.height; ++y)
    for (int x = 0; x < demo.width; ++x) ++alphas[demo.At(y, x).alpha];
  int distinct = 0;
  for (int a = 0; a < 256; ++a) distinct += alphas[a] > 0;
  EXPECT_GT(alphas[255], 640 * 480 / 2);
  EXPECT_GT(distinct, 20);  // a soft edge, not a hard one
  EXPECT_LT(demo.At(0, 0).alpha, 16);

  ASSERT_EQ(RunCli({"--demo", "small.tif", "--size", "33x17"}, dir).exitCode, 0);
  const host::Image small = Output(dir + "/small.tif");
  EXPECT_EQ(small.width, 33);
  EXPECT_EQ(small.height, 17);
}

// Worker processes write what one process writes.
TEST(CliSequence, RingsTravelAndEachFrameRendersAtItsOwnTime) {
  const std::string dir = TestDir();
  for (const char* jobs : {"1", "3"}) {
    const RunResult r = RunCli({"--demo", std::string("f") + jobs + "_%03d.png", "--size", "96x64", "--frames", "3-6",
                                "--time-step", "2", "--quiet", "--jobs", jobs},
                               dir);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
  }
  EXPECT_FALSE(Exists(dir + "/f1_002.png"));
  EXPECT_FALSE(Exists(dir + "/f1_007.png"));
  EXPECT_TRUE(FilesContaining(dir, ".tmp").empty());
  for (int n = 3; n <= 6; ++n) {
    const std::string frame = "_00" + std::to_string(n) + ".png";
    ASSERT_TRUE(Exists(dir + "/f1" + frame)) << n;
    EXPECT_EQ(ReadFile(dir + "/f3" + frame), ReadFile(dir + "/f1" + frame)) << "frame " << n;
    EXPECT_TRUE(n == 3 || ReadFile(dir + "/f1" + frame) != ReadFile(dir + "/f1_00" + std::to_string(n - 1) + ".png"))
        << "frames " << n - 1 << " and " << n << " are the same: the rings do not move";
  }
  // Frame 5 at time step 2 is the still rendered at time 10.
  ASSERT_EQ(RunCli({"--demo", "t10.png", "--size", "96x64", "--time", "10", "--time-step", "2"}, dir).exitCode, 0);
  EXPECT_EQ(ReadFile(dir + "/t10.png"), ReadFile(dir + "/f1_005.png"));
}

// Every thread count writes the bytes of one thread, in each field branch.
TEST(CliThreads, SameFileAtEveryThreadCount) {
  const std::string dir = TestDir();
  const std::vector<std::vector<std::string>> settings = {
      {},
      {"--stretch", "50", "--stretch-angle", "30", "--twirl", "hyper-twirl", "--angular-wave-height", "5"},
      {"--stretch", "-40", "--stretch-angle", "90", "--antialias", "med", "--pin-mode", "pin-center"}};
  for (size_t k = 0; k < settings.size(); ++k) {
    std::string first;
    for (const char* threads : {"1", "2", "3", "7"}) {
      std::vector<std::string> args = {"--demo", "t.png", "--size", "203x151", "--threads", threads};
      args.insert(args.end(), settings[k].begin(), settings[k].end());
      ASSERT_EQ(RunCli(args, dir).exitCode, 0) << k << " " << threads;
      const std::string bytes = ReadFile(dir + "/t.png");
      if (first.empty()) first = bytes;
      EXPECT_EQ(bytes, first) << "settings " << k << ", " << threads << " threads";
    }
  }
}

TEST(CliSequence, InputFramesMapToOutputFrames) {
  const std::string dir = TestDir();
  ASSERT_TRUE(WritePicture(dir + "/in_1.png", MakePicture(40, 30, 4)));
  ASSERT_TRUE(WritePicture(dir + "/in_2.png", MakePicture(30, 40, 3)));
  ASSERT_EQ(RunCli({"in_%d.png", "out_%02d.tif", "--frames", "1-2", "--jobs", "1"}, dir).exitCode, 0);
  Rgba two;
  ASSERT_TRUE(WritePicture(dir + "/still.png", MakePicture(30, 40, 3)));
  ASSERT_EQ(RunCli({"still.png", "still_out.png", "--time", "2"}, dir).exitCode, 0);
  EXPECT_TRUE(SamePixels(Output(dir + "/out_02.tif"), Output(dir + "/still_out.png")));
  EXPECT_EQ(Output(dir + "/out_01.tif").width, 40);
}

}  // namespace
}  // namespace tarvo::clitest
