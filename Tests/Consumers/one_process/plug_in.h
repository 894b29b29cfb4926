#pragma once

// A plug-in of a host, in a shared library of its own.

#include "module.h"

#define PLUG_IN_API __attribute__((visibility("default")))

PLUG_IN_API SServices PlugInFindsServices();
PLUG_IN_API void PlugInReadsPastViews();
