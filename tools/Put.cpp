// tools/Put.cpp -- writes lines through the library, as an application does.
#include <iostream>
#include <string>

#include "tools/Verbs.h"
#include "ZEBULib2.h"

namespace {
void fs_check(int iResult)
{
    int iCode = 0;
    const auto uValue = static_cast<unsigned>(ZEBU2_GetLastError(&iCode));
    if (iResult != 0)
        throw ZEBUFailure{ZEBU_ExplainedError(uValue, iCode)};
}

// Result 1 without a ring means that the area alone is open, 2 and 3 are warnings about a ring that is.
void fs_start(const ZEBUPutOptions& options)
{
    const tagZEBU_LOGFILE_SPEC ring = {
        .lMaxFileSize = options.lSize, .lFileCount = options.lFiles, .pszFilePath = options.strRing.c_str()};
    const char* pszApp = options.strApp.empty() ? "zebu2" : options.strApp.c_str();
    int iResult;
    if (options.bAreaOnly)
        iResult = ZEBU2_Initialize(nullptr, pszApp) == 1 ? 0 : -1;
    else if (options.bShared)
        iResult = ZEBU2_InitializeM(&ring, pszApp, 0);
    else
        iResult = ZEBU2_Initialize(&ring, pszApp);
    fs_check(iResult == 2 || iResult == 3 ? 0 : iResult);
    ZEBU2_SetLogLevel(ZEBU2_LEVEL_MAX);
    ZEBU2_SetShmThreshold(ZEBU2_LEVEL_MAX);
    ZEBU2_SetFileThreshold(options.bAreaOnly ? ZEBU2_LEVEL_OFF : ZEBU2_LEVEL_MIN);
}

void fs_put(const ZEBUPutOptions& options, const std::string& strText)
{
    const char* pszApp = options.strApp.empty() ? "zebu2" : options.strApp.c_str();
    int iResult;
    if (!options.strType.empty())
        iResult = ZEBU2_PutWithMsgType(options.iLevel, pszApp, options.strId.c_str(), options.strType.c_str(),
                                       strText.c_str());
    else if (!options.strId.empty())
        iResult = ZEBU2_PutWithId(options.iLevel, options.strId.c_str(), strText.c_str());
    else
        iResult = ZEBU2_PutLine(options.iLevel, strText.c_str());
    fs_check(iResult);
}
} // namespace

int ZEBU_Put(const ZEBUPutOptions& options)
{
    fs_start(options);
    if (options.strText != "-") {
        fs_put(options, options.strText);
    } else {
        std::string strLine;
        while (std::getline(std::cin, strLine)) {
            if (strLine.ends_with('\r'))
                strLine.pop_back();
            fs_put(options, strLine);
        }
    }
    fs_check(ZEBU2_Finalize());
    return ZEBU_EXIT_OK;
}
