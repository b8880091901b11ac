/* tests/fault/inject.c -- the preloaded fault injector: a function of its own for every one of libc that can
 * fail.
 *
 * All of them take at most six arguments in registers and give their result in another, the variadic ones
 * too, so that one shape does for all. libc's own declarations would contradict it and are left out. */
#include "inject.h"

#include <dlfcn.h>
#include <errno.h>
#include <linux/fcntl.h>
#include <string.h>

typedef long (*Function)(long a, long b, long c, long d, long e, long f);

extern struct ZebuFault zebu_fault_plan;
struct ZebuFault zebu_fault_plan;

/* dlsym may allocate while a function is being looked up: zeroed blocks for that, any length below. */
static long fs_early(long a, long b, long c, long d, long e, long f)
{
    static _Alignas(16) char cs_szBlocks[8][1024];
    static int cs_iNext;
    (void)a, (void)b, (void)c, (void)d, (void)e, (void)f;
    return cs_iNext < 8 ? (long)cs_szBlocks[cs_iNext++] : 0;
}

/* Finds the function behind this object's own. */
static Function fs_find(Function* pFound, const char* pszName)
{
    static int cs_iLooking;
    if (*pFound || cs_iLooking)
        return *pFound ? *pFound : fs_early;
    cs_iLooking = 1;
    *(void**)pFound = dlsym(RTLD_NEXT, pszName);
    cs_iLooking = 0;
    return *pFound;
}

/* Counts a call; true when it is to fail. */
static int fs_due(const char* pszFunction, long lSecond, long lThird)
{
    struct ZebuFault* const pPlan = &zebu_fault_plan;
    if (!pPlan->iArmed)
        return 0;
    if ((strcmp(pszFunction, "open") == 0 && !(lSecond & O_CLOEXEC)) ||
        (strcmp(pszFunction, "openat") == 0 && !(lThird & O_CLOEXEC)))
        ++pPlan->lInheritable;
    if (strcmp(pPlan->pszFunction, "*") != 0 && strcmp(pszFunction, pPlan->pszFunction) != 0)
        return 0;
    if (++pPlan->lCalls < pPlan->lFirst || pPlan->lCalls > pPlan->lLast)
        return 0;
    ++pPlan->lFired;
    if (pPlan->visit) {
        pPlan->iArmed = 0;
        pPlan->visit();
        pPlan->iArmed = 1;
        return 0;
    }
    errno = pPlan->iCode == FAULT_SHORT ? errno : pPlan->iCode;
    return 1;
}

/* `symbol` is what the library calls, `name` what the plan calls it, `failed` the result of a call that
 * fails. */
#define STAND_IN(symbol, name, failed)                                                                       \
    long symbol(long a, long b, long c, long d, long e, long f);                                             \
    long symbol(long a, long b, long c, long d, long e, long f)                                              \
    {                                                                                                        \
        static Function cs_pFound;                                                                           \
        const Function pReal = fs_find(&cs_pFound, #symbol);                                                 \
        return fs_due(#name, b, c) ? (failed) : pReal(a, b, c, d, e, f);                                     \
    }
#define FAILS(name) STAND_IN(name, name, -1)
#define GIVES_NULL(name) STAND_IN(name, name, 0)
#define GIVES_CODE(name) STAND_IN(name, name, zebu_fault_plan.iCode)
/* What is released is released all the same, as the kernel does it. */
#define RELEASES(name) STAND_IN(name, name, (pReal(a, b, c, d, e, f), -1))
/* Short: half of the bytes, but at least one. */
#define TRANSFERS(symbol, name)                                                                              \
    STAND_IN(symbol, name,                                                                                   \
             zebu_fault_plan.iCode == FAULT_SHORT ? pReal(a, b, c > 1 ? c / 2 : c, d, e, f) : -1)

/* The formatter moves such lists a little further every time. */
/* clang-format off */
FAILS(chmod) FAILS(fallocate) FAILS(fchmod) FAILS(fchmodat) FAILS(fcntl) FAILS(fstat) FAILS(fstatat)
FAILS(fstatfs) FAILS(ftruncate) FAILS(futimens) FAILS(gethostname) FAILS(lockf) FAILS(lseek) FAILS(lstat)
FAILS(mkdir) FAILS(mmap) FAILS(msync) FAILS(munmap) FAILS(open) FAILS(openat) FAILS(readlinkat) FAILS(stat)
FAILS(uname) FAILS(unlink) FAILS(utimensat)
GIVES_NULL(calloc) GIVES_NULL(fdopen) GIVES_NULL(fdopendir) GIVES_NULL(fgets) GIVES_NULL(localtime_r)
GIVES_NULL(malloc) GIVES_NULL(readdir)
GIVES_CODE(pthread_key_create) GIVES_CODE(pthread_setspecific)
RELEASES(close) RELEASES(closedir) RELEASES(fclose)
TRANSFERS(read, read) TRANSFERS(pread, read) TRANSFERS(__pread_chk, read)
TRANSFERS(write, write) TRANSFERS(writev, write)
/* The names under which a fortified library calls them. */
TRANSFERS(__read_chk, read) STAND_IN(__fgets_chk, fgets, 0) STAND_IN(__open_2, open, -1)
STAND_IN(__openat_2, openat, -1) STAND_IN(__gethostname_chk, gethostname, -1) STAND_IN(__readlinkat_chk, readlinkat, -1)
    /* clang-format on */
