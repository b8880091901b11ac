// output/PutMsg.cpp -- the put operations: checks, the line, its two destinations.
#include "output/PutMsg.h"

#include <string.h>

#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "frame/Guards.h"
#include "frame/ProcessObjects.h"
#include "frame/TraceObject.h"
#include "mmap/AreaUse.h"
#include "mmap/MMap.h"
#include "output/LocalTime.h"
#include "output/ltostr.h"

// ---- The line ------------------------------------------------------------------------------------

// The process log's own name may be stored anew meanwhile.
static void fs_putAppName(char* pBuf, const char* pszAppName)
{
    if (pszAppName == ZEBU2_szAppName)
        ZEBU_PutAppName(pBuf);
    else
        ZEBU_PutField(pBuf, pszAppName, ZEBU_APP_NAME);
}

// The thread's own text is nine characters and brings its closing blank with it.
static void fs_putThreadId(char* pBuf, const char* pszThreadId, const tagZEBU_TLS_VAR* pTls)
{
    if (pszThreadId == pTls->szThreadId) {
        memcpy(pBuf, pszThreadId, ZEBU_THREAD_ID);
        return;
    }
    const bool bWhole = pszThreadId && strnlen(pszThreadId, ZEBU_THREAD_ID) == ZEBU_THREAD_ID;
    ZEBU_PutField(pBuf, pszThreadId, bWhole ? ZEBU_THREAD_ID : ZEBU_THREAD_ID - 1);
}

int ZEBU_MakeupTraceMessageHeader(char* pszLine, const char* pszAppName, const char* pszThreadId,
                                  int iTickType, timeval* pTime, tagZEBU_TLS_VAR* pTls)
{
    const int iCount = ZEBU_TakeMsgCount();
    memset(pszLine, ' ', ZEBU_COL_TID); // every column that stays blank, up to the thread id
    ZEBU2_IntToStr(pszLine + ZEBU_COL_COUNT, iCount, ZEBU_COUNT_WIDTH);

    if (iTickType == 1) {
        // The rate limiter still needs a time.
        *pTime = {fs_zebu_last_update_time.tv_sec.load(std::memory_order_relaxed) + 1, 0};
        memcpy(pszLine + ZEBU_COL_TIME, ZEBU_MASKED_TIME, ZEBU_TIME_TEXT);
    } else {
        gettimeofday(pTime, nullptr);
        ZEBU_PutLocalTime(pszLine + ZEBU_COL_TIME, *pTime, pTls->second);
    }
    fs_putAppName(pszLine + ZEBU_COL_APP, pszAppName);
    ZEBU_PutProcessId(pszLine + ZEBU_COL_PID);
    fs_putThreadId(pszLine + ZEBU_COL_TID, pszThreadId, pTls);
    return 0;
}

namespace {

enum Form { ZEBU_BODY_PLAIN, ZEBU_BODY_ID, ZEBU_BODY_TYPED };

// A text that a caller may give in place of the log's or the thread's own. Null prints blanks, so "own" is a
// flag and never a null.
struct Given
{
    bool bOwn = true;
    const char* pszText = nullptr;
};

struct Body
{
    Form eForm = ZEBU_BODY_PLAIN;
    const char* pszMsgId = nullptr;
    const char* pszMsgType = nullptr;
};

// What a put hands over beside its text. Most hand over nothing: one for all of them.
struct Details
{
    Body body = {};
    Given appName = {};
    Given threadId = {};
};

constexpr Details cs_plain;

// What one put operation hands over.
struct tagZEBU_PUT
{
    int iFunc;
    int iLevel;
    const char* pszText;
    const Details& with;
};

} // namespace

static constexpr Body fs_id(const char* pszMsgId)
{
    return {ZEBU_BODY_ID, pszMsgId, nullptr};
}

static constexpr Body fs_typed(const char* pszMsgId, const char* pszMsgType)
{
    return {ZEBU_BODY_TYPED, pszMsgId, pszMsgType};
}

static constexpr Given fs_given(const char* pszText)
{
    return {false, pszText};
}

