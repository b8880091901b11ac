// frame/FileOpen.h -- the checks and steps that starting the process log shares with trace instances.
// The caller holds the process mutex.
#ifndef ZEBU_FRAME_FILEOPEN_H
#define ZEBU_FRAME_FILEOPEN_H

#include "frame/Engine.h"
#include "frame/ErrPos.h"
#include "ZEBULib2.h"

enum ZEBUCheck { ZEBU_CHECK_VALID = 0, ZEBU_CHECK_NO_RING = 1, ZEBU_CHECK_INVALID = 2 };

// Checks the arguments of a start: valid, no ring described (null), or invalid. Records nothing.
ZEBUCheck ZEBU_CheckArgument(const tagZEBU_LOGFILE_SPEC* pSpec, int iOption, ZEBURingKind eKind);

// Starts an engine when the arguments are valid. Returns 0, 3 or 1, as ZEBUEngine::start; 1 with failure 1
// when they are not.
int ZEBU_InitializeLogFile(ZEBUEngine* pEngine, ZEBURingKind eKind, const tagZEBU_LOGFILE_SPEC* pSpec,
                           const tagZEBU_SHARED_START& shared);

// Attaches a user to the trace area, opening it for the first. Returns 0 or the failure result, and in
// `*pbHolds` whether the area now counts the user.
int ZEBU_AttachMMap(bool* pbHolds);

// What a start comes to: the result of the files, R, after the area's, M, with the function number put on
// the recorded failure where it belongs.
int ZEBU_CombineResults(int iFiles, int iArea, const ZEBUErrScope& err);

#endif
