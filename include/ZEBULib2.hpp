// ZEBULib2.hpp -- C++17 wrapper over ZEBULib2.h: owners, status values, puts of string views and formats.
//
// Header only, over the C functions alone. Nothing here throws or allocates, and nothing is kept beside
// what an owner owns: levels and thresholds may be set by the C functions too. Texts that are terminated
// (literals, char pointers, std::string) reach the C function as they are; a string_view is copied to the
// stack first, and formats write there, in both cases only when the message passes the level.
//
//     zebu2::process_log log(zebu2::ring("/var/trace/app").size(1 << 20).files(4), "app");
//     if (!log)
//         std::fprintf(stderr, "%s\n", log.state().why().text().c_str());
//     log.set_level(zebu2::level::info);
//     log.put(zebu2::level::info, "started");
//     log.putf(zebu2::level::debug, "%d files", n);
#ifndef ZEBULIB2_HPP
#define ZEBULIB2_HPP

#if __cplusplus < 201703L
#error "ZEBULib2.hpp needs C++17 (-std=c++17); ZEBULib2_log.h does with less"
#else

#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include "ZEBULib2.h"
#include "ZEBULib2_error.hpp"
#include "ZEBULib2_puts.hpp"

namespace zebu2 {

// Suggested levels, with room between them. A message passes when its level is at most the log level.
namespace level {
inline constexpr int off = ZEBU2_LEVEL_OFF;     // of a log or a threshold, not of a message
inline constexpr int fatal = ZEBU2_LEVEL_FATAL; // the only one seen at first
inline constexpr int error = ZEBU2_LEVEL_ERROR;
inline constexpr int warning = ZEBU2_LEVEL_WARNING;
inline constexpr int notice = ZEBU2_LEVEL_NOTICE;
inline constexpr int info = ZEBU2_LEVEL_INFO;
inline constexpr int debug = ZEBU2_LEVEL_DEBUG;
inline constexpr int trace = ZEBU2_LEVEL_TRACE;
inline constexpr int all = ZEBU2_LEVEL_MAX;
} // namespace level

// ---- Starting -----------------------------------------------------------------------------------

// What starting a log came to. A partial success is kept, not turned into a failure.
class status
{
public:
    status() noexcept = default; // not started
    status(int result, const error_info& why) noexcept : m_result(result), m_why(why) {}

    int result() const noexcept { return m_result; } // of the C function: -1, 0, 1, 2 or 3
    const error_info& why() const noexcept { return m_why; }
    explicit operator bool() const noexcept { return m_result >= 0; } // messages can be put
    // All that was asked for: trace files, but for a log with no_ring, and the trace area.
    bool complete() const noexcept { return (m_result == 0 || m_result == 1) && !m_why; }
    bool has_files() const noexcept { return m_result == 0 || m_result >= 2; } // trace files are open
    bool has_area() const noexcept { return m_result >= 0 && m_result != 2; }  // the trace area is
    bool found_again() const noexcept { return m_why.failure() == ZEBU_EPOS_MISMATCH; } // result 3

private:
    int m_result = -1;
    error_info m_why;
};

// ---- Describing a ring ---------------------------------------------------------------------------

// A ring of trace files; the prefix must live until the log is open.
class ring
{
public:
    explicit constexpr ring(const char* prefix) noexcept : m_prefix(prefix) {}
    constexpr ring& size(long bytes) noexcept { return m_size = bytes, *this; }     // of one file
    constexpr ring& files(long count) noexcept { return m_files = count, *this; }   // in the ring
    constexpr ring& permissions(int mode) noexcept { return m_mode = mode, *this; } // as soon as it is open
    // Used by several processes. options: OR of ZEBU2_OPT_...
    constexpr ring& shared(int options = 0) noexcept { return m_shared = true, m_options = options, *this; }

