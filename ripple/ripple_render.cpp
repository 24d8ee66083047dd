// Placeholder render: passes the input through (the base operation copies the
// input layer to the output with the host's copy).
#include "ripple_effect.h"

namespace tarvo {

PF_Err RippleEffect::Render(PixelImage* in, PixelImage* out) { return EffectBase::Render(in, out); }

}  // namespace tarvo
