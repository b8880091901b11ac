// frame/Engine.cpp -- the two-way choice between the file engines.
#include "frame/Engine.h"

#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "logfile/LogFile.h"
#include "multilog/MultiLogFile.h"

ZEBUEngineRef ZEBU_ProcessEngine()
{
    return {ZEBU2_pLogFile, ZEBU2_pMultiLogFile};
}

int ZEBUEngineRef::putMessage(const char* pszLine, unsigned long ulLength) const
{
    if (pLogFile)
        return pLogFile->putMessage(pszLine, ulLength);
    if (pMultiLogFile)
        return pMultiLogFile->putMessage(pszLine, ulLength);
    ZEBU_SetErrPosOnly(ZEBU_EPOS_NOTREADY);
    return -1;
}

int ZEBUEngineRef::bufferFlush() const
{
    if (pLogFile)
        return pLogFile->bufferFlush();
    if (pMultiLogFile)
        return pMultiLogFile->bufferFlush();
    return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
}

int ZEBUEngineRef::backupToFile(const char* pszDestination, int iOption) const
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

int ZEBUEngineRef::changeFileAttr(int iMode) const
{
    if (pLogFile)
        return fs_changeFileAttr(pLogFile, iMode);
    if (pMultiLogFile)
        return fs_changeFileAttr(pMultiLogFile, iMode);
    return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
}

void ZEBU_DiscardEngine(ZebuLogFile** ppEngine)
{
    const ZEBUErrKeep keep;
    if (*ppEngine)
        (void)(*ppEngine)->closeFile();
    delete *ppEngine;
    *ppEngine = nullptr;
}

void ZEBU_DiscardEngine(ZebuMultiLogFile** ppEngine)
{
    if (*ppEngine)
        (*ppEngine)->abandon();
    delete *ppEngine;
    *ppEngine = nullptr;
}
