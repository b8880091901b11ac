// frame/GrobalVarUnix.cpp -- the process-wide state, the process mutex, the version text.
#include "frame/GrobalVarUnix.h"

#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include "frame/Engine.h"
#include "frame/ErrPos.h"
#include "frame/TLS.h"
#include "logfile/LogFile.h"
#include "mmap/MMap.h"
#include "multilog/MultiLogFile.h"
#include "output/ltostr.h"
#include "ZEBULib2.h"

constexpr char ZEBU2_version_string[] =
    "$Version: Kelvora Dacy Trace Library 2. 03-16.     Last Update: May 18 2007 $";

constinit std::atomic<int> ZEBU2_iIsInitialized{0};
constinit std::atomic<ZEBUMMapFile*> ZEBU2_pMMap{nullptr};
ZebuLogFile* ZEBU2_pLogFile;
ZebuMultiLogFile* ZEBU2_pMultiLogFile;
bool ZEBU2_bHoldsMMap;
constinit tagZEBU_THRESHOLD ZEBU2_Threshold = {"ID_ZEBU", {0}, {0}, {0}};
constinit std::atomic<int> ZEBU2_LockValue[ZEBU_LOCK_VALUES] = {{1}, {20}, {1}, {20}};
constinit std::atomic<int> ZEBU2_iTickType{0};
constinit std::atomic<int> ZEBU2_iMsgCount{0};
alignas(ZEBUTextWord) char ZEBU2_szAppName[ZEBU_APP_NAME + 1];
alignas(ZEBUTextWord) char ZEBU2_szProcessId[ZEBU_PROCESS_ID + 1];

static int cs_iInitCallCount;
static pthread_mutex_t cs_mutex = PTHREAD_MUTEX_INITIALIZER;

void ZEBU_MtLock()
{
    pthread_mutex_lock(&cs_mutex);
}

void ZEBU_MtUnlock()
{
    pthread_mutex_unlock(&cs_mutex);
}

static void fs_storeWords(char* pShared, const char* pText, int iWords)
{
    for (int i = 0; i < iWords; ++i, pShared += sizeof(ZEBUTextWord), pText += sizeof(ZEBUTextWord)) {
        ZEBUTextWord uWord;
        memcpy(&uWord, pText, sizeof uWord);
        __atomic_store_n(reinterpret_cast<ZEBUTextWord*>(pShared), uWord, __ATOMIC_RELAXED);
    }
}

void ZEBU_LoadAppName(char* pszName)
{
    ZEBU_PutAppName(pszName);
    pszName[ZEBU_APP_NAME] = '\0';
}

void ZEBU_LoadProcessId(char* pszId)
{
    ZEBU_PutProcessId(pszId);
    pszId[ZEBU_PROCESS_ID] = '\0';
}

void ZEBU_PadAppName(char* pszPadded, const char* pszName)
{
    ZEBU_PutField(pszPadded, pszName, ZEBU_APP_NAME);
    pszPadded[ZEBU_APP_NAME] = '\0';
}

void ZEBU_StoreAppName(const char* pszName)
{
    char szPadded[ZEBU_APP_NAME + 1];
    ZEBU_PadAppName(szPadded, pszName);
    fs_storeWords(ZEBU2_szAppName, szPadded, 2);
}

static void fs_storeProcessId()
{
    char szDigits[8];
    ZEBU_PutHex8(szDigits, static_cast<unsigned int>(getpid()));
    fs_storeWords(ZEBU2_szProcessId, szDigits, 1);
    __atomic_store_n(&ZEBU2_szProcessId[8], ' ', __ATOMIC_RELAXED);
}

void ZEBU_InitializeGrobalVar()
{
    if (cs_iInitCallCount == 0) {
        ZEBU_StoreAppName(nullptr);
        ZEBU_InitializeTlsIndex();
    }
    fs_storeProcessId();
    ++cs_iInitCallCount;
}

void ZEBU_UninitializeGrobalVar()
{
    if (--cs_iInitCallCount != 0)
        return;
    ZEBU_DiscardEngine(&ZEBU2_pLogFile);
    ZEBU_DiscardEngine(&ZEBU2_pMultiLogFile);
    const ZEBUErrKeep keep;
    delete ZEBU2_pMMap.exchange(nullptr);
}
