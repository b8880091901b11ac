// frame/ErrPos.cpp -- recording failures in the calling thread's context.
#include "frame/ErrPos.h"

#include <stdlib.h>

constinit std::atomic<int> ZEBU2_PutMsgSigSafe_ErrorCode{0};
constinit std::atomic<int> ZEBU2_PutMsgSigSafe_ErrorPos{0};

void SetErrPos(int iPos, int iCode)
{
    if (tagZEBU_TLS_VAR* pTls = ZEBU_GetTlsVar()) {
        pTls->iErrorCode = iCode;
        pTls->iErrorPos = iPos;
    }
}

void ZEBU_SetErrPosOnly(int iPos)
{
    if (tagZEBU_TLS_VAR* pTls = ZEBU_GetTlsVar())
        pTls->iErrorPos = iPos;
}

int ZEBU_Fail(int iPos, int iCode)
{
    SetErrPos(iPos, iCode);
    return -1;
}

void* ZEBU_AllocateObject(size_t uSize) noexcept
{
    void* p = malloc(uSize);
    if (!p)
        SetErrPos(ZEBU_EPOS_NOMEM, errno);
    return p;
}
