// frame/TLS.h -- the per-thread context: last error, thread id text and the thread's line buffer.
//
// A context is made on a thread's first call, kept in a list so that ZEBU2_EndLibrary can free all, and
// freed by the key's destructor when the thread ends. Everything but the list links belongs to its own
// thread and needs no lock.
#ifndef ZEBU_FRAME_TLS_H
#define ZEBU_FRAME_TLS_H

#include <pthread.h>
#include <stddef.h>

#include "frame/TLSState.h"
#include "output/LineFormat.h"
#include "output/LocalTime.h"

struct tagZEBU_TLS_VAR
{
    tagZEBU_TLS_VAR* pNext;
    tagZEBU_TLS_VAR* pPrev;
    std::atomic<int>* piAreaUses; // of this thread; null in the child of a fork, where the thread is not
    int iErrorCode;
    int iErrorPos;
    char szThreadId[ZEBU_THREAD_ID + 1];
    alignas(16) char szLineBuf[ZEBU_LINE_BUFFER]; // its columns are stored a word at a time
    ZEBUCachedSecond second;
};

// Returns the calling thread's context if it has one. Async-signal-safe.
inline tagZEBU_TLS_VAR* ZEBU_PeekTlsVar()
{
    return ZEBU2_TlsKeyEnable.load(std::memory_order_acquire) != 0 ? cs_pOwnTlsVar : nullptr;
}

// Makes the calling thread's context, and first what all threads need for theirs and the guards of forks.
// Null when it cannot.
tagZEBU_TLS_VAR* ZEBU_MakeTlsVar();

// Returns the calling thread's context, made on first use; null when none can be had.
inline tagZEBU_TLS_VAR* ZEBU_GetTlsVar()
{
    tagZEBU_TLS_VAR* pTls = ZEBU_PeekTlsVar();
    return pTls ? pTls : ZEBU_MakeTlsVar();
}

// Makes the list mutex and the key, once per process.
void ZEBU_InitializeTlsIndex();

// Makes and installs the calling thread's context. Returns 0 or -1.
int ZEBU_InitializeTlsVar();

// Appends a new, unfilled record to the list; null when there is no memory.
tagZEBU_TLS_VAR* ZEBU_TlsVarCreate();

// Removes a record from the list and leaves its own links as they are. Null is ignored.
void ZEBU_TlsVarUnlink(tagZEBU_TLS_VAR* p);

// Frees all records and the key; the result of destroying the mutex attribute, 0.
int ZEBU_TlsVarDeleteAll();

// Whether any listed thread is in a block that uses the trace area.
bool ZEBU_IsAnyThreadInArea();

// In the child of a fork, under the list mutex: only the calling thread is here.
void ZEBU_ForgetOtherThreads();

// The list mutex. Recursive; nothing else is locked while it is held.
void ZEBU_TlsVarMtLock();
void ZEBU_TlsVarMtUnlock();
void ZEBU_TlsVarMtRenew(); // unlocks it in the child of a fork

// The list's anchor: belongs to no thread, only its links are used.
extern tagZEBU_TLS_VAR cs_listHead;

#endif
