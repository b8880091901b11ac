// output/LocalTime.cpp -- local date and time as text.
#include "output/LocalTime.h"

#include <initializer_list>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/time.h>

#include "frame/ForkMutex.h"
#include "output/ltostr.h"

// localtime_r holds a lock inside libc that no one releases in the child of a fork. All conversions of
// the library run under this mutex, which the fork waits for.
static constinit ZEBUForkMutex cs_timeMutex;

bool ZEBU_TimeLockForFork()
{
    return cs_timeMutex.lockForFork();
}

void ZEBU_TimeUnlock()
{
    cs_timeMutex.unlock();
}

// Under the mutex without signals: a handler that forks waits for the process mutex, whose owner may wait for
// this one. A fault of the code itself is let through, since it would end the process with no handler.
static bool fs_convert(time_t lSecond, tm& local)
{
    sigset_t held, before;
    (void)sigfillset(&held);
    for (const int iFault : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP})
        (void)sigdelset(&held, iFault);
    (void)pthread_sigmask(SIG_BLOCK, &held, &before);
    cs_timeMutex.lock();
    const bool bConverted = localtime_r(&lSecond, &local) != nullptr;
    cs_timeMutex.unlock();
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return bConverted;
}

static bool fs_putSecond(char* pBuf, time_t lSecond)
{
    tm local;
    if (!fs_convert(lSecond, local))
        return false;

    memcpy(pBuf, "    /  /     :  :  .", ZEBU_SECOND_TEXT);
    ZEBU2_IntToStr(pBuf, local.tm_year + 1900, 4);
    ZEBU2_IntToStr(pBuf + 5, local.tm_mon + 1, 2);
    ZEBU2_IntToStr(pBuf + 8, local.tm_mday, 2);
    ZEBU2_IntToStr(pBuf + 11, local.tm_hour, 2);
    ZEBU2_IntToStr(pBuf + 14, local.tm_min, 2);
    ZEBU2_IntToStr(pBuf + 17, local.tm_sec, 2);
    return true;
}

bool ZEBU_ConvertSecond(time_t lSecond, ZEBUCachedSecond& cached)
{
    // Before the conversion: if another thread changes it meanwhile, the next line converts again.
    const ZEBUZoneMark zone = ZEBU_CurrentZone();
    char szSecond[ZEBU_SECOND_TEXT];
    if (!fs_putSecond(szSecond, lSecond)) // nothing is kept: the next line tries again
        return false;
    memcpy(cached.szSecond, szSecond, ZEBU_SECOND_TEXT);
    cached.lSecond = lSecond;
    cached.zone = zone;
    return true;
}

void ZEBU_FormatNow(char (&szTime)[ZEBU_TIME_TEXT + 1])
{
    timeval now;
    gettimeofday(&now, nullptr);
    ZEBUCachedSecond cached = {};
    ZEBU_PutLocalTime(szTime, now, cached);
    szTime[ZEBU_TIME_TEXT] = '\0';
}
