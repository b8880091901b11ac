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
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

static struct ZebuFault cs_plan;

__attribute__((visibility("default"))) struct ZebuFault* zebu_fault_plan(void);
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
    __attribute__((visibility("default"))) type name parameters                                              \
    {                                                                                                        \
        REAL(name);                                                                                          \
        return fs_due(FAULT_##name) ? (failed) : real_##name arguments;                                      \
    }

/* What is released is released all the same, as the kernel does it. */
#define FAILING_AFTER(type, failed, name, parameters, arguments)                                             \
    __attribute__((visibility("default"))) type name parameters                                              \
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

/* dlsym itself may allocate while the real function is being looked up. */
static char cs_szEarly[4096];
static size_t cs_uEarly;

static void* fs_early(size_t uSize)
{
    void* p = cs_szEarly + cs_uEarly;
    cs_uEarly += (uSize + 15) & ~(size_t)15;
    return cs_uEarly <= sizeof cs_szEarly ? p : NULL;
}

__attribute__((visibility("default"))) void* malloc(size_t uSize)
{
    static void* (*pReal)(size_t);
    static int bLooking;
    if (!pReal) {
        if (bLooking)
            return fs_early(uSize);
        bLooking = 1;
        *(void**)&pReal = dlsym(RTLD_NEXT, "malloc");
    }
    return fs_due(FAULT_malloc) ? NULL : pReal(uSize);
}

__attribute__((visibility("default"))) void* calloc(size_t uCount, size_t uSize)
{
    static void* (*pReal)(size_t, size_t);
    static int bLooking;
    if (!pReal) {
        if (bLooking)
            return fs_early(uCount * uSize);
        bLooking = 1;
        *(void**)&pReal = dlsym(RTLD_NEXT, "calloc");
    }
    return fs_due(FAULT_calloc) ? NULL : pReal(uCount, uSize);
}

__attribute__((visibility("default"))) int open(const char* pszName, int iFlags, ...)
{
    REAL(open);
    va_list list;
    va_start(list, iFlags);
    const mode_t mode = iFlags & (O_CREAT | O_TMPFILE) ? va_arg(list, mode_t) : 0;
    va_end(list);
    return fs_due(FAULT_open) ? -1 : real_open(pszName, iFlags, mode);
}

__attribute__((visibility("default"))) int openat(int iDir, const char* pszName, int iFlags, ...)
{
    REAL(openat);
    va_list list;
    va_start(list, iFlags);
    const mode_t mode = iFlags & (O_CREAT | O_TMPFILE) ? va_arg(list, mode_t) : 0;
    va_end(list);
    return fs_due(FAULT_openat) ? -1 : real_openat(iDir, pszName, iFlags, mode);
}

__attribute__((visibility("default"))) int fcntl(int iFd, int iCommand, ...)
{
    REAL(fcntl);
    va_list list;
    va_start(list, iCommand);
    const long lArgument = va_arg(list, long);
    va_end(list);
    return fs_due(FAULT_fcntl) ? -1 : real_fcntl(iFd, iCommand, lArgument);
}

/* Short: half of the bytes, but at least one. */
static size_t fs_half(size_t uLength)
{
    return uLength > 1 ? uLength / 2 : uLength;
}

__attribute__((visibility("default"))) ssize_t write(int iFd, const void* p, size_t uLength)
{
    REAL(write);
    if (!fs_due(FAULT_write))
        return real_write(iFd, p, uLength);
    return cs_plan.iCode == FAULT_SHORT ? real_write(iFd, p, fs_half(uLength)) : -1;
}

static ssize_t fs_read(int iFd, void* p, size_t uLength)
{
    REAL(read);
    if (!fs_due(FAULT_read))
        return real_read(iFd, p, uLength);
    return cs_plan.iCode == FAULT_SHORT ? real_read(iFd, p, fs_half(uLength)) : -1;
}

__attribute__((visibility("default"))) ssize_t read(int iFd, void* p, size_t uLength)
{
    return fs_read(iFd, p, uLength);
}

static char* fs_gets(char* p, int iRoom, FILE* pStream)
{
    REAL(fgets);
    return fs_due(FAULT_fgets) ? NULL : real_fgets(p, iRoom, pStream);
}

__attribute__((visibility("default"))) char* fgets(char* p, int iRoom, FILE* pStream)
{
    return fs_gets(p, iRoom, pStream);
}

/* The names under which a fortified library calls them. */
ssize_t __read_chk(int iFd, void* p, size_t uLength, size_t uRoom);
__attribute__((visibility("default"))) ssize_t __read_chk(int iFd, void* p, size_t uLength, size_t uRoom)
{
    if (uLength > uRoom)
        abort();
    return fs_read(iFd, p, uLength);
}

char* __fgets_chk(char* p, size_t uRoom, int iLength, FILE* pStream);
__attribute__((visibility("default"))) char* __fgets_chk(char* p, size_t uRoom, int iLength, FILE* pStream)
{
    if ((size_t)iLength > uRoom)
        abort();
    return fs_gets(p, iLength, pStream);
}

int __open_2(const char* pszName, int iFlags);
__attribute__((visibility("default"))) int __open_2(const char* pszName, int iFlags)
{
    return open(pszName, iFlags);
}

int __gethostname_chk(char* psz, size_t uLength, size_t uRoom);
__attribute__((visibility("default"))) int __gethostname_chk(char* psz, size_t uLength, size_t uRoom)
{
    return uLength > uRoom ? (abort(), -1) : gethostname(psz, uLength);
}

ssize_t __readlinkat_chk(int i, const char* psz, char* p, size_t uLength, size_t uRoom);
__attribute__((visibility("default"))) ssize_t __readlinkat_chk(int i, const char* psz, char* p,
                                                                size_t uLength, size_t uRoom)
{
    return uLength > uRoom ? (abort(), -1) : readlinkat(i, psz, p, uLength);
}
