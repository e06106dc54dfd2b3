// Darwin's struct timeval, as <sys/_types/_timeval.h> declares it: the
// microseconds are an int (__darwin_suseconds_t), not glibc's long. The
// compile check includes this before anything else, so that the C library of
// the machine it runs on never declares its own.
#pragma once

#ifdef __timeval_defined
#error "a struct timeval was declared before Darwin's"
#endif
#define __timeval_defined 1
struct timeval {
    long tv_sec;  // __darwin_time_t
    int tv_usec;  // __darwin_suseconds_t
};
