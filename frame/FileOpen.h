// frame/FileOpen.h -- the checks and steps that starting the process log shares with trace instances.
// The caller holds the process mutex.
#ifndef ZEBU_FRAME_FILEOPEN_H
#define ZEBU_FRAME_FILEOPEN_H

#include "frame/ErrPos.h"
#include "ZEBULib2.h"

// Which engine a log is to have, and the position of its lock parameters in ZEBU2_LockValue.
enum ZEBUMode { ZEBU_MODE_SHARED = 0, ZEBU_MODE_SINGLE = 1 };

enum ZEBUCheck { ZEBU_CHECK_VALID = 0, ZEBU_CHECK_NO_RING = 1, ZEBU_CHECK_INVALID = 2 };

// Checks the arguments of a start: valid, no ring described (null), or invalid. Records nothing.
ZEBUCheck ZEBU_CheckArgument(const tagZEBU_LOGFILE_SPEC* pSpec, int iOption, ZEBUMode eMode);

// Makes an engine and opens it, unless no ring is described. Returns 0, 3 (open with a warning) or 1; after 1
// the engine exists only if it needs no files. Failures are recorded without function number.
class ZebuLogFile;
class ZebuMultiLogFile;
int ZEBU_StartSingle(ZebuLogFile** ppEngine, const tagZEBU_LOGFILE_SPEC* pSpec);
int ZEBU_StartShared(ZebuMultiLogFile** ppEngine, const tagZEBU_LOGFILE_SPEC* pSpec, int iOption,
                     const char* pszAppName, int iLockValues);

// Attaches a user to the trace area, opening it for the first. Returns 0 or the failure result, and in
// `*pbHolds` whether the area now counts the user.
int ZEBU_AttachMMap(bool* pbHolds);

// What a start comes to: the result of the files, R, after the area's, M, with the function number put on
// the recorded failure where it belongs.
int ZEBU_CombineResults(int iFiles, int iArea, const ZEBUErrScope& err);

#endif
