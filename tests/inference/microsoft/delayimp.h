// SPDX-License-Identifier: MIT
/// \file delayimp.h
/// MinGW's header with the one difference of Microsoft's that matters to us: there the hook is a constant, so
/// that nothing can change it at run time.
#ifndef TONWERK_TESTS_INFERENCE_MICROSOFT_DELAYIMP_H
#define TONWERK_TESTS_INFERENCE_MICROSOFT_DELAYIMP_H

#pragma GCC system_header // #include_next is an extension
#define __pfnDliNotifyHook2 writableNotifyHook2
#include_next <delayimp.h>
#undef __pfnDliNotifyHook2

extern "C" const PfnDliHook __pfnDliNotifyHook2;

#endif // TONWERK_TESTS_INFERENCE_MICROSOFT_DELAYIMP_H
