// Objective-C basics as the macOS SDK's <objc/objc.h> gives them (x86_64: BOOL is signed char).
#pragma once

typedef signed char BOOL;
#define YES __objc_yes
#define NO __objc_no

#ifndef nil
#define nil nullptr
#endif
#ifndef Nil
#define Nil nullptr
#endif

#define OBJC_ROOT_CLASS __attribute__((objc_root_class))
