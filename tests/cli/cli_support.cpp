#include "cli_support.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace tarvo::clitest {

namespace fs = std::filesystem;
namespace OIIO = OIIO_NAMESPACE;

RunResult RunCli(const std::vector<std::string>& args, const std::string& dir) {
  RunResult r;
  const std::string outPath = dir + "/.stdout", errPath = dir + "/.stderr";
  const pid_t pid = fork();
  if (pid == 0) {
    if (chdir(dir.c_str()) != 0) _exit(127);
    const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || err < 0) _exit(127);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    std::vector<char*> argv{const_cast<char*>(TARVO_RIPPLE_EXE)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(TARVO_RIPPLE_EXE, argv.data());
    _exit(127);
  }
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) r.exitCode = WEXITSTATUS(status);
  r.out = ReadFile(outPath);
  r.err = ReadFile(errPath);
  fs::remove(outPath);
  fs::remove(errPath);
  return r;
}

std::string TestDir() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  const fs::path dir = fs::path(TARVO_CLI_WORK_DIR) / (std::string(info->test_suite_name()) + "." + info->name());
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir.string();
}

Rgba MakePicture(int width, int height, int channels) {
  Rgba p;
  p.width = width;
  p.height = height;
  p.channels = channels;
  p.pixels.resize(static_cast<size_t>(width) * height * channels);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      uint8_t* px = &p.pixels[(static_cast<size_t>(y) * width + x) * channels];
      const uint8_t v[4] = {static_cast<uint8_t>(x * 255 / std::max(1, width - 1)),
                            static_cast<uint8_t>(y * 255 / std::max(1, height - 1)),
                            static_cast<uint8_t>(((x / 4 + y / 4) % 2) ? 230 : 20),
                            static_cast<uint8_t>((x * 7 + y * 3) % 256)};
      for (int c = 0; c < channels; ++c) px[c] = channels == 1 ? static_cast<uint8_t>((v[0] + v[1]) / 2) : v[c];
    }
  return p;
}

bool WritePicture(const std::string& path, const Rgba& picture) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) return false;
  OIIO::ImageSpec layout(picture.width, picture.height, picture.channels, OIIO::TypeDesc::UINT8);
  if (picture.channels == 2 || picture.channels == 4) {
    layout.alpha_channel = picture.channels - 1;
    layout.attribute("oiio:UnassociatedAlpha", 1);
  }
  return out->open(path, layout) && out->write_image(OIIO::TypeDesc::UINT8, picture.pixels.data()) && out->close();
}

bool ReadPicture(const std::string& path, Rgba* picture) {
  OIIO::ImageSpec config;
  config.attribute("oiio:UnassociatedAlpha", 1);
  auto in = OIIO::ImageInput::open(path, &config);
  if (!in) return false;
  const OIIO::ImageSpec layout = in->spec_dimensions(0);
  picture->width = layout.width;
  picture->height = layout.height;
  picture->channels = layout.nchannels;
  picture->pixels.resize(static_cast<size_t>(layout.width) * layout.height * layout.nchannels);
  return in->read_image(0, 0, 0, layout.nchannels, OIIO::TypeDesc::UINT8, picture->pixels.data());
}

host::Image ToArgb(const Rgba& p) {
  host::Image img(p.width, p.height);
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x) {
      const uint8_t* s = &p.pixels[(static_cast<size_t>(y) * p.width + x) * p.channels];
      PF_Pixel& d = img.At(y, x);
      const bool gray = p.channels < 3;
      d.red = s[0];
      d.green = gray ? s[0] : s[1];
      d.blue = gray ? s[0] : s[2];
      d.alpha = p.channels == 2 ? s[1] : p.channels >= 4 ? s[3] : 255;
    }
  return img;
}

InProcess::InProcess() {
  std::string error;
  module_ = host::Module::LoadBuilt(&error);
  if (!module_) {
    ADD_FAILURE() << error;
    return;
  }
  host_ = std::make_unique<host::Host>(module_->Entry());
  EXPECT_EQ(host_->GlobalSetup(), PF_Err_NONE);
  EXPECT_EQ(host_->ParamsSetup(), PF_Err_NONE);
}

int InProcess::Index(const std::string& displayName) const {
  const auto& d = host_->Declared();
  for (size_t i = 0; i < d.size(); ++i)
    if (displayName == d[i].def.name) return static_cast<int>(i + 1);
  ADD_FAILURE() << "no parameter " << displayName;
  return 0;
}

host::Image InProcess::Render(const host::Image& input) {
  host::Image output(input.width, input.height);
  EXPECT_EQ(host_->Render(input, output), PF_Err_NONE);
  EXPECT_EQ(host_->ErrorMessage(), "");
  return output;
}

std::string ReadFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

bool Exists(const std::string& path) {
  std::error_code ec;
  return fs::exists(path, ec);
}

std::vector<std::string> FilesContaining(const std::string& dir, const std::string& text) {
  std::vector<std::string> found;
  for (const auto& e : fs::directory_iterator(dir))
    if (e.path().filename().string().find(text) != std::string::npos) found.push_back(e.path().filename().string());
  return found;
}

}  // namespace tarvo::clitest
