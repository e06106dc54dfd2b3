// libdispatch as the SDK declares it for Objective-C with ARC: queues and
// semaphores are Objective-C objects that ARC retains and releases. The SDK's
// attributes are kept: a create call whose result is dropped is an error under
// -Werror, as on a Mac. Darwin's 64-bit integers are long long, not glibc's
// long, so they are spelt out here.
#pragma once

#include <stdint.h>
#include <os/availability.h>

#ifdef __OBJC__
#include <Foundation/Foundation.h>
#endif

#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)
#undef NSEC_PER_SEC
#define NSEC_PER_SEC 1000000000ull
#undef NSEC_PER_MSEC
#define NSEC_PER_MSEC 1000000ull
#undef USEC_PER_SEC
#define USEC_PER_SEC 1000000ull
#define DISPATCH_QUEUE_SERIAL NULL

#ifdef __OBJC__
@protocol OS_object <NSObject>
@end
@protocol OS_dispatch_object <OS_object>
@end
typedef NSObject<OS_dispatch_object>* __attribute__((objc_independent_class)) dispatch_object_t;
#define DISPATCH_DECL(name)                          \
    @protocol OS_##name <OS_dispatch_object>         \
    @end                                             \
    typedef NSObject<OS_##name>* __attribute__((objc_independent_class)) name##_t
#define DISPATCH_DECL_SUBCLASS(name, base)           \
    @protocol OS_##name <OS_##base>                  \
    @end                                             \
    typedef NSObject<OS_##name>* __attribute__((objc_independent_class)) name##_t
#define DISPATCH_GLOBAL_OBJECT(type, object) ((__bridge type) & (object))
#else
#define DISPATCH_DECL(name) typedef struct name##_s* name##_t
#define DISPATCH_DECL_SUBCLASS(name, base) typedef struct name##_s* name##_t
#define DISPATCH_GLOBAL_OBJECT(type, object) ((type) & (object))
#endif

DISPATCH_DECL(dispatch_queue);
DISPATCH_DECL_SUBCLASS(dispatch_queue_global, dispatch_queue);
DISPATCH_DECL_SUBCLASS(dispatch_queue_serial, dispatch_queue);
DISPATCH_DECL_SUBCLASS(dispatch_queue_main, dispatch_queue_serial);
DISPATCH_DECL(dispatch_queue_attr);
DISPATCH_DECL(dispatch_semaphore);
DISPATCH_DECL(dispatch_group);

typedef unsigned long long dispatch_time_t;  // uint64_t on Darwin
typedef void (^dispatch_block_t)(void);

#define DISPATCH_NOTHROW __attribute__((__nothrow__))
#define DISPATCH_NONNULL2 __attribute__((__nonnull__(2)))
#define DISPATCH_NONNULL3 __attribute__((__nonnull__(3)))
#define DISPATCH_NONNULL_ALL __attribute__((__nonnull__))
#define DISPATCH_CONST __attribute__((__const__))
#define DISPATCH_WARN_RESULT __attribute__((__warn_unused_result__))
#define DISPATCH_MALLOC __attribute__((__malloc__))
#define DISPATCH_NOESCAPE __attribute__((__noescape__))
#define DISPATCH_EXPORT extern __attribute__((visibility("default")))
#ifdef __OBJC__
#define DISPATCH_RETURNS_RETAINED __attribute__((__ns_returns_retained__))
#else
#define DISPATCH_RETURNS_RETAINED
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct dispatch_queue_s;
extern struct dispatch_queue_s _dispatch_main_q;

static inline dispatch_queue_main_t _Nonnull dispatch_get_main_queue(void) {
    return DISPATCH_GLOBAL_OBJECT(dispatch_queue_main_t, _dispatch_main_q);
}
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_CONST DISPATCH_WARN_RESULT DISPATCH_NOTHROW
dispatch_queue_global_t _Nonnull dispatch_get_global_queue(intptr_t identifier, uintptr_t flags);
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_MALLOC DISPATCH_RETURNS_RETAINED DISPATCH_WARN_RESULT DISPATCH_NOTHROW
dispatch_queue_t _Nonnull dispatch_queue_create(const char* _Nullable label, dispatch_queue_attr_t _Nullable attr);
#ifdef __BLOCKS__
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_NONNULL_ALL DISPATCH_NOTHROW
void dispatch_async(dispatch_queue_t _Nonnull queue, dispatch_block_t _Nonnull block);
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_NONNULL_ALL DISPATCH_NOTHROW
void dispatch_sync(dispatch_queue_t _Nonnull queue, DISPATCH_NOESCAPE dispatch_block_t _Nonnull block);
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_NONNULL2 DISPATCH_NONNULL3 DISPATCH_NOTHROW
void dispatch_after(dispatch_time_t when, dispatch_queue_t _Nonnull queue, dispatch_block_t _Nonnull block);
#endif
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_WARN_RESULT DISPATCH_NOTHROW
dispatch_time_t dispatch_time(dispatch_time_t when, long long delta);  // delta: int64_t on Darwin
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_MALLOC DISPATCH_RETURNS_RETAINED DISPATCH_WARN_RESULT DISPATCH_NOTHROW
dispatch_semaphore_t _Nonnull dispatch_semaphore_create(intptr_t value);
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_NONNULL_ALL DISPATCH_NOTHROW
intptr_t dispatch_semaphore_wait(dispatch_semaphore_t _Nonnull dsema, dispatch_time_t timeout);
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_NONNULL_ALL DISPATCH_NOTHROW
intptr_t dispatch_semaphore_signal(dispatch_semaphore_t _Nonnull dsema);
API_AVAILABLE(macos(10.6)) DISPATCH_EXPORT DISPATCH_MALLOC DISPATCH_RETURNS_RETAINED DISPATCH_WARN_RESULT DISPATCH_NOTHROW
dispatch_group_t _Nonnull dispatch_group_create(void);

#ifdef __cplusplus
}
#endif
