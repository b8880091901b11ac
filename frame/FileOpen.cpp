// frame/FileOpen.cpp -- starting the process log.
#include "frame/FileOpen.h"

#include <stddef.h>
#include <string.h>

#include "frame/GrobalVarUnix.h"
#include "frame/Guards.h"
#include "frame/ProcessObjects.h"
#include "mmap/MMap.h"

// What applications were compiled with.
static_assert(sizeof(tagZEBU_LOGFILE_SPEC) == 24);
static_assert(offsetof(tagZEBU_LOGFILE_SPEC, lMaxFileSize) == 0);
static_assert(offsetof(tagZEBU_LOGFILE_SPEC, lFileCount) == 8);
static_assert(offsetof(tagZEBU_LOGFILE_SPEC, pszFilePath) == 16);

// ---- Steps shared with trace instances -----------------------------------------------------------

ZEBUCheck ZEBU_CheckArgument(const tagZEBU_LOGFILE_SPEC* pSpec, int iOption, ZEBURingKind eKind)
{
    const bool bShared = eKind == ZEBU_RING_SHARED;
    if (bShared && static_cast<unsigned int>(iOption) > 63)
        return ZEBU_CHECK_INVALID;
    if (!pSpec)
        return ZEBU_CHECK_NO_RING;
    const long lSizeMax = bShared ? ZEBU2_FILE_SIZE_MAX_SHARED : ZEBU2_FILE_SIZE_MAX;
    const long lCountMax = bShared ? ZEBU2_FILE_COUNT_MAX_SHARED : ZEBU2_FILE_COUNT_MAX;
    const size_t uPathMax = bShared ? ZEBU2_FILE_PATH_MAX_SHARED : ZEBU2_FILE_PATH_MAX;
    const bool bValid = pSpec->lMaxFileSize >= ZEBU2_FILE_SIZE_MIN && pSpec->lMaxFileSize <= lSizeMax &&
                        pSpec->lFileCount >= 1 && pSpec->lFileCount <= lCountMax && pSpec->pszFilePath &&
                        strlen(pSpec->pszFilePath) <= uPathMax;
    return bValid ? ZEBU_CHECK_VALID : ZEBU_CHECK_INVALID;
}

int ZEBU_InitializeLogFile(ZEBUEngine* pEngine, ZEBURingKind eKind, const tagZEBU_LOGFILE_SPEC* pSpec,
                           const tagZEBU_SHARED_START& shared)
{
    if (ZEBU_CheckArgument(pSpec, shared.iOption, eKind) == ZEBU_CHECK_INVALID) {
        ZEBU_SetErrPosOnly(ZEBU_EPOS_PARAM);
        return 1;
    }
    return pEngine->start(eKind, pSpec, shared);
}

// The area is reachable once it is open: puts look at it without the mutex.
static int ZEBU_InitializeMMapFile()
{
    auto* pMMap = new ZEBUMMapFile;
    if (!pMMap)
        return -1;
    const int iResult = pMMap->openFile();
    if (iResult != 0) {
        const ZEBUErrKeep keep;
        delete pMMap;
        return iResult;
    }
    ZEBU2_pMMap = pMMap;
    return 0;
}

int ZEBU_AttachMMap(bool* pbHolds)
{
    const int iResult = ZEBU2_pMMap ? 0 : ZEBU_InitializeMMapFile();
    *pbHolds = iResult == 0;
    if (*pbHolds)
        ZEBU2_pMMap.load()->addRef();
    return iResult;
}

int ZEBU_CombineResults(int iFiles, int iArea, const ZEBUErrScope& err)
{
    if (iArea == 0)
        return iFiles;
    if (iFiles == 0) // the area's failure keeps function number 0
        return 2;
    err.mark();
    return iFiles == 3 ? 2 : -1;
}

// ---- The process log -----------------------------------------------------------------------------

static void fs_giveUp()
{
    ZEBU2_Engine.discard();
    ZEBU_UninitializeGrobalVar();
}

static int ZEBU2_SubInitialize(const tagZEBU_LOGFILE_SPEC* pSpec, const char* pszAppName, int iOption,
                               ZEBURingKind eKind)
{
    const ZEBUErrScope err(eKind == ZEBU_RING_SINGLE ? ZEBU_FUNC_INITIALIZE : ZEBU_FUNC_INITIALIZE_M);
    if (!err.context())
        return -1;
    const ZEBUMutexGuard lock;
    if (ZEBU2_iIsInitialized)
        return err.fail(ZEBU_EPOS_NOTREADY);
    ZEBU_InitializeGrobalVar();
    ZEBU_StoreAppName(pszAppName);

    // An engine that survived a failed finalise, because instances kept the process-wide objects, goes on.
    int iFiles = 0;
    if (!ZEBU2_Engine.isA(eKind))
        iFiles = err.finish(
            ZEBU_InitializeLogFile(&ZEBU2_Engine, eKind, pSpec, {iOption, nullptr, ZEBU_LOCK_WAIT}));
    const int iResult = ZEBU_CombineResults(iFiles, ZEBU_AttachMMap(&ZEBU2_bHoldsMMap), err);
    if (iResult == -1)
        fs_giveUp();
    else
        ZEBU2_iIsInitialized = 1;
    return iResult;
}

int ZEBU2_Initialize(const tagZEBU_LOGFILE_SPEC* pSpec, const char* pszAppName)
{
    return ZEBU2_SubInitialize(pSpec, pszAppName, 0, ZEBU_RING_SINGLE);
}

int ZEBU2_InitializeM(const tagZEBU_LOGFILE_SPEC* pSpec, const char* pszAppName, int iOption)
{
    return ZEBU2_SubInitialize(pSpec, pszAppName, iOption, ZEBU_RING_SHARED);
}
