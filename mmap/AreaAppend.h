// mmap/AreaAppend.h -- the one way by which lines get into the trace area, for puts and for signal handlers.
#ifndef ZEBU_MMAP_AREAAPPEND_H
#define ZEBU_MMAP_AREAAPPEND_H

#include <stdint.h>

enum ZEBUAppend {
    ZEBU_APPEND_STORED,
    ZEBU_APPEND_NO_ROOM,
    ZEBU_APPEND_DAMAGED,
    ZEBU_APPEND_AGAIN // within an append: it has to begin anew
};

// Appends a line to the ring in `uMapLength` mapped bytes, header included; `uLength` is at least 1. For any
// content of the header no byte outside them is touched. No room: too little is free, or the guard of the
// area could not be had in time. Async-signal-safe, also on a thread that is in an append: the interrupted
// line is stored first.
ZEBUAppend ZEBU_AppendToArea(void* pMap, uint32_t uMapLength, const void* pData, uint32_t uLength);

// In the child of a fork: what the calling thread is appending is the parent's to finish.
void ZEBU_LeaveAppendsToParent();

#endif
