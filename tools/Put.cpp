// tools/Put.cpp -- writes lines through the library, as an application does.
#include <algorithm>
#include <iostream>
#include <string>

#include "tools/reader/Management.h"
#include "tools/reader/Source.h"
#include "tools/Verbs.h"
#include "ZEBULib2.h"

namespace {
std::string fs_lastError()
{
    int iCode = 0;
    const auto uValue = static_cast<unsigned>(ZEBU2_GetLastError(&iCode));
    return ZEBU_ExplainedError(uValue, iCode);
}

void fs_check(int iResult)
{
    if (iResult != 0)
        throw ZEBUFailure{fs_lastError()};
}

// Whether the files of a ring are those of a shared one, which all hold a mark, also without their management
// file.
bool fs_isShared(const std::string& strRing)
{
    const std::vector<unsigned> numbers = ZEBU_ExistingTraceFiles(strRing);
    return ZEBU_SourceKind(strRing) == ZEBUSourceKind::SharedRing ||
           std::any_of(numbers.begin(), numbers.end(),
                       [&](unsigned u) { return ZEBU_HasMark(ZEBU_RingFileName(strRing, u)); });
}

// The ring as it is to be opened. Opened as the other kind, a ring that exists would lose lines. One that is
// shared knows its own size and number of files.
tagZEBU_LOGFILE_SPEC fs_spec(const ZEBUPutOptions& options)
{
    tagZEBU_LOGFILE_SPEC spec = {
        .lMaxFileSize = options.lSize, .lFileCount = options.lFiles, .pszFilePath = options.strRing.c_str()};
    ZEBUManagement management;
    ZEBURingRecord record;
    const bool bExists = ZEBU_SourceKind(options.strRing) != ZEBUSourceKind::Plain;
    if (bExists && fs_isShared(options.strRing) != options.bShared)
        throw ZEBUFailure{options.strRing + (options.bShared
                                                 ? " is the ring of one process: leave --shared out"
                                                 : " is a shared ring: give --shared")};
    if (options.bShared && management.open(options.strRing) == 0 && management.load(&record)) {
        spec.lMaxFileSize = options.lSize > 0 ? options.lSize : record.uFileSize;
        spec.lFileCount = options.lFiles > 0 ? options.lFiles : record.uFileNum;
    }
    if (spec.lMaxFileSize == 0 || spec.lFileCount == 0)
        throw ZEBUFailure{options.strRing +
                          ": --size and --files are needed, but for a shared ring that exists"};
    return spec;
}

// Result 1 without a ring means that the area alone is open, 2 and 3 are warnings about a ring that is.
void fs_start(const ZEBUPutOptions& options)
{
    const char* pszApp = options.strApp.empty() ? "zebu2" : options.strApp.c_str();
    int iResult;
    if (options.bAreaOnly) {
        iResult = ZEBU2_Initialize(nullptr, pszApp) == 1 ? 0 : -1;
    } else {
        const tagZEBU_LOGFILE_SPEC spec = fs_spec(options);
        iResult = options.bShared ? ZEBU2_InitializeM(&spec, pszApp, 0) : ZEBU2_Initialize(&spec, pszApp);
    }
    if (iResult == 2)
        ZEBU_Say("the trace area is not open: " + fs_lastError());
    if (iResult == 3)
        ZEBU_Say(options.strRing +
                 ": the management file was missing and was made anew from the trace files");
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
