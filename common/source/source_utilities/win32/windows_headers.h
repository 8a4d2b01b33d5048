// The one place the Windows SDK headers are included, with the macros that
// keep them lean and out of the way of the standard library.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

#include <windows.h>
