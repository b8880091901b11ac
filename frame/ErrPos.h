// frame/ErrPos.h -- how failures are recorded. The numbers themselves are in the public header.
//
// Who detects a failure records it: engines with ZEBU_Fail, entry points through a ZEBUErrScope.
#ifndef ZEBU_FRAME_ERRPOS_H
#define ZEBU_FRAME_ERRPOS_H

#include <errno.h>

#include <atomic>

#include "frame/TLS.h"
#include "ZEBULib2.h"

// Stores a failure number (with function number 0) and its code in the calling thread's context. Does
// nothing when the thread has none and none can be made.
void SetErrPos(int iPos, int iCode);

// Stores the failure number alone and leaves the code as it was.
void ZEBU_SetErrPosOnly(int iPos);

// Records a failure and returns -1, so that a failing step is one line.
int ZEBU_Fail(int iPos, int iCode);

// Allocates the object of a class; on exhaustion records failure 9 and returns null.
void* ZEBU_AllocateObject(size_t uSize) noexcept;

// Outcome of the last signal-safe put of the process. Kept for a debugger; nothing reads them back.
extern constinit std::atomic<int> ZEBU2_PutMsgSigSafe_ErrorCode;
extern constinit std::atomic<int> ZEBU2_PutMsgSigSafe_ErrorPos;

// The error fields of the calling thread for the time of one entry point, cleared at its start.
class ZEBUErrScope final
{
public:
    explicit ZEBUErrScope(int iFunction) : ZEBUErrScope(iFunction, ZEBU_GetTlsVar()) {}
    ZEBUErrScope(int iFunction, tagZEBU_TLS_VAR* pContext) : iFunc(iFunction), pTls(pContext)
    {
        if (pTls) {
            pTls->iErrorCode = 0;
            pTls->iErrorPos = 0;
        }
    }
    ZEBUErrScope(const ZEBUErrScope&) = delete;
    ZEBUErrScope& operator=(const ZEBUErrScope&) = delete;

    // The thread's context, or null when it has none.
    tagZEBU_TLS_VAR* context() const { return pTls; }

    // Stores a failure of the entry point's own, function number included. Returns -1.
    int fail(int iPos) const
    {
        if (pTls)
            pTls->iErrorPos = compose(iPos);
        return -1;
    }

    // Puts the function number over the failure that an engine recorded.
    void mark() const
    {
        if (pTls)
            pTls->iErrorPos = compose(pTls->iErrorPos);
    }

    // Marks when `iResult` is not 0. Returns `iResult`.
    int finish(int iResult) const
    {
        if (iResult != 0)
            mark();
        return iResult;
    }

private:
    int compose(int iPos) const { return iFunc << 24 | (iPos & 0x00FFFFFF); }

    const int iFunc;
    tagZEBU_TLS_VAR* const pTls;
};

// Keeps the failure recorded so far over clean-up steps that may record their own.
class ZEBUErrKeep final
{
public:
    ZEBUErrKeep()
        : pTls(ZEBU_GetTlsVar()), iCode(pTls ? pTls->iErrorCode : 0), iPos(pTls ? pTls->iErrorPos : 0)
    {
    }
    ~ZEBUErrKeep()
    {
        if (pTls) {
            pTls->iErrorCode = iCode;
            pTls->iErrorPos = iPos;
        }
    }
    ZEBUErrKeep(const ZEBUErrKeep&) = delete;
    ZEBUErrKeep& operator=(const ZEBUErrKeep&) = delete;

private:
    tagZEBU_TLS_VAR* const pTls;
    const int iCode;
    const int iPos;
};

#endif