// Writes the body with its CR LF and NUL. Returns the length of the line.
static unsigned long fs_putBody(char* pszLine, const tagZEBU_PUT& put)
{
    size_t uColumn = ZEBU_COL_TEXT;
    size_t uTextMax = ZEBU2_ID_TEXT_MAX;
    if (put.with.body.eForm == ZEBU_BODY_PLAIN) {
        uColumn = ZEBU_COL_BODY;
        uTextMax = ZEBU2_TEXT_MAX;
    } else if (put.with.body.eForm == ZEBU_BODY_ID) {
        ZEBU_PutField(pszLine + ZEBU_COL_BODY, put.with.body.pszMsgId, ZEBU_ID_WIDTH);
        pszLine[ZEBU_COL_TEXT - 1] = ' ';
    } else {
        ZEBU_PutField(pszLine + ZEBU_COL_BODY, put.with.body.pszMsgId, ZEBU_TYPED_ID_WIDTH);
        pszLine[ZEBU_COL_TYPE - 1] = ' ';
        ZEBU_PutField(pszLine + ZEBU_COL_TYPE, put.with.body.pszMsgType, ZEBU_TYPE_WIDTH);
        pszLine[ZEBU_COL_TEXT - 1] = ' ';
    }
    const size_t uLength = strnlen(put.pszText, uTextMax);
    memcpy(pszLine + uColumn, put.pszText, uLength);
    memcpy(pszLine + uColumn + uLength, "\r\n", 3);
    return uColumn + uLength + 2;
}

// The time stamp mode of a put: only those of the process log that print the calling thread can be masked.
static int fs_tickType(const ZEBUTraceObject* pInstance, const tagZEBU_PUT& put)
{
    return pInstance || !put.with.threadId.bOwn ? 0 : ZEBU2_iTickType.load(std::memory_order_relaxed);
}

static unsigned long fs_buildLine(const ZEBUTraceObject* pInstance, tagZEBU_TLS_VAR* pTls,
                                  const tagZEBU_PUT& put, timeval* pTime)
{
    const char* pszName = put.with.appName.pszText;
    if (put.with.appName.bOwn)
        pszName = pInstance ? pInstance->szAppName : ZEBU2_szAppName;
    const char* pszThread = put.with.threadId.bOwn ? pTls->szThreadId : put.with.threadId.pszText;
    (void)ZEBU_MakeupTraceMessageHeader(pTls->szLineBuf, pszName, pszThread, fs_tickType(pInstance, put),
                                        pTime, pTls);
    if (!put.with.threadId.bOwn) // the thread's own text brought it
        pTls->szLineBuf[ZEBU_COL_BODY - 1] = ' ';
    return fs_putBody(pTls->szLineBuf, put);
}

// ---- The destinations ----------------------------------------------------------------------------

// The files take levels at or above their threshold, the trace area levels at or below its own.
static int ZEBU_PutMsgToLogFile(const ZEBUTraceObject* pInstance, int iThreshold, int iLevel,
                                const char* pszLine, unsigned long ulLength)
{
    if (iThreshold == ZEBU2_LEVEL_OFF || iThreshold > iLevel)
        return 0;
    const ZEBUMutexGuard lock;
    const ZEBUEngine& engine = pInstance ? pInstance->engine : ZEBU2_Engine;
    return engine.putMessage(pszLine, ulLength);
}

static int ZEBU_PutMsgToShm(tagZEBU_TLS_VAR* pTls, int iThreshold, int iLevel, const char* pszLine,
                            unsigned long ulLength, const timeval* pTime)
{
    if (iThreshold == ZEBU2_LEVEL_OFF || iLevel > iThreshold)
        return 0;
    return ZEBU_PutMsgToMMap(pTls, pszLine, ulLength, pTime);
}

int ZEBU_PutMsgToMMap(tagZEBU_TLS_VAR* pTls, const char* pszLine, unsigned long ulLength,
                      const timeval* pTime)
{
    if (ZEBU2_pMMap.load(std::memory_order_relaxed) && ZEBU_IsAboveRateLimit(pTime))
        return 0;
    const ZEBUAreaUse use(pTls);
    ZEBUMMapFile* pMMap = ZEBU2_pMMap.load(std::memory_order_acquire);
    if (!pMMap) {
        pTls->iErrorPos = ZEBU_EPOS_NOTREADY;
        return 0;
    }
    return pMMap->writeToMMap(pszLine, static_cast<unsigned int>(ulLength));
}

