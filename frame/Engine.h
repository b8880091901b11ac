// frame/Engine.h -- the file engine of a log: the ring of one process or a shared one.
//
// The process log and every trace instance have one, and it alone knows which kind it is. Used while the
// process mutex is held. Failures are recorded without function number unless said otherwise.
#ifndef ZEBU_FRAME_ENGINE_H
#define ZEBU_FRAME_ENGINE_H

#include "ZEBULib2.h"

class ZEBUErrScope;
class ZebuLogFile;
class ZebuMultiLogFile;

enum ZEBURingKind { ZEBU_RING_SHARED = 0, ZEBU_RING_SINGLE = 1 };

// What only a shared ring starts with.
struct tagZEBU_SHARED_START
{
    int iOption;
    const char* pszAppName; // printed in its headers; null: the process log's, whatever it is then
    int iLockValues;        // position of its lock parameters in ZEBU2_LockValue
};

class ZEBUEngine final
{
public:
    constexpr ZEBUEngine() = default;
    ZEBUEngine(const ZEBUEngine&) = delete;
    ZEBUEngine& operator=(const ZEBUEngine&) = delete;

    bool exists() const { return pLogFile || pMultiLogFile; }
    bool isA(ZEBURingKind eKind) const
    {
        return eKind == ZEBU_RING_SINGLE ? pLogFile != nullptr : pMultiLogFile != nullptr;
    }

    // Makes an engine and opens it, unless no ring is described (null). Returns 0, 3 (open with a warning) or
    // 1; after 1 it exists only if it needs no files.
    int start(ZEBURingKind eKind, const tagZEBU_LOGFILE_SPEC* pSpec, const tagZEBU_SHARED_START& shared);

    // Closes the files and ends to exist. When that fails it stays, with the function number put over the
    // failure. Returns 0 or the failing close's result.
    int close(const ZEBUErrScope& err);

    // Ends to exist, and closes first what a failed open or close has left open, or its descriptors,
    // mappings and locks would stay behind. The failure on record stays.
    void discard();

    // Each does what the engine's operation of that name does; without an engine it fails with 11.
    int putMessage(const char* pszLine, unsigned long ulLength) const;
    int bufferFlush() const;
    int backupToFile(const char* pszDestination, int iOption) const;
    // Changes the files' mode, and on success that of files made later.
    int changeFileAttr(int iMode) const;

    // The ring that has lock parameters; null when it is not shared (28) or there is none (11).
    ZebuMultiLogFile* sharedRing() const;

private:
    int startSingle(const tagZEBU_LOGFILE_SPEC* pSpec);
    int startShared(const tagZEBU_LOGFILE_SPEC* pSpec, const tagZEBU_SHARED_START& shared);
    void discardSingle();
    void discardShared();

    // One of them at most; both only when a process log that could not be closed is followed by one of the
    // other kind.
    ZebuLogFile* pLogFile = nullptr;
    ZebuMultiLogFile* pMultiLogFile = nullptr;
};

#endif
