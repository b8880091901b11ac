/* ZEBULib2_log.h -- printf-style puts over ZEBULib2.h, for C99 and C++11 and later, with gcc or clang.
 *
 * Optional, and header only: nothing here is in the library. Formats are checked while compiling, and a text
 * is built on the stack of the calling thread, only when its level passes. The macros return what the puts
 * return.
 *
 *     ZEBU2_LOGF(ZEBU2_LEVEL_INFO, "%d files in %s", iFiles, pszPath);
 *     ZEBU2_LOGF_ID(ZEBU2_LEVEL_ERROR, "NET-17", "no answer from %s", pszHost);
 *     ZEBU2_LOGF_AT(ZEBU2_LEVEL_DEBUG, "here");                     // main.c:12: here
 *     ZEBU2_LOGF_EVERY(100, ZEBU2_LEVEL_INFO, "%ld lines", lLines); // the 1st, the 101st, ...
 *     ZEBU2_INSTANCE_LOGF(hAudit, ZEBU2_LEVEL_NOTICE, "user %d", iUser);
 *
 * The level is asked for with ZEBU2_GetLogLevel, which clears the thread's error; a message above it does no
 * more and gives 0, also when the library is not initialised. When an argument cannot be formatted, the line
 * has the text of the format, and the put fails with ZEBU_EPOS_PARAM. */
#ifndef ZEBULIB2_LOG_H
#define ZEBULIB2_LOG_H

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "ZEBULib2.h"

/* Calls with a level above this one vanish while compiling, where the level is a constant. To be defined
 * before this header is included, by a number or a name of ZEBULib2.h. */
#ifndef ZEBU2_LOG_COMPILED
#define ZEBU2_LOG_COMPILED ZEBU2_LEVEL_MAX
#endif

/* ---- Levels by name --------------------------------------------------------------------------- */

/* The level of a name (off, fatal, error, warning, notice, info, debug, trace, all; case does not count) or
 * of a decimal number from -1 to 1000. iOtherwise where the text is null or neither. */
static inline __attribute__((unused)) int ZEBU2_LevelByName(const char* pszName, int iOtherwise)
{
    static const struct
    {
        const char* pszName;
        int iLevel;
    } levels[] = {
        {"off", ZEBU2_LEVEL_OFF},         {"fatal", ZEBU2_LEVEL_FATAL},   {"error", ZEBU2_LEVEL_ERROR},
        {"warning", ZEBU2_LEVEL_WARNING}, {"notice", ZEBU2_LEVEL_NOTICE}, {"info", ZEBU2_LEVEL_INFO},
        {"debug", ZEBU2_LEVEL_DEBUG},     {"trace", ZEBU2_LEVEL_TRACE},   {"all", ZEBU2_LEVEL_MAX}};
    int iLevel;
    char cMore;
    size_t i;
    if (!pszName || *pszName == '\0')
        return iOtherwise;
    for (i = 0; i < sizeof levels / sizeof *levels; ++i) {
        if (strcasecmp(pszName, levels[i].pszName) == 0)
            return levels[i].iLevel;
    }
    if (sscanf(pszName, "%5d%c", &iLevel, &cMore) == 1 && iLevel >= ZEBU2_LEVEL_OFF &&
        iLevel <= ZEBU2_LEVEL_MAX)
        return iLevel;
    return iOtherwise;
}

/* Sets the process log level to the one that an environment variable names, or to iOtherwise where it is not
 * set or names none. Returns the level before. */
static inline __attribute__((unused)) int ZEBU2_SetLogLevelFromEnv(const char* pszVariable, int iOtherwise)
{
    return ZEBU2_SetLogLevel(ZEBU2_LevelByName(getenv(pszVariable), iOtherwise));
}

/* ---- Puts ------------------------------------------------------------------------------------- */

#define ZEBU2_LOGF(level, ...) ZEBU2_LOG_(level, 1, 0, NULL, 0, NULL, NULL, 0, __VA_ARGS__)
/* With a message id, which may be null. */
#define ZEBU2_LOGF_ID(level, id, ...) ZEBU2_LOG_(level, 1, 0, NULL, 1, id, NULL, 0, __VA_ARGS__)
/* With the place of the call before the text. */
#define ZEBU2_LOGF_AT(level, ...) ZEBU2_LOG_(level, 1, 0, NULL, 0, NULL, __FILE__, __LINE__, __VA_ARGS__)
/* Of the times that this place of the program passes the level, every n-th, beginning with the first; or the
 * first alone. Whatever the thread. n: above 0. */
#define ZEBU2_LOGF_EVERY(n, level, ...)                                                                      \
    ZEBU2_LOG_(level, ZEBU2_EVERY(n), 0, NULL, 0, NULL, NULL, 0, __VA_ARGS__)
#define ZEBU2_LOGF_ONCE(level, ...) ZEBU2_LOG_(level, ZEBU2_ONCE(), 0, NULL, 0, NULL, NULL, 0, __VA_ARGS__)

/* The same through an instance. Its level is asked for under the mutex of the process. */
#define ZEBU2_INSTANCE_LOGF(instance, level, ...)                                                            \
    ZEBU2_LOG_(level, 1, 1, instance, 0, NULL, NULL, 0, __VA_ARGS__)