    tagZEBU_LOGFILE_SPEC spec() const noexcept { return {m_size, m_files, m_prefix}; }
    constexpr bool is_shared() const noexcept { return m_shared; }
    constexpr int options() const noexcept { return m_options; }
    constexpr int mode() const noexcept { return m_mode; } // -1: 0666 for new files

private:
    const char* m_prefix;
    long m_size = 1048576;
    long m_files = 4;
    int m_mode = -1;
    bool m_shared = false;
    int m_options = 0;
};

// Stands for a ring where a log is to have none: its messages go to the trace area alone.
struct no_ring_t
{
};
inline constexpr no_ring_t no_ring{};

// ---- What is not of one log ----------------------------------------------------------------------

// Copies bytes into the trace area alone, as ZEBU2_PutToShm does.
inline int put_to_area(std::string_view bytes) noexcept
{
    return ZEBU2_PutToShm(bytes.data(), bytes.size());
}

// Copies a line into the trace area alone; may be called in a signal handler. 0, or -1 when nothing was
// stored.
inline int put_signal_safe(const char* message) noexcept
{
    return ZEBU2_PutMsgSigSafe(message);
}

// Asterisks for date and time in the lines of the process log that carry no label.
inline void mask_time(bool on) noexcept
{
    (void)ZEBU2_SetTimeStumpMode(on ? 1 : 0);
}
inline bool time_is_masked() noexcept
{
    return ZEBU2_GetTimeStumpMode() == 1;
}

// The notice to syslog when a ring of one process leaves a full file.
inline void set_switch_notice(bool on) noexcept
{
    (void)ZEBU2_SetSwapMessageMode(on ? 1 : 0);
}

// Remove old trace files that match the pattern; 0 or -1.
inline int clear_older_than(const char* pattern, int seconds) noexcept
{
    return ZEBU2_LogFileClear(pattern, ZEBU2_CLEAR_BY_AGE, seconds);
}
inline int clear_all_but(const char* pattern, int newest) noexcept
{
    return ZEBU2_LogFileClear(pattern, ZEBU2_CLEAR_BY_NUMBER, newest);
}

// ---- The process log -----------------------------------------------------------------------------

// Puts under another thread text (8 columns) than the thread's own, through the ...AndTid functions. All
// of them print an id: it is blank where none is given. The time is never masked. A null label is none: the
// thread's own text is printed, and the time as mask_time() says.
class labelled : public puts<labelled>
{
public:
    labelled(text label, text name, bool closed = false) noexcept
        : m_name(name), m_own(!label.data() && label.is_terminated()), m_closed(closed)
    {
        if (m_own)
            return;
        const detail::terminated<8> whole(label);
        std::size_t length = 0;
        while (length < 8 && whole.c_str()[length] != '\0')
            ++length;
        std::memcpy(m_label, whole.c_str(), length);
        m_label[length] = '\0';
    }
    static bool enabled(int level) noexcept { return level <= ZEBU2_GetLogLevel(); }
    bool closed() const noexcept { return m_closed; } // the log was, when this was made
    int write(int level, const char* message) const noexcept { return write(level, nullptr, message); }
    int write(int level, const char* id, const char* message) const noexcept
    {
        return m_own ? ZEBU2_PutWithIdEx(level, m_name.buffer, id, message)
                     : ZEBU2_PutWithIdAndTidEx(level, m_name.buffer, m_label, id, message);
    }
    int write(int level, const char* id, const char* type, const char* message) const noexcept
    {
        return m_own ? ZEBU2_PutWithMsgType(level, m_name.buffer, id, type, message)
                     : ZEBU2_PutWithMsgTypeAndTid(level, m_name.buffer, m_label, id, type, message);
    }

private:
    detail::name_buffer m_name;
    char m_label[9] = "";
    bool m_own;
    bool m_closed;
};

namespace detail {

// What both owners share. Log gives close(), start(spec, files), set_permissions(mode), and tells as a
// truth value whether it owns a log.
template <class Log>
class owner : public puts<Log>
{
public:
    const status& open(const ring& files, text name) noexcept
    {
        const tagZEBU_LOGFILE_SPEC spec = files.spec();
        return begin(&spec, files, name_buffer(name));
    }
    const status& open(no_ring_t, text name) noexcept
    {
        return begin(nullptr, ring(nullptr), name_buffer(name));
    }
    const status& state() const noexcept { return m_state; }

protected:
    owner() noexcept = default;
    owner(owner&& other) noexcept : m_state(std::exchange(other.m_state, {})), m_name(other.m_name) {}
    owner& operator=(owner&& other) noexcept
    {
        m_state = std::exchange(other.m_state, {});
        m_name = other.m_name;
        return *this;
    }