// ---- The core ------------------------------------------------------------------------------------

namespace {

struct Thresholds
{
    int iFile;
    int iShm;
};

} // namespace

// Builds a line and hands it to both destinations. Without an instance it is the process log's.
static int fs_put(const ZEBUTraceObject* pInstance, const Thresholds& thresholds, const tagZEBU_PUT& put)
{
    const ZEBUErrScope err(put.iFunc);
    tagZEBU_TLS_VAR* pTls = err.context();
    if (!pTls)
        return -1;
    timeval time;
    const unsigned long ulLength = fs_buildLine(pInstance, pTls, put, &time);
    const int iFile =
        ZEBU_PutMsgToLogFile(pInstance, thresholds.iFile, put.iLevel, pTls->szLineBuf, ulLength);
    const int iShm = ZEBU_PutMsgToShm(pTls, thresholds.iShm, put.iLevel, pTls->szLineBuf, ulLength, &time);
    if (iFile == 0 && iShm == 0)
        return 0;
    return err.finish(iFile != 0 ? iFile : iShm);
}

static int fs_refuse(int iFunc, int iPos)
{
    return ZEBUErrScope(iFunc).fail(iPos);
}

static bool fs_isMessage(const tagZEBU_PUT& put)
{
    return static_cast<unsigned int>(put.iLevel) <= ZEBU2_LEVEL_MAX && put.pszText;
}

// True for a valid message above the log level, which costs no more than this: nothing is built before it,
// and the way to `true` takes no branch. A level above any log level is not negative.
static bool fs_isFiltered(int iLevel, const char* pszText)
{
    if (iLevel <= ZEBU2_Threshold.iLogLevel.load(std::memory_order_relaxed)) [[unlikely]]
        return false;
    if (iLevel > ZEBU2_LEVEL_MAX || !pszText || !ZEBU2_iIsInitialized.load(std::memory_order_relaxed))
        [[unlikely]]
        return false;
    return true;
}

// One function from the checks to the destinations: what its parts save and restore one after the other is a
// sixth of a line's time. There is no array in it for a protector of the stack.
#define ZEBU_WHOLE __attribute__((flatten, no_stack_protector))

ZEBU_WHOLE static int fs_putProcess(int iFunc, int iLevel, const char* pszText,
                                    const Details& with = cs_plain)
{
    const tagZEBU_PUT put = {iFunc, iLevel, pszText, with};
    if (!ZEBU2_iIsInitialized.load(std::memory_order_relaxed))
        return fs_refuse(put.iFunc, ZEBU_EPOS_NOTREADY);
    if (!fs_isMessage(put))
        return fs_refuse(put.iFunc, ZEBU_EPOS_PARAM);
    if (put.iLevel > ZEBU2_Threshold.iLogLevel.load(std::memory_order_relaxed))
        return 0;
    return fs_put(nullptr,
                  {ZEBU2_Threshold.iFileThreshold.load(std::memory_order_relaxed),
                   ZEBU2_Threshold.iShmThreshold.load(std::memory_order_relaxed)},
                  put);
}

ZEBU_WHOLE static int fs_putInstance(const ZEBUTraceObject* pInstance, int iFunc, int iLevel,
                                     const char* pszText, const Details& with = cs_plain)
{
    const tagZEBU_PUT put = {iFunc, iLevel, pszText, with};
    if (!pInstance || !fs_isMessage(put))
        return fs_refuse(put.iFunc, ZEBU_EPOS_PARAM);
    if (ZEBU_CheckInstance(pInstance) != 0)
        return fs_refuse(put.iFunc, ZEBU_EPOS_NOTREADY);
    if (put.iLevel > pInstance->iLogLevel.load(std::memory_order_relaxed))
        return 0;
    return fs_put(pInstance,
                  {pInstance->iFileThreshold.load(std::memory_order_relaxed),
                   pInstance->iShmThreshold.load(std::memory_order_relaxed)},
                  put);
}

// ---- The entry points ----------------------------------------------------------------------------

