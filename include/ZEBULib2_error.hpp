// ZEBULib2_error.hpp -- the failures of the library in words; a part of ZEBULib2.hpp, for C++17.
#ifndef ZEBULIB2_ERROR_HPP
#define ZEBULIB2_ERROR_HPP

#include <cstdio>
#include <cstring>
#include <string_view>

#include "ZEBULib2.h"

namespace zebu2 {

// A text in a place of its own.
struct error_text
{
    char buffer[256];
    const char* c_str() const noexcept { return buffer; }
    operator std::string_view() const noexcept { return buffer; }
};

namespace detail {

// The failures by name, also for programs that explain a value to somebody.
struct failure_entry
{
    int number;
    const char* name;
    const char* text;
};
inline constexpr failure_entry failures[] = {
    {ZEBU_EPOS_NONE, "ZEBU_EPOS_NONE", "no failure"},
    {ZEBU_EPOS_PARAM, "ZEBU_EPOS_PARAM", "invalid argument, or a trace file path that cannot be used"},
    {ZEBU_EPOS_OPEN, "ZEBU_EPOS_OPEN", "a trace, management, backup or area file cannot be opened"},
    {ZEBU_EPOS_CLOSE, "ZEBU_EPOS_CLOSE", "closing a file failed"},
    {ZEBU_EPOS_WRITE, "ZEBU_EPOS_WRITE", "a write failed or was short"},
    {ZEBU_EPOS_READ, "ZEBU_EPOS_READ", "the header of the trace area cannot be read"},
    {ZEBU_EPOS_MMAP, "ZEBU_EPOS_MMAP", "a file cannot be mapped, or the area's path is a symbolic link"},
    {ZEBU_EPOS_UNLINK, "ZEBU_EPOS_UNLINK", "an old trace file cannot be removed"},
    {ZEBU_EPOS_NOMEM, "ZEBU_EPOS_NOMEM", "out of memory"},
    {ZEBU_EPOS_NOTREADY, "ZEBU_EPOS_NOTREADY",
     "not initialised or already so, nothing open, or not a live instance"},
    {ZEBU_EPOS_FLUSH, "ZEBU_EPOS_FLUSH", "flushing written data failed"},
    {ZEBU_EPOS_OPENDIR, "ZEBU_EPOS_OPENDIR", "the trace directory cannot be read"},
    {ZEBU_EPOS_LSEEK, "ZEBU_EPOS_LSEEK", "a seek failed"},
    {ZEBU_EPOS_NOCONTEXT, "ZEBU_EPOS_NOCONTEXT", "the thread can have no error value"},
    {ZEBU_EPOS_NOTDIR, "ZEBU_EPOS_NOTDIR", "a directory of the path exists but is not a directory"},
    {ZEBU_EPOS_STAT, "ZEBU_EPOS_STAT", "a file cannot be examined"},
    {ZEBU_EPOS_MKDIR, "ZEBU_EPOS_MKDIR", "a missing directory cannot be made"},
    {ZEBU_EPOS_LOCK, "ZEBU_EPOS_LOCK", "the file is locked by another process"},
    {ZEBU_EPOS_MUNMAP, "ZEBU_EPOS_MUNMAP", "a mapping cannot be removed"},
    {ZEBU_EPOS_AREA, "ZEBU_EPOS_AREA", "the header of the trace area is damaged"},
    {ZEBU_EPOS_CHMOD, "ZEBU_EPOS_CHMOD", "the mode of a trace or management file cannot be changed"},
    {ZEBU_EPOS_NOTMULTI, "ZEBU_EPOS_NOTMULTI", "a lock parameter was asked of a ring that is not shared"},
    {ZEBU_EPOS_MISMATCH, "ZEBU_EPOS_MISMATCH", "the files of a shared ring do not match its management file"},
};

inline const failure_entry* find_failure(int failure) noexcept
{
    for (const failure_entry& entry : failures)
        if (entry.number == failure)
            return &entry;
    return nullptr;
}

inline const char* failure_text(int failure) noexcept
{
    const failure_entry* entry = find_failure(failure);
    return entry ? entry->text : "unknown failure";
}

// The function behind its prefix ZEBU2_, null for 0 and unknown numbers.
inline const char* function_name(int function) noexcept
{
    // clang-format off
    static constexpr const char* names[] = {
        nullptr, nullptr, "SetLogLevel", nullptr, "SetFileThreshold", "SetShmThreshold", "Initialize",
        "Finalize", "PutLine", "PutWithId", "PutWithIdEx", "FileBufferFlush", "LogFileClear", "PutToShm",
        "TraceBackup", "SetInstanceLogLevel", "GetInstanceLogLevel", "SetInstanceFileThreshold",
        "SetInstanceShmThreshold", "CreateInstance", "DeleteInstance", "PutInstanceLine", "PutInstanceWithId",
        "PutInstanceWithIdEx", "InstanceFileBufferFlush", "InstanceTraceBackup", nullptr, nullptr, nullptr,
        nullptr, nullptr, nullptr, "PutWithMsgType", "PutInstanceWithMsgType", nullptr, "PutWithIdAndTidEx",
        "PutWithMsgTypeAndTid", "ChFileAttr", "ChInstanceFileAttr", "InitializeM", "CreateInstanceM",
        "GetLockWaitTime", "SetLockWaitTime", "GetLockRetryTimes", "SetLockRetryTimes",
        "GetInstanceLockWaitTime", "SetInstanceLockWaitTime", "GetInstanceLockRetryTimes",
        "SetInstanceLockRetryTimes", "TraceBackupM", "InstanceTraceBackupM",
    };
    // clang-format on
    static_assert(sizeof names / sizeof *names == ZEBU_FUNC_INSTANCE_TRACE_BACKUP_M + 1);
    return function >= 0 && function <= ZEBU_FUNC_INSTANCE_TRACE_BACKUP_M ? names[function] : nullptr;
}

// strerror_r comes in two kinds.
inline const char* strerror_result(int, const char* buffer) noexcept
{
    return buffer;
}
inline const char* strerror_result(const char* text, const char*) noexcept
{
    return text;
}

} // namespace detail

// What ZEBU2_GetLastError gives.
struct error_info
{
    int value = 0; // function and failure number
    int code = 0;  // errno, or 0

    int function() const noexcept { return ZEBU2_ERROR_FUNCTION(value); }
    int failure() const noexcept { return ZEBU2_ERROR_FAILURE(value); }
    explicit operator bool() const noexcept { return failure() != ZEBU_EPOS_NONE; }

    // For example "ZEBU2_Initialize: a file could not be opened (2): Permission denied".
    error_text text() const noexcept
    {
        error_text result;
        char reason[96] = "";
        const char* name = detail::function_name(function());
        const char* what = value != 0 && failure() == ZEBU_EPOS_NONE ? "without trace files, as asked for"
                                                                     : detail::failure_text(failure());
        const char* system =
            code == 0 ? "" : detail::strerror_result(strerror_r(code, reason, sizeof reason), reason);
        (void)std::snprintf(result.buffer, sizeof result.buffer, "%s%s%s%s (%d)%s%s", name ? "ZEBU2_" : "",
                            name ? name : "", name ? ": " : "", what, failure(), code == 0 ? "" : ": ",
                            system);
        return result;
    }
};

// The calling thread's last failure; false when its last call succeeded.
inline error_info last_error() noexcept
{
    error_info result;
    result.value = ZEBU2_GetLastError(&result.code);
    return result;
}

} // namespace zebu2

#endif