    const status& begin(const tagZEBU_LOGFILE_SPEC* spec, const ring& files, const name_buffer& name) noexcept
    {
        Log& log = static_cast<Log&>(*this);
        (void)log.close();
        if (log) // could not be closed
            return m_state;
        m_name = name;
        const int result = log.start(spec, files);
        m_state = status(result, last_error());
        if (spec && m_state.has_files() && files.mode() != -1 && log.set_permissions(files.mode()) != 0)
            m_state = status(result, last_error());
        return m_state;
    }

    status m_state;
    name_buffer m_name;
};

} // namespace detail

// Owns the process log: started by open(), stopped by close() or the end of the owner. One per process.
class process_log : public detail::owner<process_log>
{
public:
    process_log() noexcept = default;
    process_log(const ring& files, text name) noexcept { (void)open(files, name); }
    process_log(no_ring_t, text name) noexcept { (void)open(no_ring, name); }
    ~process_log() { (void)close(); }
    process_log(process_log&& other) noexcept = default;
    process_log& operator=(process_log&& other) noexcept
    {
        if (this != &other) {
            (void)close();
            owner::operator=(std::move(other));
        }
        return *this;
    }

    // 0, or -1 when closing failed (last_error()); closed all the same.
    int close() noexcept
    {
        if (!m_state)
            return 0;
        m_state = {};
        return ZEBU2_Finalize();
    }

    // In the child of a fork: lines carry the child's process id from here on. A shared ring is given as the
    // parent opened it; a ring of one process stays the parent's, so the child names one of its own. Levels
    // and thresholds stay.
    const status& after_fork(const ring& files) noexcept
    {
        const tagZEBU_LOGFILE_SPEC spec = files.spec();
        (void)close();
        return begin(&spec, files, m_name);
    }
    const status& after_fork(no_ring_t) noexcept
    {
        (void)close();
        return begin(nullptr, ring(nullptr), m_name);
    }

    explicit operator bool() const noexcept { return static_cast<bool>(m_state); }
    bool closed() const noexcept { return !m_state; }

    // Whether a message of this level would be processed. Clears the thread's error, as ZEBU2_GetLogLevel
    // does.
    static bool enabled(int level) noexcept { return level <= ZEBU2_GetLogLevel(); }
    static int level() noexcept { return ZEBU2_GetLogLevel(); }
    // The setters return the value before.
    static int set_level(int level) noexcept { return ZEBU2_SetLogLevel(level); }
    static int set_file_threshold(int level) noexcept { return ZEBU2_SetFileThreshold(level); } // and above
    static int set_area_threshold(int level) noexcept { return ZEBU2_SetShmThreshold(level); }  // and below
    static int set_permissions(int mode) noexcept { return ZEBU2_ChFileAttr(mode); }
    static int flush() noexcept { return ZEBU2_FileBufferFlush(); }
    static int backup(const char* path, int option = 0) noexcept { return ZEBU2_TraceBackupM(path, option); }

    // How long operations on a shared ring wait for other processes: attempts, and milliseconds between two.
    static int lock_wait_time() noexcept { return ZEBU2_GetLockWaitTime(); }
    static int set_lock_wait_time(int milliseconds) noexcept { return ZEBU2_SetLockWaitTime(milliseconds); }
    static int lock_retry_times() noexcept { return ZEBU2_GetLockRetryTimes(); }
    static int set_lock_retry_times(int times) noexcept { return ZEBU2_SetLockRetryTimes(times); }

    labelled with_label(text label) const noexcept { return labelled(label, m_name.buffer, closed()); }

    int write(int level, const char* message) const noexcept { return ZEBU2_PutLine(level, message); }
    int write(int level, const char* id, const char* message) const noexcept
    {
        return ZEBU2_PutWithId(level, id, message);
    }
    int write(int level, const char* id, const char* type, const char* message) const noexcept
    {
        return ZEBU2_PutWithMsgType(level, m_name.buffer, id, type, message);
    }

private:
    friend detail::owner<process_log>;
    int start(const tagZEBU_LOGFILE_SPEC* spec, const ring& files) noexcept
    {
        return files.is_shared() ? ZEBU2_InitializeM(spec, m_name.buffer, files.options())
                                 : ZEBU2_Initialize(spec, m_name.buffer);
    }
};

// ---- Instances -----------------------------------------------------------------------------------

// Owns a trace instance, a log with a ring, a name, levels and thresholds of its own.
class instance : public detail::owner<instance>
{
public:
    instance() noexcept = default;
    instance(const ring& files, text name) noexcept { (void)open(files, name); }
    instance(no_ring_t, text name) noexcept { (void)open(no_ring, name); }
    ~instance() { (void)close(); }
    instance(instance&& other) noexcept
        : owner(static_cast<owner&&>(other)), m_handle(std::exchange(other.m_handle, nullptr))
    {
    }
    instance& operator=(instance&& other) noexcept
    {
        if (this != &other) {
            (void)close();
            m_handle = std::exchange(other.m_handle, nullptr);
            owner::operator=(std::move(other));
        }
        return *this;
    }

