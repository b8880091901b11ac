// frame/GetTLS.cpp -- the context of a thread that has none yet.
#include "frame/TLS.h"

tagZEBU_TLS_VAR* ZEBU_MakeTlsVar()
{
    if (ZEBU2_TlsKeyEnable.load(std::memory_order_acquire) == 0)
        ZEBU_InitializeTlsIndex();
    if (ZEBU2_TlsKeyEnable.load(std::memory_order_acquire) == 0 || ZEBU_InitializeTlsVar() != 0)
        return nullptr;
    return cs_pOwnTlsVar;
}
