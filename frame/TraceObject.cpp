// frame/TraceObject.cpp -- trace instances: the class, create and delete.
#include "frame/TraceObject.h"

#include <stdlib.h>
#include <string.h>

#include "frame/FileClose.h"
#include "frame/Guards.h"
#include "frame/LiveHandles.h"
#include "logfile/LogFile.h"
#include "multilog/MultiLogFile.h"

// ---- The class -----------------------------------------------------------------------------------

ZEBUTraceObject::ZEBUTraceObject(const tagZEBU_LOGFILE_SPEC*, const char* pszName)
    : pLogFile(nullptr), pMultiLogFile(nullptr), iLogLevel(0), iFileThreshold(0), iShmThreshold(0),
      bHoldsMMap(false), bCountedOff(false)
{
    memcpy(szTag, "LIVE", sizeof szTag);
    setAppName(pszName);
}

ZEBUTraceObject::~ZEBUTraceObject()
{
    for (size_t i = 0; i < sizeof szTag; ++i) // volatile: stores into a dying object are dropped otherwise
        const_cast<volatile char*>(szTag)[i] = "DEAD"[i];
    deleteLogFileObject();
}

void* ZEBUTraceObject::operator new(size_t uSize) noexcept
{
    return ZEBU_AllocateObject(uSize);
}

void ZEBUTraceObject::operator delete(void* p) noexcept
{
    free(p);
}

int ZEBUTraceObject::isInvalid() const
{
    return memcmp(szTag, "LIVE", sizeof szTag) == 0 ? 0 : -1;
}

int ZEBUTraceObject::createLogFileObject(const tagZEBU_LOGFILE_SPEC* pSpec, int iOption, ZEBUMode eMode)
{
    if (eMode == ZEBU_MODE_SINGLE)
        return ZEBU_StartSingle(&pLogFile, pSpec);
    return ZEBU_StartShared(&pMultiLogFile, pSpec, iOption, szAppName, ZEBU_LOCK_INSTANCE_WAIT);
}

int ZEBUTraceObject::closeLogFileObject()
{
    if (pLogFile)
        return pLogFile->closeFile();
    return pMultiLogFile ? pMultiLogFile->closeFile() : 0;
}

void ZEBUTraceObject::deleteLogFileObject()
{
    ZEBU_DiscardEngine(&pLogFile);
    ZEBU_DiscardEngine(&pMultiLogFile);
}

int ZEBU_CheckInstance(const ZEBUTraceObject* hInstance)
{
    return ZEBU_IsLiveHandle(hInstance) ? hInstance->isInvalid() : -1;
}

// ---- Creating ------------------------------------------------------------------------------------

// The files of a new instance. Returns 0, 1 or 3 with the failure marked.
static int fs_openFiles(ZEBUTraceObject* pInstance, const tagZEBU_LOGFILE_SPEC* pSpec, int iOption,
                        ZEBUMode eMode, const ZEBUErrScope& err)
{
    if (ZEBU_CheckArgument(pSpec, iOption, eMode) == ZEBU_CHECK_INVALID) {
        (void)err.fail(ZEBU_EPOS_PARAM);
        return 1;
    }
    return err.finish(pInstance->createLogFileObject(pSpec, iOption, eMode));
}

static int fs_createInstance(ZEBU2_HINSTANCE* phInstance, const tagZEBU_LOGFILE_SPEC* pSpec,
                             const char* pszAppName, int iOption, ZEBUMode eMode)
{
    const ZEBUErrScope err(eMode == ZEBU_MODE_SINGLE ? ZEBU_FUNC_CREATE_INSTANCE
                                                     : ZEBU_FUNC_CREATE_INSTANCE_M);
    if (!phInstance)
        return err.fail(ZEBU_EPOS_PARAM);
    *phInstance = nullptr;
    if (!err.context())
        return -1;
    auto* pInstance = new ZEBUTraceObject(pSpec, pszAppName);
    if (!pInstance)
        return err.finish(-1);

    const ZEBUMutexGuard lock;
    if (!ZEBU_AddLiveHandle(pInstance)) {
        delete pInstance;
        return err.finish(-1);
    }
    ZEBU_InitializeGrobalVar();
    const int iFiles = fs_openFiles(pInstance, pSpec, iOption, eMode, err);
    const int iResult = ZEBU_CombineResults(iFiles, ZEBU_AttachMMap(&pInstance->bHoldsMMap), err);
    if (iResult == -1) {
        ZEBU_RemoveLiveHandle(pInstance);
        delete pInstance;
        ZEBU_UninitializeGrobalVar();
        return -1;
    }
    *phInstance = pInstance;
    return iResult;
}

int ZEBU2_CreateInstance(ZEBU2_HINSTANCE* phInstance, const tagZEBU_LOGFILE_SPEC* pSpec,
                         const char* pszAppName)
{
    return fs_createInstance(phInstance, pSpec, pszAppName, 0, ZEBU_MODE_SINGLE);
}

int ZEBU2_CreateInstanceM(ZEBU2_HINSTANCE* phInstance, const tagZEBU_LOGFILE_SPEC* pSpec,
                          const char* pszAppName, int iOption)
{
    return fs_createInstance(phInstance, pSpec, pszAppName, iOption, ZEBU_MODE_SHARED);
}

// ---- Deleting ------------------------------------------------------------------------------------

int ZEBU2_DeleteInstance(ZEBU2_HINSTANCE hInstance)
{
    const ZEBUErrScope err(ZEBU_FUNC_DELETE_INSTANCE);
    if (!hInstance)
        return err.fail(ZEBU_EPOS_PARAM);
    const ZEBUMutexGuard lock;
    if (ZEBU_CheckInstance(hInstance) != 0)
        return err.fail(ZEBU_EPOS_NOTREADY);

    const int iResult = err.finish(hInstance->closeLogFileObject());
    const bool bCountOff = !hInstance->bCountedOff; // not once more when a failed deletion is tried again
    hInstance->bCountedOff = true;
    const int iArea = ZEBU_ReleaseMMap(&hInstance->bHoldsMMap, err);
    if (iResult == 0) {
        ZEBU_RemoveLiveHandle(hInstance);
        delete hInstance;
    }
    if (bCountOff)
        ZEBU_UninitializeGrobalVar();
    return iResult != 0 ? iResult : iArea;
}
