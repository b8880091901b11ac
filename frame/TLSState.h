// frame/TLSState.h -- the variables that finding a thread's context starts from, and those of a thread that
// may have none.
#ifndef ZEBU_FRAME_TLSSTATE_H
#define ZEBU_FRAME_TLSSTATE_H

#include <atomic>

struct tagZEBU_TLS_VAR;

// 1 while the thread-specific key exists, that is from the first call until ZEBU2_EndLibrary.
extern constinit std::atomic<int> ZEBU2_TlsKeyEnable;

// The calling thread's context: the value stored under the key, at hand without a call. In memory that a
// thread has from its start, so that a signal handler can read it.
extern __thread tagZEBU_TLS_VAR* cs_pOwnTlsVar;

// How many blocks that use the trace area the calling thread is in. Others look at it through the context.
extern __thread std::atomic<int> cs_iAreaUses;

#endif
