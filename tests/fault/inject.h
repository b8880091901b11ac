/* tests/fault/inject.h -- the fault injector's controls.
 *
 * The injector is a shared object that is preloaded before libc. It counts the calls of each libc function
 * that can fail, and makes chosen ones fail, but only while it is armed: around the calls under test, on the
 * thread that armed it. The driver finds the controls with dlsym. */
#ifndef ZEBU_TESTS_FAULT_INJECT_H
#define ZEBU_TESTS_FAULT_INJECT_H

/* Every function that it stands in for. The formatter moves such a list a little further every time. */
/* clang-format off */
#define ZEBU_FAULT_FUNCTIONS(X) \
    X(calloc) X(chmod) X(close) X(closedir) X(fallocate) X(fchmod) X(fchmodat) X(fclose) X(fcntl) \
    X(fdopen) X(fgets) X(fstat) X(fstatat) X(ftruncate) X(futimens) X(gethostname) X(localtime_r) \
    X(lockf) X(lseek) X(lstat) X(malloc) X(mkdir) X(mmap) X(msync) X(munmap) X(open) X(openat) \
    X(opendir) X(pthread_key_create) X(pthread_setspecific) X(read) X(readdir) X(readlinkat) X(stat) \
    X(uname) X(unlink) X(utimensat) X(write)
/* clang-format on */

enum {
#define ZEBU_FAULT_ENUM(name) FAULT_##name,
    ZEBU_FAULT_FUNCTIONS(ZEBU_FAULT_ENUM)
#undef ZEBU_FAULT_ENUM
        FAULT_FUNCTIONS
};

/* In place of an errno: read and write half of what is asked for. */
#define FAULT_SHORT (-1)

struct ZebuFault
{
    int iFunction;      /* FAULT_... */
    int iCode;          /* errno, or FAULT_SHORT */
    long lFirst, lLast; /* which calls, counted from 1 */
    int iArmed;
    long lInheritable;            /* opens without close-on-exec */
    long lFired;                  /* calls that were made to fail */
    long lCalls[FAULT_FUNCTIONS]; /* counted while armed */
};

/* The one symbol that is looked up: returns the plan, to be filled and read by the driver. */
#define ZEBU_FAULT_PLAN "zebu_fault_plan"
typedef struct ZebuFault* (*ZebuFaultPlan)(void);

#endif
