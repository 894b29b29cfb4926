#pragma once

// Before a function: JavaScript finds it under this name.
#define VX_WEB_EXPORT(_name) extern "C" __attribute__((export_name(#_name)))
