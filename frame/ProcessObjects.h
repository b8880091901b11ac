// frame/ProcessObjects.h -- the objects that a process has one of, and who still uses them.
//
// The process log and every trace instance are users. Guarded by the process mutex, which the caller holds.
#ifndef ZEBU_FRAME_PROCESSOBJECTS_H
#define ZEBU_FRAME_PROCESSOBJECTS_H

#include "frame/Engine.h"

extern constinit ZEBUEngine ZEBU2_Engine; // the process log's
extern bool ZEBU2_bHoldsMMap;             // the process log is one of the users that the trace area counts

// Counts a user on: the first one finds what all need made. Stores the process id text.
void ZEBU_InitializeGrobalVar();

// Counts a user off. The last one leaves none of the objects: the process log's engine, the trace area.
void ZEBU_UninitializeGrobalVar();

#endif
