// tools/Explain.cpp -- an error value of the library in words.
#include <charconv>
#include <string.h>

#include "tools/Verbs.h"
#include "ZEBULib2.h"

namespace {
struct Name
{
    int iNumber;
    const char* pszName;
    const char* pszMeaning = "";
};

constexpr Name cs_functions[] = {
    {ZEBU_FUNC_NONE, "none: a step that does not fail the call left the value"},
    {ZEBU_FUNC_SET_LOG_LEVEL, "ZEBU2_SetLogLevel"},
    {ZEBU_FUNC_SET_FILE_THRESHOLD, "ZEBU2_SetFileThreshold"},
    {ZEBU_FUNC_SET_SHM_THRESHOLD, "ZEBU2_SetShmThreshold"},
    {ZEBU_FUNC_INITIALIZE, "ZEBU2_Initialize"},
    {ZEBU_FUNC_FINALIZE, "ZEBU2_Finalize"},
    {ZEBU_FUNC_PUT_LINE, "ZEBU2_PutLine"},
    {ZEBU_FUNC_PUT_ID, "ZEBU2_PutWithId"},
    {ZEBU_FUNC_PUT_ID_EX, "ZEBU2_PutWithIdEx"},
    {ZEBU_FUNC_FILE_BUFFER_FLUSH, "ZEBU2_FileBufferFlush"},
    {ZEBU_FUNC_LOG_FILE_CLEAR, "ZEBU2_LogFileClear"},
    {ZEBU_FUNC_PUT_TO_SHM, "ZEBU2_PutToShm"},
    {ZEBU_FUNC_TRACE_BACKUP, "ZEBU2_TraceBackup"},
    {ZEBU_FUNC_SET_INSTANCE_LOG_LEVEL, "ZEBU2_SetInstanceLogLevel"},
    {ZEBU_FUNC_GET_INSTANCE_LOG_LEVEL, "ZEBU2_GetInstanceLogLevel"},
    {ZEBU_FUNC_SET_INSTANCE_FILE_THRESHOLD, "ZEBU2_SetInstanceFileThreshold"},
    {ZEBU_FUNC_SET_INSTANCE_SHM_THRESHOLD, "ZEBU2_SetInstanceShmThreshold"},
    {ZEBU_FUNC_CREATE_INSTANCE, "ZEBU2_CreateInstance"},
    {ZEBU_FUNC_DELETE_INSTANCE, "ZEBU2_DeleteInstance"},
    {ZEBU_FUNC_PUT_INSTANCE_LINE, "ZEBU2_PutInstanceLine"},
    {ZEBU_FUNC_PUT_INSTANCE_ID, "ZEBU2_PutInstanceWithId"},
    {ZEBU_FUNC_PUT_INSTANCE_ID_EX, "ZEBU2_PutInstanceWithIdEx"},
    {ZEBU_FUNC_INSTANCE_FILE_BUFFER_FLUSH, "ZEBU2_InstanceFileBufferFlush"},
    {ZEBU_FUNC_INSTANCE_TRACE_BACKUP, "ZEBU2_InstanceTraceBackup"},
    {ZEBU_FUNC_PUT_TYPE, "ZEBU2_PutWithMsgType"},
    {ZEBU_FUNC_PUT_INSTANCE_TYPE, "ZEBU2_PutInstanceWithMsgType"},
    {ZEBU_FUNC_PUT_ID_TID, "ZEBU2_PutWithIdAndTidEx"},
    {ZEBU_FUNC_PUT_TYPE_TID, "ZEBU2_PutWithMsgTypeAndTid"},
    {ZEBU_FUNC_CH_FILE_ATTR, "ZEBU2_ChFileAttr"},
    {ZEBU_FUNC_CH_INSTANCE_FILE_ATTR, "ZEBU2_ChInstanceFileAttr"},
    {ZEBU_FUNC_INITIALIZE_M, "ZEBU2_InitializeM"},
    {ZEBU_FUNC_CREATE_INSTANCE_M, "ZEBU2_CreateInstanceM"},
    {ZEBU_FUNC_GET_LOCK_WAIT_TIME, "ZEBU2_GetLockWaitTime"},
    {ZEBU_FUNC_SET_LOCK_WAIT_TIME, "ZEBU2_SetLockWaitTime"},
    {ZEBU_FUNC_GET_LOCK_RETRY_TIMES, "ZEBU2_GetLockRetryTimes"},
    {ZEBU_FUNC_SET_LOCK_RETRY_TIMES, "ZEBU2_SetLockRetryTimes"},
    {ZEBU_FUNC_GET_INSTANCE_LOCK_WAIT_TIME, "ZEBU2_GetInstanceLockWaitTime"},
    {ZEBU_FUNC_SET_INSTANCE_LOCK_WAIT_TIME, "ZEBU2_SetInstanceLockWaitTime"},
    {ZEBU_FUNC_GET_INSTANCE_LOCK_RETRY_TIMES, "ZEBU2_GetInstanceLockRetryTimes"},
    {ZEBU_FUNC_SET_INSTANCE_LOCK_RETRY_TIMES, "ZEBU2_SetInstanceLockRetryTimes"},
    {ZEBU_FUNC_TRACE_BACKUP_M, "ZEBU2_TraceBackupM"},
    {ZEBU_FUNC_INSTANCE_TRACE_BACKUP_M, "ZEBU2_InstanceTraceBackupM"},
};

constexpr Name cs_failures[] = {
    {ZEBU_EPOS_NONE, "NONE", "no failure"},
    {ZEBU_EPOS_PARAM, "PARAM", "invalid argument, or a trace file path that cannot be used"},
    {ZEBU_EPOS_OPEN, "OPEN", "a trace, management, backup or area file cannot be opened"},
    {ZEBU_EPOS_CLOSE, "CLOSE", "closing a file failed"},
    {ZEBU_EPOS_WRITE, "WRITE", "a write failed or was short"},
    {ZEBU_EPOS_READ, "READ", "the header of the trace area cannot be read"},
    {ZEBU_EPOS_MMAP, "MMAP", "a file cannot be mapped, or the area's path is a symbolic link"},
    {ZEBU_EPOS_UNLINK, "UNLINK", "an old trace file cannot be removed"},
    {ZEBU_EPOS_NOMEM, "NOMEM", "out of memory"},
    {ZEBU_EPOS_NOTREADY, "NOTREADY", "not initialised, nothing open, or not a live instance"},
    {ZEBU_EPOS_FLUSH, "FLUSH", "flushing written data failed"},
    {ZEBU_EPOS_OPENDIR, "OPENDIR", "the trace directory cannot be read"},
    {ZEBU_EPOS_LSEEK, "LSEEK", "a seek failed"},
    {ZEBU_EPOS_NOCONTEXT, "NOCONTEXT", "the thread has made no call that could fail"},
    {ZEBU_EPOS_NOTDIR, "NOTDIR", "a directory of the path exists but is not a directory"},
    {ZEBU_EPOS_STAT, "STAT", "a file cannot be examined"},
    {ZEBU_EPOS_MKDIR, "MKDIR", "a missing directory cannot be made"},
    {ZEBU_EPOS_LOCK, "LOCK", "the file is locked by another process"},
    {ZEBU_EPOS_MUNMAP, "MUNMAP", "a mapping cannot be removed"},
    {ZEBU_EPOS_AREA, "AREA", "the header of the trace area is damaged"},
    {ZEBU_EPOS_CHMOD, "CHMOD", "the mode of a trace or management file cannot be changed"},
    {ZEBU_EPOS_NOTMULTI, "NOTMULTI", "a lock parameter was asked of a ring that is not shared"},
    {ZEBU_EPOS_MISMATCH, "MISMATCH", "the files of a shared ring do not match its management file"},
};

template <size_t N>
const Name* fs_find(const Name (&names)[N], int iNumber)
{
    for (const Name& name : names)
        if (name.iNumber == iNumber)
            return &name;
    return nullptr;
}

unsigned fs_number(const std::string& strText)
{
    const bool bHex = strText.starts_with("0x") || strText.starts_with("0X");
    const char* pszEnd = strText.c_str() + strText.size();
    unsigned uValue = 0;
    const auto result = std::from_chars(strText.c_str() + (bHex ? 2 : 0), pszEnd, uValue, bHex ? 16 : 10);
    if (result.ec != std::errc() || result.ptr != pszEnd)
        throw ZEBUFailure{"\"" + strText + "\" is no number"};
    return uValue;
}
} // namespace

