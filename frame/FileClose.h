// frame/FileClose.h -- giving the trace area up.
#ifndef ZEBU_FRAME_FILECLOSE_H
#define ZEBU_FRAME_FILECLOSE_H

class ZEBUErrScope;

// Takes one user off the trace area; closes and deletes it after the last. `*pbHolds` says whether the
// caller is a user: one that came out without the area must not count off another's. Returns 0, or the
// result of a close that failed, with its failure marked; the area stays then. The caller holds the
// process mutex.
int ZEBU_ReleaseMMap(bool* pbHolds, const ZEBUErrScope& err);

#endif
