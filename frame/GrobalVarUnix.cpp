// frame/GrobalVarUnix.cpp -- the process-wide state, the process mutex, the version text.
#include "frame/GrobalVarUnix.h"

#include <string.h>
#include <unistd.h>

#include "output/ltostr.h"
#include "ZEBULib2.h"

constexpr char ZEBU2_version_string[] =
    "$Version: Kelvora Dacy Trace Library 2. 03-16.     Last Update: May 18 2007 $";

constinit ZEBUForkMutex cs_mutex;
constinit std::atomic<int> ZEBU2_iIsInitialized{0};
constinit std::atomic<ZEBUMMapFile*> ZEBU2_pMMap{nullptr};
constinit tagZEBU_THRESHOLD ZEBU2_Threshold = {"ID_ZEBU", {0}, {0}, {0}};
constinit std::atomic<int> ZEBU2_LockValue[ZEBU_LOCK_VALUES] = {{1}, {20}, {1}, {20}};
constinit std::atomic<int> ZEBU2_iTickType{0};
constinit std::atomic<int> ZEBU2_iMsgCount{0};
constinit std::atomic<unsigned int> ZEBU_uForkGeneration{0};
alignas(ZEBUWord) char ZEBU2_szAppName[ZEBU_APP_NAME + 1];
alignas(ZEBUWord) char ZEBU2_szProcessId[ZEBU_PROCESS_ID + 1];

static void fs_storeWords(char* pShared, const char* pText, int iWords)
{
    for (int i = 0; i < iWords; ++i, pShared += sizeof(ZEBUWord), pText += sizeof(ZEBUWord)) {
        ZEBUWord uWord;
        memcpy(&uWord, pText, sizeof uWord);
        __atomic_store_n(reinterpret_cast<ZEBUWord*>(pShared), uWord, __ATOMIC_RELAXED);
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

void ZEBU_StoreProcessId()
{
    char szDigits[8];
    ZEBU_PutHex8(szDigits, static_cast<unsigned int>(getpid()));
    fs_storeWords(ZEBU2_szProcessId, szDigits, 1);
    __atomic_store_n(&ZEBU2_szProcessId[8], ' ', __ATOMIC_RELAXED);
}