std::string ZEBU_ExplainedError(unsigned uValue, int iCode)
{
    const Name* pFunction = fs_find(cs_functions, ZEBU2_ERROR_FUNCTION(uValue));
    const Name* pFailure = fs_find(cs_failures, ZEBU2_ERROR_FAILURE(uValue));
    std::string strText = pFunction ? pFunction->pszName : "unknown function";
    strText += ": ";
    strText += pFailure ? pFailure->pszMeaning : "unknown failure";
    if (iCode != 0)
        strText += std::string(" (") + strerror(iCode) + ")";
    return strText;
}

int ZEBU_Explain(const ZEBUExplainOptions& options)
{
    const unsigned uValue = fs_number(options.strValue);
    const int iFunction = ZEBU2_ERROR_FUNCTION(uValue);
    const int iFailure = ZEBU2_ERROR_FAILURE(uValue);
    const Name* pFunction = fs_find(cs_functions, iFunction);
    const Name* pFailure = fs_find(cs_failures, iFailure);
    std::string strText = "function  " + std::to_string(iFunction) + "  ";
    strText += pFunction ? pFunction->pszName : "unknown";
    strText += "\nfailure   " + std::to_string(iFailure) + "  ";
    strText +=
        pFailure ? std::string("ZEBU_EPOS_") + pFailure->pszName + ": " + pFailure->pszMeaning : "unknown";
    if (!options.strCode.empty()) {
        const auto iCode = static_cast<int>(fs_number(options.strCode));
        strText += "\ncode      " + std::to_string(iCode) + "  " + strerror(iCode);
    }
    ZEBU_WriteFully(1, strText + "\n", "standard output");
    return pFunction && pFailure ? ZEBU_EXIT_OK : ZEBU_EXIT_NOTHING;
}
