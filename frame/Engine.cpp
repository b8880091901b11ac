// frame/Engine.cpp -- the two-way choice between the kinds of ring.
#include "frame/Engine.h"

#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "logfile/LogFile.h"
#include "multilog/MultiLogFile.h"

// ---- Start and end -------------------------------------------------------------------------------

int ZEBUEngine::start(ZEBURingKind eKind, const tagZEBU_LOGFILE_SPEC* pSpec,
                      const tagZEBU_SHARED_START& shared)
{
    return eKind == ZEBU_RING_SINGLE ? startSingle(pSpec) : startShared(pSpec, shared);
}

int ZEBUEngine::startSingle(const tagZEBU_LOGFILE_SPEC* pSpec)
{
    pLogFile = new ZebuLogFile(pSpec);
    if (!pLogFile || !pSpec)
        return 1;
    if (pLogFile->openFile() == 0)
        return 0;
    discardSingle();
    return 1;
}

int ZEBUEngine::startShared(const tagZEBU_LOGFILE_SPEC* pSpec, const tagZEBU_SHARED_START& shared)
{
    pMultiLogFile = new ZebuMultiLogFile(pSpec);
    if (!pMultiLogFile)
        return 1;
    if (shared.pszAppName)
        pMultiLogFile->setAppName(shared.pszAppName);
    if (!pSpec)
        return 1;
    pMultiLogFile->setOption(shared.iOption);
    pMultiLogFile->setLockWaitTime(ZEBU2_LockValue[shared.iLockValues]);
    pMultiLogFile->setLockRetryTimes(ZEBU2_LockValue[shared.iLockValues + 1]);
    const int iResult = pMultiLogFile->openFile();
    if (iResult == 0 || iResult == 3)
        return iResult;
    discardShared();
    return 1;
}

template <class Engine>
static int fs_close(Engine** ppEngine, const ZEBUErrScope& err)
{
    const int iResult = err.finish((*ppEngine)->closeFile());
    if (iResult == 0) {
        delete *ppEngine;
        *ppEngine = nullptr;
    }
    return iResult;
}

int ZEBUEngine::close(const ZEBUErrScope& err)
{
    int iResult = 0;
    if (pLogFile)
        iResult = fs_close(&pLogFile, err);
    if (pMultiLogFile)
        iResult = fs_close(&pMultiLogFile, err);
    return iResult;
}

void ZEBUEngine::discard()
{
    discardSingle();
    discardShared();
}

void ZEBUEngine::discardSingle()
{
    const ZEBUErrKeep keep;
    if (pLogFile)
        (void)pLogFile->closeFile();
    delete pLogFile;
    pLogFile = nullptr;
}

void ZEBUEngine::discardShared()
{
    const ZEBUErrKeep keep;
    if (pMultiLogFile)
        pMultiLogFile->abandon();
    delete pMultiLogFile;
    pMultiLogFile = nullptr;
}

// ---- Use -----------------------------------------------------------------------------------------

int ZEBUEngine::putMessage(const char* pszLine, unsigned long ulLength) const
{
    if (pLogFile)
        return pLogFile->putMessage(pszLine, ulLength);
    if (pMultiLogFile)
        return pMultiLogFile->putMessage(pszLine, ulLength);
    ZEBU_SetErrPosOnly(ZEBU_EPOS_NOTREADY);
    return -1;
}

int ZEBUEngine::bufferFlush() const
{
    if (pLogFile)
        return pLogFile->bufferFlush();
    if (pMultiLogFile)
        return pMultiLogFile->bufferFlush();
    return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
}

int ZEBUEngine::backupToFile(const char* pszDestination, int iOption) const
{
    if (pLogFile)
        return pLogFile->backupToFile(pszDestination, 0);
    if (pMultiLogFile)
        return pMultiLogFile->backupToFile(pszDestination, iOption);
    return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
}

template <class Engine>
static int fs_changeFileAttr(Engine* pEngine, int iMode)
{
    const int iResult = pEngine->chFileAttr(iMode);
    if (iResult != -1)
        (void)pEngine->setFileAttr(iMode);
    return iResult;
}

int ZEBUEngine::changeFileAttr(int iMode) const
{
    if (pLogFile)
        return fs_changeFileAttr(pLogFile, iMode);
    if (pMultiLogFile)
        return fs_changeFileAttr(pMultiLogFile, iMode);
    return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
}

ZebuMultiLogFile* ZEBUEngine::sharedRing() const
{
    if (pLogFile || !pMultiLogFile) {
        SetErrPos(pLogFile ? ZEBU_EPOS_NOTMULTI : ZEBU_EPOS_NOTREADY, 0);
        return nullptr;
    }
    return pMultiLogFile;
}
