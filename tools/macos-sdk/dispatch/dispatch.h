// libdispatch as the SDK declares it for Objective-C with ARC: queues and
// semaphores are Objective-C objects that ARC retains and releases.
#pragma once

#include <stdint.h>

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

typedef uint64_t dispatch_time_t;
typedef void (^dispatch_block_t)(void);

#ifdef __cplusplus
extern "C" {
#endif

struct dispatch_queue_s;
extern struct dispatch_queue_s _dispatch_main_q;

static inline dispatch_queue_main_t _Nonnull dispatch_get_main_queue(void) {
    return DISPATCH_GLOBAL_OBJECT(dispatch_queue_main_t, _dispatch_main_q);
}
dispatch_queue_global_t _Nonnull dispatch_get_global_queue(intptr_t identifier, uintptr_t flags);
dispatch_queue_t _Nonnull dispatch_queue_create(const char* _Nullable label, dispatch_queue_attr_t _Nullable attr);
#ifdef __BLOCKS__
void dispatch_async(dispatch_queue_t _Nonnull queue, dispatch_block_t _Nonnull block);
void dispatch_sync(dispatch_queue_t _Nonnull queue, dispatch_block_t _Nonnull block);
void dispatch_after(dispatch_time_t when, dispatch_queue_t _Nonnull queue, dispatch_block_t _Nonnull block);
#endif
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);
dispatch_semaphore_t _Nonnull dispatch_semaphore_create(intptr_t value);
intptr_t dispatch_semaphore_wait(dispatch_semaphore_t _Nonnull dsema, dispatch_time_t timeout);
intptr_t dispatch_semaphore_signal(dispatch_semaphore_t _Nonnull dsema);
dispatch_group_t _Nonnull dispatch_group_create(void);

#ifdef __cplusplus
}
#endif
