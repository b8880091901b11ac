// frame/GetTLS.cpp -- the context of a thread that has none yet.
#include <pthread.h>

#include "frame/ForkHandler.h"
#include "frame/TLS.h"

// The first call of a process comes by here before it takes a lock: from then on forks are guarded.
tagZEBU_TLS_VAR* ZEBU_MakeTlsVar()
{
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    if (ZEBU2_TlsKeyEnable.load(std::memory_order_acquire) == 0)
        ZEBU_InitializeTlsIndex();
    pthread_once(&once, ZEBU_RegisterForkGuards);
    if (ZEBU2_TlsKeyEnable.load(std::memory_order_acquire) == 0 || ZEBU_InitializeTlsVar() != 0)
        return nullptr;
    return cs_pOwnTlsVar;
}