// A put that is filtered out leaves before any frame is made. A protected frame would be made at once; there
// is no array in these to protect.
#define ZEBU_FRAMELESS __attribute__((no_stack_protector))

// The parts one by one: put together before the test, they would be stored before it.
[[gnu::always_inline]] static inline int fs_putUnlessFiltered(int iFunc, int iLevel, const char* pszText,
                                                              Body body, Given appName = {},
                                                              Given threadId = {})
{
    return fs_isFiltered(iLevel, pszText) ? 0
                                          : fs_putProcess(iFunc, iLevel, pszText, {body, appName, threadId});
}

ZEBU_FRAMELESS int ZEBU2_PutLine(int iLevel, const char* pszText)
{
    return fs_isFiltered(iLevel, pszText) ? 0 : fs_putProcess(ZEBU_FUNC_PUT_LINE, iLevel, pszText);
}

ZEBU_FRAMELESS int ZEBU2_PutWithId(int iLevel, const char* pszMsgId, const char* pszText)
{
    return fs_putUnlessFiltered(ZEBU_FUNC_PUT_ID, iLevel, pszText, fs_id(pszMsgId));
}

ZEBU_FRAMELESS int ZEBU2_PutWithIdEx(int iLevel, const char* pszAppName, const char* pszMsgId,
                                     const char* pszText)
{
    return fs_putUnlessFiltered(ZEBU_FUNC_PUT_ID_EX, iLevel, pszText, fs_id(pszMsgId), fs_given(pszAppName));
}

ZEBU_FRAMELESS int ZEBU2_PutWithMsgType(int iLevel, const char* pszAppName, const char* pszMsgId,
                                        const char* pszMsgType, const char* pszText)
{
    return fs_putUnlessFiltered(ZEBU_FUNC_PUT_TYPE, iLevel, pszText, fs_typed(pszMsgId, pszMsgType),
                                fs_given(pszAppName));
}

ZEBU_FRAMELESS int ZEBU2_PutWithIdAndTidEx(int iLevel, const char* pszAppName, const char* pszThreadId,
                                           const char* pszMsgId, const char* pszText)
{
    return fs_putUnlessFiltered(ZEBU_FUNC_PUT_ID_TID, iLevel, pszText, fs_id(pszMsgId), fs_given(pszAppName),
                                fs_given(pszThreadId));
}

ZEBU_FRAMELESS int ZEBU2_PutWithMsgTypeAndTid(int iLevel, const char* pszAppName, const char* pszThreadId,
                                              const char* pszMsgId, const char* pszMsgType,
                                              const char* pszText)
{
    return fs_putUnlessFiltered(ZEBU_FUNC_PUT_TYPE_TID, iLevel, pszText, fs_typed(pszMsgId, pszMsgType),
                                fs_given(pszAppName), fs_given(pszThreadId));
}

int ZEBU2_PutInstanceLine(ZEBU2_HINSTANCE hInstance, int iLevel, const char* pszText)
{
    return fs_putInstance(hInstance, ZEBU_FUNC_PUT_INSTANCE_LINE, iLevel, pszText);
}

int ZEBU2_PutInstanceWithId(ZEBU2_HINSTANCE hInstance, int iLevel, const char* pszMsgId, const char* pszText)
{
    return fs_putInstance(hInstance, ZEBU_FUNC_PUT_INSTANCE_ID, iLevel, pszText, {fs_id(pszMsgId)});
}

int ZEBU2_PutInstanceWithIdEx(ZEBU2_HINSTANCE hInstance, int iLevel, const char* pszAppName,
                              const char* pszMsgId, const char* pszText)
{
    return fs_putInstance(hInstance, ZEBU_FUNC_PUT_INSTANCE_ID_EX, iLevel, pszText,
                          {fs_id(pszMsgId), fs_given(pszAppName)});
}

int ZEBU2_PutInstanceWithMsgType(ZEBU2_HINSTANCE hInstance, int iLevel, const char* pszAppName,
                                 const char* pszMsgId, const char* pszMsgType, const char* pszText)
{
    return fs_putInstance(hInstance, ZEBU_FUNC_PUT_INSTANCE_TYPE, iLevel, pszText,
                          {fs_typed(pszMsgId, pszMsgType), fs_given(pszAppName)});
}
