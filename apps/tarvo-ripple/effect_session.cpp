#include "effect_session.h"

#include <stdio.h>

#include <chrono>

namespace tarvo::cli {

namespace {
std::string Hex(uint32_t v) {
  char buf[16];
  snprintf(buf, sizeof buf, "0x%08x", v);
  return buf;
}
}  // namespace

std::unique_ptr<EffectSession> EffectSession::Open(const std::string& modulePath, std::string* error) {
  std::unique_ptr<EffectSession> s(new EffectSession());
  s->module_ = host::Module::Load(modulePath, error);
  if (!s->module_) return nullptr;
  s->info_ = host::ParsePropertyList(s->module_->PropertyList());
  if (const std::string bad = host::CheckEffectProperties(s->info_); !bad.empty()) {
    *error = "module " + modulePath + ": " + bad;
    return nullptr;
  }
  s->host_ = std::make_unique<host::Host>(s->module_->Entry());
  host::Host& h = *s->host_;
  if (h.GlobalSetup() != PF_Err_NONE || !h.ErrorMessage().empty()) {
    *error = "module " + modulePath + " failed its global set-up" +
             (h.ErrorMessage().empty() ? std::string() : ": " + h.ErrorMessage());
    return nullptr;
  }
  // What the module says at run time must agree with its property list.
  if (h.OutData().my_version != s->info_.version) {
    *error = "module " + modulePath + " reports version " + Hex(h.OutData().my_version) +
             " at global set-up, its property list " + Hex(s->info_.version);
    return nullptr;
  }
  if (h.OutData().out_flags != s->info_.globalFlags) {
    *error = "module " + modulePath + " reports flags " + Hex(static_cast<uint32_t>(h.OutData().out_flags)) +
             " at global set-up, its property list " + Hex(static_cast<uint32_t>(s->info_.globalFlags));
    return nullptr;
  }
  const PF_Err err = h.ParamsSetup();
  if (err != PF_Err_NONE || !h.ErrorMessage().empty()) {
    *error = "module " + modulePath + " failed to declare its parameters" +
             (h.ErrorMessage().empty() ? " (error " + std::to_string(err) + ")" : ": " + h.ErrorMessage());
    return nullptr;
  }
  s->options_ = OptionsFromDeclared(h.Declared());
  return s;
}

EffectSession::~EffectSession() {
  if (host_) host_->GlobalSetdown();
  host_.reset();  // before the module that holds its entry point
}

const ParamOption* EffectSession::FindOption(const std::string& name) const {
  for (const ParamOption& o : options_)
    if (o.name == name) return &o;
  return nullptr;
}

bool EffectSession::Apply(const std::vector<OptionValue>& values, std::string* error) {
  for (const auto& [name, text] : values) {
    const ParamOption* o = FindOption(name);
    if (!o) {
      *error = "the effect has no parameter --" + name;
      return false;
    }
    if (!ApplyValue(*o, text, *host_, error)) return false;
  }
  return true;
}

EffectSession::Outcome EffectSession::Render(const host::Image& input, host::Image* output, std::string* message) {
  *output = host::Image(input.width, input.height);
  const auto start = std::chrono::steady_clock::now();
  const PF_Err err = host_->Render(input, *output);
  lastRenderSeconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (const std::string shown = host_->ErrorMessage(); !shown.empty()) {
    *message = shown;
    return Outcome::kEffectError;
  }
  if (err != PF_Err_NONE) {
    *message = "the render ended with host error " + std::to_string(err);
    return Outcome::kHostError;
  }
  return Outcome::kOk;
}

}  // namespace tarvo::cli
