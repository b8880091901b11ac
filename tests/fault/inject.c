/* tests/fault/inject.c -- the preloaded fault injector. C, since libc's declarations are. */
#include "inject.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

static struct ZebuFault cs_plan;

struct ZebuFault* zebu_fault_plan(void);
struct ZebuFault* zebu_fault_plan(void)
{
    return &cs_plan;
}

/* Counts a call; true when it is to fail. */
static int fs_due(int iFunction)
{
    if (!cs_plan.iArmed)
        return 0;
    const long lCall = ++cs_plan.lCalls[iFunction];
    if (iFunction != cs_plan.iFunction || lCall < cs_plan.lFirst || lCall > cs_plan.lLast)
        return 0;
    ++cs_plan.lFired;
    if (cs_plan.iCode != FAULT_SHORT)
        errno = cs_plan.iCode;
    return 1;
}

/* Finds the function behind this object's own. */
#define REAL(name)                                                                                           \
    static __typeof__(&name) real_##name;                                                                    \
    if (!real_##name)                                                                                        \
    *(void**)&real_##name = dlsym(RTLD_NEXT, #name)

#define FAILING(type, failed, name, parameters, arguments)                                                   \
    type name parameters                                                                                     \
    {                                                                                                        \
        REAL(name);                                                                                          \
        return fs_due(FAULT_##name) ? (failed) : real_##name arguments;                                      \
    }

/* What is released is released all the same, as the kernel does it. */
#define FAILING_AFTER(type, failed, name, parameters, arguments)                                             \
    type name parameters                                                                                     \
    {                                                                                                        \
        REAL(name);                                                                                          \
        const type result = real_##name arguments;                                                           \
        return fs_due(FAULT_##name) ? (failed) : result;                                                     \
    }

FAILING(int, -1, chmod, (const char* psz, mode_t m), (psz, m))
FAILING(int, -1, fallocate, (int i, int iMode, off_t lFrom, off_t lLength), (i, iMode, lFrom, lLength))
FAILING(int, -1, fchmod, (int i, mode_t m), (i, m))
FAILING(int, -1, fchmodat, (int i, const char* psz, mode_t m, int iFlags), (i, psz, m, iFlags))
FAILING(FILE*, NULL, fdopen, (int i, const char* psz), (i, psz))
FAILING(int, -1, fstat, (int i, struct stat* p), (i, p))
FAILING(int, -1, fstatat, (int i, const char* psz, struct stat* p, int iFlags), (i, psz, p, iFlags))
FAILING(int, -1, ftruncate, (int i, off_t l), (i, l))
FAILING(int, -1, futimens, (int i, const struct timespec p[2]), (i, p))
FAILING(int, -1, gethostname, (char* psz, size_t u), (psz, u))
FAILING(struct tm*, NULL, localtime_r, (const time_t* pTime, struct tm* p), (pTime, p))
FAILING(int, -1, lockf, (int i, int iCommand, off_t l), (i, iCommand, l))
FAILING(off_t, -1, lseek, (int i, off_t l, int iWhence), (i, l, iWhence))
FAILING(int, -1, lstat, (const char* psz, struct stat* p), (psz, p))
FAILING(int, -1, mkdir, (const char* psz, mode_t m), (psz, m))
FAILING(void*, MAP_FAILED, mmap, (void* p, size_t u, int iProt, int iFlags, int i, off_t l),
        (p, u, iProt, iFlags, i, l))
FAILING(int, -1, msync, (void* p, size_t u, int iFlags), (p, u, iFlags))
FAILING(int, -1, munmap, (void* p, size_t u), (p, u))
FAILING(DIR*, NULL, opendir, (const char* psz), (psz))
FAILING(int, cs_plan.iCode, pthread_key_create, (pthread_key_t * p, void (*pFree)(void*)), (p, pFree))
FAILING(int, cs_plan.iCode, pthread_setspecific, (pthread_key_t key, const void* p), (key, p))
FAILING(struct dirent*, NULL, readdir, (DIR * p), (p))
FAILING(ssize_t, -1, readlinkat, (int i, const char* psz, char* pBuf, size_t u), (i, psz, pBuf, u))
FAILING(int, -1, stat, (const char* psz, struct stat* p), (psz, p))
FAILING(int, -1, uname, (struct utsname * p), (p))
FAILING(int, -1, unlink, (const char* psz), (psz))
FAILING(int, -1, utimensat, (int i, const char* psz, const struct timespec p[2], int iFlags),
        (i, psz, p, iFlags))

FAILING_AFTER(int, -1, close, (int i), (i))
FAILING_AFTER(int, -1, closedir, (DIR * p), (p))
FAILING_AFTER(int, EOF, fclose, (FILE * p), (p))

FAILING(char*, NULL, fgets, (char* p, int iRoom, FILE* pStream), (p, iRoom, pStream))

/* What comes behind the last parameter is passed on as it is, whether it is there or not. */
#define FAILING_VARIADIC(name, last, before, parameters, arguments)                                          \
    int name parameters                                                                                      \
    {                                                                                                        \
        REAL(name);                                                                                          \
        va_list list;                                                                                        \
        va_start(list, last);                                                                                \
        const long lMore = va_arg(list, long);                                                               \
        va_end(list);                                                                                        \
        before;                                                                                              \
        return fs_due(FAULT_##name) ? -1 : real_##name arguments;                                            \
    }

static void fs_lookAtOpen(int iFlags)
{
    cs_plan.lInheritable += cs_plan.iArmed && !(iFlags & O_CLOEXEC) ? 1 : 0;
}

FAILING_VARIADIC(open, iFlags, fs_lookAtOpen(iFlags), (const char* psz, int iFlags, ...),
                 (psz, iFlags, lMore))
FAILING_VARIADIC(openat, iFlags, fs_lookAtOpen(iFlags), (int i, const char* psz, int iFlags, ...),
                 (i, psz, iFlags, lMore))
FAILING_VARIADIC(fcntl, iCommand, (void)0, (int i, int iCommand, ...), (i, iCommand, lMore))

/* Short: half of the bytes, but at least one. */
#define FAILING_OR_SHORT(name, pointer)                                                                      \
    ssize_t name(int i, pointer p, size_t u)                                                                 \
    {                                                                                                        \
        REAL(name);                                                                                          \
        if (!fs_due(FAULT_##name))                                                                           \
            return real_##name(i, p, u);                                                                     \
        return cs_plan.iCode == FAULT_SHORT ? real_##name(i, p, u > 1 ? u / 2 : u) : -1;                     \
    }

FAILING_OR_SHORT(read, void*)
FAILING_OR_SHORT(write, const void*)

/* dlsym itself may allocate while the real function is being looked up. */
static char cs_szEarly[4096];
static size_t cs_uEarly;

static void* fs_early(size_t uSize)
{
    void* p = cs_szEarly + cs_uEarly;
    cs_uEarly += (uSize + 15) & ~(size_t)15;
    return cs_uEarly <= sizeof cs_szEarly ? p : NULL;
}

#define FAILING_ALLOCATION(name, size, parameters, arguments)                                                \
    void* name parameters                                                                                    \
    {                                                                                                        \
        static void*(*pReal)parameters;                                                                      \
        static int bLooking;                                                                                 \
        if (!pReal && bLooking)                                                                              \
            return fs_early(size);                                                                           \
        bLooking = 1;                                                                                        \
        if (!pReal)                                                                                          \
            *(void**)&pReal = dlsym(RTLD_NEXT, #name);                                                       \
        return fs_due(FAULT_##name) ? NULL : pReal arguments;                                                \
    }

FAILING_ALLOCATION(malloc, u, (size_t u), (u))
FAILING_ALLOCATION(calloc, n* u, (size_t n, size_t u), (n, u))

/* The names under which a fortified library calls them. */
#define FORTIFIED(type, name, parameters, bFits, call)                                                       \
    type name parameters;                                                                                    \
    type name parameters                                                                                     \
    {                                                                                                        \
        if (!(bFits))                                                                                        \
            abort();                                                                                         \
        return call;                                                                                         \
    }

FORTIFIED(ssize_t, __read_chk, (int i, void* p, size_t u, size_t uRoom), u <= uRoom, read(i, p, u))
FORTIFIED(char*, __fgets_chk, (char* p, size_t uRoom, int i, FILE* f), (size_t)i <= uRoom, fgets(p, i, f))
FORTIFIED(int, __open_2, (const char* psz, int iFlags), 1, open(psz, iFlags))
FORTIFIED(int, __gethostname_chk, (char* psz, size_t u, size_t uRoom), u <= uRoom, gethostname(psz, u))
FORTIFIED(ssize_t, __readlinkat_chk, (int i, const char* psz, char* p, size_t u, size_t uRoom), u <= uRoom,
          readlinkat(i, psz, p, u))
