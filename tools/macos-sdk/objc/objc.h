// Objective-C basics as the macOS SDK's <objc/objc.h> gives them. BOOL is bool
// where the compiler says __OBJC_BOOL_IS_BOOL (arm64) and signed char
// elsewhere (x86_64); the compile check runs once as each.
#pragma once

#if defined(__OBJC_BOOL_IS_BOOL) && __OBJC_BOOL_IS_BOOL
typedef bool BOOL;
#else
typedef signed char BOOL;
#endif
#define YES __objc_yes
#define NO __objc_no

#ifndef nil
#define nil nullptr
#endif
#ifndef Nil
#define Nil nullptr
#endif

#define OBJC_ROOT_CLASS __attribute__((objc_root_class))
