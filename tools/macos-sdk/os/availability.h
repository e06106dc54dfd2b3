// The SDK's availability macros, expanding to clang's availability attribute as
// in <os/availability.h>: API_AVAILABLE(macos(13.0)) marks a declaration as
// introduced in macOS 13.0. Clang checks a call against the deployment target
// only when it compiles for a Darwin target, which the real-SDK cross build does.
#pragma once

#define __API_AVAILABLE_PLATFORM_macos(x) macos, introduced = x
#define __API_AVAILABLE_PLATFORM_macosx(x) macosx, introduced = x
#define __API_AVAILABLE_PLATFORM_ios(x) ios, introduced = x
#define __API_A(x) __attribute__((availability(__API_AVAILABLE_PLATFORM_##x)))
#define __API_AVAILABLE1(x) __API_A(x)
#define __API_AVAILABLE2(x, y) __API_A(x) __API_A(y)
#define __API_AVAILABLE3(x, y, z) __API_A(x) __API_A(y) __API_A(z)
#define __API_AVAILABLE_GET_MACRO(_1, _2, _3, NAME, ...) NAME
#define API_AVAILABLE(...) __API_AVAILABLE_GET_MACRO(__VA_ARGS__, __API_AVAILABLE3, __API_AVAILABLE2, __API_AVAILABLE1, 0)(__VA_ARGS__)

#define __API_DEPRECATED_PLATFORM_macos(x, y) macos, introduced = x, deprecated = y
#define __API_DEPRECATED_PLATFORM_macosx(x, y) macosx, introduced = x, deprecated = y
#define __API_D(msg, x) __attribute__((availability(__API_DEPRECATED_PLATFORM_##x, message = msg)))
#define API_DEPRECATED(msg, x) __API_D(msg, x)

#define __API_UNAVAILABLE_PLATFORM_macos macos, unavailable
#define __API_UNAVAILABLE_PLATFORM_macosx macosx, unavailable
#define __API_UNAVAILABLE_PLATFORM_ios ios, unavailable
#define __API_UNAVAILABLE_PLATFORM_tvos tvos, unavailable
#define __API_UNAVAILABLE_PLATFORM_watchos watchos, unavailable
#define __API_U(x) __attribute__((availability(__API_UNAVAILABLE_PLATFORM_##x)))
#define __API_UNAVAILABLE1(x) __API_U(x)
#define __API_UNAVAILABLE2(x, y) __API_U(x) __API_U(y)
#define __API_UNAVAILABLE3(x, y, z) __API_U(x) __API_U(y) __API_U(z)
#define API_UNAVAILABLE(...) __API_AVAILABLE_GET_MACRO(__VA_ARGS__, __API_UNAVAILABLE3, __API_UNAVAILABLE2, __API_UNAVAILABLE1, 0)(__VA_ARGS__)
