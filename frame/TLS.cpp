// frame/TLS.cpp -- making, listing and freeing the per-thread contexts.
#include "frame/TLS.h"

#include <stdlib.h>
#include <string.h>

#include <atomic>

#include "frame/TLSState.h"
#include "output/ltostr.h"

constinit tagZEBU_TLS_VAR cs_listHead = {nullptr, nullptr, nullptr, 0, 0, "not used ", {}, {}};

constinit std::atomic<int> ZEBU2_TlsKeyEnable{0};
__thread tagZEBU_TLS_VAR* cs_pOwnTlsVar;
__thread std::atomic<int> cs_iAreaUses;

static pthread_key_t ZEBU2_TlsKey;
static pthread_mutex_t ZEBU_tlsVarMutex;
static pthread_mutexattr_t cs_tlsVarAttrib;

void ZEBU_TlsVarMtLock()
{
    pthread_mutex_lock(&ZEBU_tlsVarMutex);
}

void ZEBU_TlsVarMtUnlock()
{
    pthread_mutex_unlock(&ZEBU_tlsVarMutex);
}

// A recursive mutex knows its owner by the kernel's thread id, which is another one in the child: unlocking
// fails, and it is made anew.
void ZEBU_TlsVarMtRenew()
{
    pthread_mutex_unlock(&ZEBU_tlsVarMutex);
    pthread_mutex_init(&ZEBU_tlsVarMutex, &cs_tlsVarAttrib);
}

static void ZEBU_InitializeTlsVarMtLock()
{
    pthread_mutexattr_init(&cs_tlsVarAttrib);
    pthread_mutexattr_settype(&cs_tlsVarAttrib, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&ZEBU_tlsVarMutex, &cs_tlsVarAttrib);
}

static int ZEBU_FinalizeTlsVarMtLock()
{
    pthread_mutex_destroy(&ZEBU_tlsVarMutex);
    return pthread_mutexattr_destroy(&cs_tlsVarAttrib);
}

// The key's destructor: runs on the thread that ends.
static void ZEBU_TlsFree(void* p)
{
    cs_pOwnTlsVar = nullptr; // before the list forgets it: a handler then uses the area without its mark
    std::atomic_signal_fence(std::memory_order_seq_cst);
    ZEBU_TlsVarUnlink(static_cast<tagZEBU_TLS_VAR*>(p));
    free(p);
}

static void ZEBU2_TlsKeyCreate()
{
    const int iEnable = pthread_key_create(&ZEBU2_TlsKey, ZEBU_TlsFree) == 0 ? 1 : 0;
    ZEBU2_TlsKeyEnable.store(iEnable, std::memory_order_release);
}

void ZEBU_InitializeTlsIndex()
{
    static pthread_once_t once_flg2 = PTHREAD_ONCE_INIT;
    static pthread_once_t once_flg = PTHREAD_ONCE_INIT;
    pthread_once(&once_flg2, ZEBU_InitializeTlsVarMtLock);
    pthread_once(&once_flg, ZEBU2_TlsKeyCreate);
}

int ZEBU_InitializeTlsVar()
{
    tagZEBU_TLS_VAR* pTls = ZEBU_TlsVarCreate();
    if (!pTls) {
        pthread_setspecific(ZEBU2_TlsKey, nullptr);
        return -1;
    }
    if (pthread_setspecific(ZEBU2_TlsKey, pTls) != 0) { // without the key it would never be freed
        ZEBU_TlsVarUnlink(pTls);
        free(pTls);
        return -1;
    }
    pTls->iErrorCode = 0;
    pTls->iErrorPos = 0;
    memset(pTls->szLineBuf, 0, sizeof pTls->szLineBuf);
    pTls->second = {};
    ZEBU_PutHex8(pTls->szThreadId, static_cast<unsigned int>(pthread_self()));
    pTls->szThreadId[8] = ' ';
    pTls->szThreadId[9] = '\0';
    cs_pOwnTlsVar = pTls;
    return 0;
}

tagZEBU_TLS_VAR* ZEBU_TlsVarCreate()
{
    ZEBU_TlsVarMtLock();
    auto* pTls = static_cast<tagZEBU_TLS_VAR*>(malloc(sizeof(tagZEBU_TLS_VAR)));
    if (pTls) {
        pTls->pNext = nullptr;
        pTls->pPrev = cs_listHead.pPrev;
        pTls->piAreaUses = &cs_iAreaUses; // whoever finds the context in the list looks at it
        (pTls->pPrev ? pTls->pPrev : &cs_listHead)->pNext = pTls;
        cs_listHead.pPrev = pTls;
    }
    ZEBU_TlsVarMtUnlock();
    return pTls;
}

void ZEBU_TlsVarUnlink(tagZEBU_TLS_VAR* p)
{
    if (!p)
        return;
    ZEBU_TlsVarMtLock();
    (p->pPrev ? p->pPrev : &cs_listHead)->pNext = p->pNext;
    (p->pNext ? p->pNext : &cs_listHead)->pPrev = p->pPrev;
    ZEBU_TlsVarMtUnlock();
}

bool ZEBU_IsAnyThreadInArea()
{
    bool bAny = false;
    ZEBU_TlsVarMtLock();
    for (const tagZEBU_TLS_VAR* p = cs_listHead.pNext; p && !bAny; p = p->pNext)
        bAny = p->piAreaUses && p->piAreaUses->load(std::memory_order_acquire) != 0;
    ZEBU_TlsVarMtUnlock();
    return bAny;
}

void ZEBU_ForgetOtherThreads()
{
    for (tagZEBU_TLS_VAR* p = cs_listHead.pNext; p; p = p->pNext) {
        if (p != cs_pOwnTlsVar)
            p->piAreaUses = nullptr;
    }
}

int ZEBU_TlsVarDeleteAll()
{
    ZEBU_InitializeTlsIndex(); // a process that never logged has no mutex yet
    ZEBU_TlsVarMtLock();
    cs_pOwnTlsVar = nullptr;
    if (ZEBU2_TlsKeyEnable.exchange(0) != 0) // a late call finds no context instead of a dead one
        pthread_key_delete(ZEBU2_TlsKey);
    tagZEBU_TLS_VAR* pTls = cs_listHead.pNext;
    cs_listHead.pNext = nullptr;
    cs_listHead.pPrev = nullptr;
    while (pTls) {
        tagZEBU_TLS_VAR* pNext = pTls->pNext;
        free(pTls);
        pTls = pNext;
    }
    ZEBU_TlsVarMtUnlock();
    return ZEBU_FinalizeTlsVarMtLock();
}
