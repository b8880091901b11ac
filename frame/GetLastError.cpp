// frame/GetLastError.cpp -- reading the calling thread's last failure.
#include "frame/ErrPos.h"

int ZEBU2_GetLastError(int* piErrorCode)
{
    const tagZEBU_TLS_VAR* pTls = ZEBU_GetTlsVar();
    if (!pTls)
        return ZEBU_EPOS_NOCONTEXT;
    if (piErrorCode)
        *piErrorCode = pTls->iErrorCode;
    return pTls->iErrorPos;
}
