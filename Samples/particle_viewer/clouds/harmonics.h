#pragma once

// Spherical harmonics: how the colour of a splat depends on the side from which it is seen. The colour is a constant
// plus a sum of coefficients times basis functions of a direction, which goes from the eye to the splat.

namespace Viewer
{
// clang-format off
#define out
#define VIEWER_SHADER_CODE(...) inline __VA_ARGS__
#include "harmonic_basis.inl"
#undef VIEWER_SHADER_CODE
#undef out

#define VIEWER_SHADER_CODE(...) inline constexpr const char *kHarmonicBasisCode = #__VA_ARGS__;
#include "harmonic_basis.inl"
#undef VIEWER_SHADER_CODE
// clang-format on
} // namespace Viewer
