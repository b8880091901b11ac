// frame/GetTLS.cpp -- finding the calling thread's context.
#include "frame/TLS.h"
#include "frame/TLSState.h"

tagZEBU_TLS_VAR* ZEBU_PeekTlsVar()
{
    return ZEBU2_TlsKeyEnable.load(std::memory_order_acquire) != 0 ? cs_pOwnTlsVar : nullptr;
}

tagZEBU_TLS_VAR* ZEBU_GetTlsVar()
{
    if (tagZEBU_TLS_VAR* pTls = ZEBU_PeekTlsVar())
        return pTls;
    if (ZEBU2_TlsKeyEnable.load(std::memory_order_acquire) == 0)
        ZEBU_InitializeTlsIndex();
    if (ZEBU2_TlsKeyEnable.load(std::memory_order_acquire) == 0 || ZEBU_InitializeTlsVar() != 0)
        return nullptr;
    return cs_pOwnTlsVar;
}