    // 0, or -1 when closing failed; an instance that could not be closed is still owned.
    int close() noexcept
    {
        if (!m_handle)
            return 0;
        if (ZEBU2_DeleteInstance(m_handle) != 0)
            return -1;
        m_handle = nullptr;
        m_state = {};
        return 0;
    }

    // As process_log::after_fork. The level and the thresholds are taken over.
    const status& after_fork(const ring& files) noexcept
    {
        const int level = ZEBU2_GetInstanceLogLevel(m_handle);
        const int file = ZEBU2_SetInstanceFileThreshold(m_handle, 0);
        const int area = ZEBU2_SetInstanceShmThreshold(m_handle, 0);
        const tagZEBU_LOGFILE_SPEC spec = files.spec();
        if (begin(&spec, files, detail::name_buffer(m_name))) {
            (void)set_level(level);
            (void)set_file_threshold(file);
            (void)set_area_threshold(area);
        }
        return m_state;
    }

    explicit operator bool() const noexcept { return m_handle != nullptr; }
    bool closed() const noexcept { return m_handle == nullptr; }
    ZEBU2_HINSTANCE handle() const noexcept { return m_handle; }

    // Asks the library, which takes its mutex for it; a put of a terminated text needs no such question.
    bool enabled(int level) const noexcept { return level <= ZEBU2_GetInstanceLogLevel(m_handle); }
    int level() const noexcept { return ZEBU2_GetInstanceLogLevel(m_handle); }
    int set_level(int level) noexcept { return ZEBU2_SetInstanceLogLevel(m_handle, level); }
    int set_file_threshold(int level) noexcept { return ZEBU2_SetInstanceFileThreshold(m_handle, level); }
    int set_area_threshold(int level) noexcept { return ZEBU2_SetInstanceShmThreshold(m_handle, level); }
    int set_permissions(int mode) noexcept { return ZEBU2_ChInstanceFileAttr(m_handle, mode); }
    int flush() noexcept { return ZEBU2_InstanceFileBufferFlush(m_handle); }
    int backup(const char* path, int option = 0) noexcept
    {
        return ZEBU2_InstanceTraceBackupM(m_handle, path, option);
    }

    // As those of the process log; of a closed instance they are what instances made later start with.
    int lock_wait_time() const noexcept { return ZEBU2_GetInstanceLockWaitTime(m_handle); }
    int set_lock_wait_time(int milliseconds) noexcept
    {
        return ZEBU2_SetInstanceLockWaitTime(m_handle, milliseconds);
    }
    int lock_retry_times() const noexcept { return ZEBU2_GetInstanceLockRetryTimes(m_handle); }
    int set_lock_retry_times(int times) noexcept { return ZEBU2_SetInstanceLockRetryTimes(m_handle, times); }

    int write(int level, const char* message) const noexcept
    {
        return ZEBU2_PutInstanceLine(m_handle, level, message);
    }
    int write(int level, const char* id, const char* message) const noexcept
    {
        return ZEBU2_PutInstanceWithId(m_handle, level, id, message);
    }
    int write(int level, const char* id, const char* type, const char* message) const noexcept
    {
        return ZEBU2_PutInstanceWithMsgType(m_handle, level, m_name.buffer, id, type, message);
    }

private:
    friend detail::owner<instance>;
    int start(const tagZEBU_LOGFILE_SPEC* spec, const ring& files) noexcept
    {
        return files.is_shared() ? ZEBU2_CreateInstanceM(&m_handle, spec, m_name.buffer, files.options())
                                 : ZEBU2_CreateInstance(&m_handle, spec, m_name.buffer);
    }

    ZEBU2_HINSTANCE m_handle = nullptr;
};

} // namespace zebu2

#endif
#endif
