// SPDX-License-Identifier: MIT
// The vocabulary of platform/com.h, from the system's headers.
#pragma once

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h> // ahead of all the others

#include <audioapotypes.h>
#include <mmdeviceapi.h>
#include <mmreg.h>
#include <objbase.h>
#include <propidl.h>
#include <propsys.h>
#include <unknwn.h>
