// Darwin's sysctl, as <sys/sysctl.h> declares it (the name is `int *`, namelen `u_int`).
#pragma once

#include <stddef.h>
#include <sys/time.h>
#include <sys/types.h>

#define CTL_KERN 1
#define KERN_BOOTTIME 21

#ifdef __cplusplus
extern "C" {
#endif

int sysctl(int*, u_int, void*, size_t*, void*, size_t);
int sysctlbyname(const char*, void*, size_t*, void*, size_t);

#ifdef __cplusplus
}
#endif
