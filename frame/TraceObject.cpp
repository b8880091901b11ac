// frame/TraceObject.cpp -- trace instances: the class, create and delete.
#include "frame/TraceObject.h"

#include <stdlib.h>
#include <string.h>

#include "frame/FileClose.h"
#include "frame/FileOpen.h"
#include "frame/LiveHandles.h"
#include "frame/ProcessObjects.h"

// ---- The class -----------------------------------------------------------------------------------

ZEBUTraceObject::ZEBUTraceObject(const tagZEBU_LOGFILE_SPEC*, const char* pszName)
    : iLogLevel(0), iFileThreshold(0), iShmThreshold(0), bHoldsMMap(false), bCountedOff(false)
{
    memcpy(szTag, "LIVE", sizeof szTag);
    setAppName(pszName);
}

ZEBUTraceObject::~ZEBUTraceObject()
{
    for (size_t i = 0; i < sizeof szTag; ++i) // volatile: stores into a dying object are dropped otherwise
        const_cast<volatile char*>(szTag)[i] = "DEAD"[i];
    engine.discard();
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

int ZEBU_CheckInstance(const ZEBUTraceObject* hInstance)
{
    return ZEBU_IsLiveHandle(hInstance) ? hInstance->isInvalid() : -1;
}

// ---- Creating ------------------------------------------------------------------------------------

static int fs_createInstance(ZEBU2_HINSTANCE* phInstance, const tagZEBU_LOGFILE_SPEC* pSpec,
                             const char* pszAppName, int iOption, ZEBURingKind eKind)
{
    const ZEBUErrScope err(eKind == ZEBU_RING_SINGLE ? ZEBU_FUNC_CREATE_INSTANCE
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
    const int iFiles = err.finish(ZEBU_InitializeLogFile(
        &pInstance->engine, eKind, pSpec, {iOption, pInstance->szAppName, ZEBU_LOCK_INSTANCE_WAIT}));
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
    return fs_createInstance(phInstance, pSpec, pszAppName, 0, ZEBU_RING_SINGLE);
}

int ZEBU2_CreateInstanceM(ZEBU2_HINSTANCE* phInstance, const tagZEBU_LOGFILE_SPEC* pSpec,
                          const char* pszAppName, int iOption)
{
    return fs_createInstance(phInstance, pSpec, pszAppName, iOption, ZEBU_RING_SHARED);
}

// ---- Deleting ------------------------------------------------------------------------------------

int ZEBU2_DeleteInstance(ZEBU2_HINSTANCE hInstance)
{
    const ZEBUErrScope err(ZEBU_FUNC_DELETE_INSTANCE);
    const ZEBULiveInstance instance(hInstance, err);
    if (!instance)
        return -1;

    const int iResult = instance->engine.close(err);
    const bool bCountOff = !instance->bCountedOff; // not once more when a failed deletion is tried again
    instance->bCountedOff = true;
    const int iArea = ZEBU_ReleaseMMap(&instance->bHoldsMMap, err);
    if (iResult == 0) {
        ZEBU_RemoveLiveHandle(hInstance);
        delete hInstance;
    }
    if (bCountOff)
        ZEBU_UninitializeGrobalVar();
    return iResult != 0 ? iResult : iArea;
}