#define ZEBU2_INSTANCE_LOGF_ID(instance, level, id, ...)                                                     \
    ZEBU2_LOG_(level, 1, 1, instance, 1, id, NULL, 0, __VA_ARGS__)
#define ZEBU2_INSTANCE_LOGF_AT(instance, level, ...)                                                         \
    ZEBU2_LOG_(level, 1, 1, instance, 0, NULL, __FILE__, __LINE__, __VA_ARGS__)

/* Whether this place of the program is reached for the 1st, (n+1)-th, ... time; for the first time. */
#define ZEBU2_EVERY(n)                                                                                       \
    (__extension__({                                                                                         \
        static unsigned long zebu2_ulCount_;                                                                 \
        ZEBU2_LogNth_(&zebu2_ulCount_, n);                                                                   \
    }))
#define ZEBU2_ONCE()                                                                                         \
    (__extension__({                                                                                         \
        static char zebu2_cDone_;                                                                            \
        ZEBU2_LogFirst_(&zebu2_cDone_);                                                                      \
    }))

/* ---- What the macros are made of: not to be called ---------------------------------------------- */

static inline __attribute__((unused)) int ZEBU2_LogNth_(unsigned long* pulCount, unsigned long ulEvery)
{
    return __atomic_fetch_add(pulCount, 1UL, __ATOMIC_RELAXED) % ulEvery == 0;
}

/* Looks before it stores: the line of memory stays with all processors that read it. */
static inline __attribute__((unused)) int ZEBU2_LogFirst_(char* pcDone)
{
    return !__atomic_load_n(pcDone, __ATOMIC_RELAXED) && !__atomic_exchange_n(pcDone, 1, __ATOMIC_RELAXED);
}

/* Levels that no message can have pass: the put refuses them. */
static inline __attribute__((unused)) int ZEBU2_LogPasses_(int bInstance, ZEBU2_HINSTANCE hInstance,
                                                           int iLevel)
{
    return iLevel <= (bInstance ? ZEBU2_GetInstanceLogLevel(hInstance) : ZEBU2_GetLogLevel()) ||
           iLevel > ZEBU2_LEVEL_MAX;
}

static inline __attribute__((unused)) int ZEBU2_LogPut_(int bInstance, ZEBU2_HINSTANCE hInstance, int iLevel,
                                                        int bId, const char* pszId, const char* pszText)
{
    if (bInstance)
        return bId ? ZEBU2_PutInstanceWithId(hInstance, iLevel, pszId, pszText)
                   : ZEBU2_PutInstanceLine(hInstance, iLevel, pszText);
    return bId ? ZEBU2_PutWithId(iLevel, pszId, pszText) : ZEBU2_PutLine(iLevel, pszText);
}

/* Not inlined: its text would lie in the caller's frame. */
static __attribute__((unused, noinline, format(printf, 8, 9))) int
ZEBU2_LogPrint_(int bInstance, ZEBU2_HINSTANCE hInstance, int iLevel, int bId, const char* pszId,
                const char* pszFile, int iLine, const char* pszFormat, ...)
{
    char szText[ZEBU2_TEXT_MAX + 1];
    size_t uUsed = 0;
    int iResult;
    va_list args;
    if (pszFile) {
        const char* pszSlash = strrchr(pszFile, '/');
        (void)snprintf(szText, sizeof szText, "%.255s:%d: ", pszSlash ? pszSlash + 1 : pszFile, iLine);
        uUsed = strlen(szText);
    }
    va_start(args, pszFormat);
    iResult = vsnprintf(szText + uUsed, sizeof szText - uUsed, pszFormat, args);
    va_end(args);
    if (iResult < 0) { /* a character that the locale does not have, say */
        iResult = ZEBU2_LogPut_(bInstance, hInstance, iLevel, bId, pszId, pszFormat);
        return iResult != 0 ? iResult : ZEBU2_LogPut_(bInstance, hInstance, ZEBU2_LEVEL_OFF, bId, pszId, "");
    }
    return ZEBU2_LogPut_(bInstance, hInstance, iLevel, bId, pszId, szText);
}

/* The level and the instance are evaluated once; nothing is where the call vanishes. */
#define ZEBU2_LOG_(level, wanted, is, instance, with, id, file, line, ...)                                   \
    (__extension__({                                                                                         \
        int zebu2_iResult_ = 0;                                                                              \
        if (!(__builtin_constant_p(level) && (level) > ZEBU2_LOG_COMPILED)) {                                \
            const int zebu2_iLevel_ = (level);                                                               \
            const ZEBU2_HINSTANCE zebu2_hInstance_ = (instance);                                             \
            if (ZEBU2_LogPasses_(is, zebu2_hInstance_, zebu2_iLevel_) && (wanted))                           \
                zebu2_iResult_ =                                                                             \
                    ZEBU2_LogPrint_(is, zebu2_hInstance_, zebu2_iLevel_, with, id, file, line, __VA_ARGS__); \
        }                                                                                                    \
        zebu2_iResult_;                                                                                      \
    }))

#endif
