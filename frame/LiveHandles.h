// frame/LiveHandles.h -- the set of live instance handles.
//
// Tells whether a handle is a live instance without touching what it points to. Looking up takes no lock,
// costs the same for one instance as for thousands, and is safe while others add and remove.
#ifndef ZEBU_FRAME_LIVEHANDLES_H
#define ZEBU_FRAME_LIVEHANDLES_H

struct ZEBUTraceObject;

// Any thread, no lock.
bool ZEBU_IsLiveHandle(const ZEBUTraceObject* hInstance);

// The caller holds the process mutex. Adding fails (false, failure 9 recorded) when there is no memory.
bool ZEBU_AddLiveHandle(const ZEBUTraceObject* hInstance);
void ZEBU_RemoveLiveHandle(const ZEBUTraceObject* hInstance);

#endif
