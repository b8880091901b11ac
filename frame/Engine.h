// frame/Engine.h -- the file engine of a log: the process's own ring or a shared one.
//
// A value that is built while the process mutex is held. Only Engine.cpp asks which engine it is; start,
// stop and the lock parameters do too, because there the two differ.
#ifndef ZEBU_FRAME_ENGINE_H
#define ZEBU_FRAME_ENGINE_H

class ZebuLogFile;
class ZebuMultiLogFile;

struct ZEBUEngineRef
{
    ZebuLogFile* pLogFile;
    ZebuMultiLogFile* pMultiLogFile;

    // Each does what the engine's operation of that name does; without an engine it fails with 11.
    int putMessage(const char* pszLine, unsigned long ulLength) const;
    int bufferFlush() const;
    int backupToFile(const char* pszDestination, int iOption) const;
    // Changes the files' mode, and on success that of files made later.
    int changeFileAttr(int iMode) const;
};

// Deletes an engine that is given up, and closes first what a failed open or close has left open, or its
// descriptors, mappings and locks would stay behind. Null is allowed. The failure on record stays.
void ZEBU_DiscardEngine(ZebuLogFile** ppEngine);
void ZEBU_DiscardEngine(ZebuMultiLogFile** ppEngine);

// The engine of the process log.
ZEBUEngineRef ZEBU_ProcessEngine();

#endif
