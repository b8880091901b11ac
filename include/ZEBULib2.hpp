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

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "ZEBULib2.h"

// The {} puts are there where <format> or the fmt library (8 or later) is; ZEBU2_HAS_FORMAT tells. With fmt a
// program that uses them links fmt or defines FMT_HEADER_ONLY; ZEBU2_NO_FMT leaves it out. Both libraries
// throw, or end the process where exceptions are off, when a value does not fit its format: then they are
// left out.
#if __has_include(<version>)
#include <version>
#endif
#ifdef __cpp_lib_source_location
#include <source_location>
#endif
#if !defined(__cpp_exceptions)
#elif defined(__cpp_lib_format)
#include <format>
#define ZEBU2_FORMAT_NAMESPACE std
#elif !defined(ZEBU2_NO_FMT) && __has_include(<fmt/core.h>)
#include <fmt/core.h>
#if FMT_VERSION >= 80000
#define ZEBU2_FORMAT_NAMESPACE fmt
#endif
#endif
#ifdef ZEBU2_FORMAT_NAMESPACE
#define ZEBU2_HAS_FORMAT 1
#endif

namespace zebu2 {

// Suggested levels, with room between them. A message passes when its level is at most the log level.
namespace level {
inline constexpr int off = ZEBU2_LEVEL_OFF; // of a log or a threshold, not of a message
inline constexpr int fatal = 0;             // the only one seen at first
inline constexpr int error = 100;
inline constexpr int warning = 200;
inline constexpr int notice = 300;
inline constexpr int info = 400;
inline constexpr int debug = 600;
inline constexpr int trace = 800;
inline constexpr int all = ZEBU2_LEVEL_MAX;
} // namespace level

// ---- Errors --------------------------------------------------------------------------------------

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
    {ZEBU_EPOS_NOTREADY, "ZEBU_EPOS_NOTREADY", "not initialised, nothing open, or not a live instance"},
    {ZEBU_EPOS_FLUSH, "ZEBU_EPOS_FLUSH", "flushing written data failed"},
    {ZEBU_EPOS_OPENDIR, "ZEBU_EPOS_OPENDIR", "the trace directory cannot be read"},
    {ZEBU_EPOS_LSEEK, "ZEBU_EPOS_LSEEK", "a seek failed"},
    {ZEBU_EPOS_NOCONTEXT, "ZEBU_EPOS_NOCONTEXT", "the thread has made no call that could fail"},
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

// ---- Putting messages ----------------------------------------------------------------------------

// A text handed to a put. A char pointer, null too, a std::string and the text of an error are terminated.
class text
{
public:
    constexpr text(const char* terminated) noexcept : m_data(terminated) {}
    text(const std::string& terminated) noexcept : m_data(terminated.c_str()) {}
    text(const error_text& terminated) noexcept : m_data(terminated.c_str()) {}
    constexpr text(std::string_view view) noexcept : m_data(view.data()), m_size(view.size()), m_view(true) {}

    constexpr bool is_terminated() const noexcept { return !m_view; }
    constexpr const char* data() const noexcept { return m_data; }
    constexpr std::size_t size() const noexcept { return m_size; } // of a view

private:
    const char* m_data;
    std::size_t m_size = 0;
    bool m_view = false;
};

// The place of a put in the sources: log.put(level, zebu2::here(), "text") puts "file.cpp:12: text".
class here
{
public:
    explicit constexpr here(const char* file = __builtin_FILE(), unsigned line = __builtin_LINE()) noexcept
        : m_file(file), m_line(line)
    {
    }
#ifdef __cpp_lib_source_location
    constexpr here(const std::source_location& place) noexcept : here(place.file_name(), place.line()) {}
#endif
    // Without the directories.
    constexpr const char* file() const noexcept
    {
        const char* name = m_file;
        for (const char* p = m_file; *p != '\0'; ++p)
            name = *p == '/' ? p + 1 : name;
        return name;
    }
    constexpr unsigned line() const noexcept
    {
        return m_line;
    }

private:
    const char* m_file;
    unsigned m_line;
};

namespace detail {

inline constexpr std::size_t plain_max = ZEBU2_TEXT_MAX;
inline constexpr std::size_t id_max = ZEBU2_ID_TEXT_MAX;

// Where a text is formatted: behind the place of the put where one is given.
struct line
{
    char buffer[plain_max + 1];
    std::size_t used = 0;

    line() noexcept = default;
    explicit line(const here& place) noexcept
    {
        const int length = std::snprintf(buffer, sizeof buffer, "%s:%u: ", place.file(), place.line());
        used = length < 0 ? 0 : static_cast<std::size_t>(length);
        used = used < plain_max ? used : plain_max;
    }
    void append(const char* text, std::size_t size) noexcept
    {
        size = size < plain_max - used ? size : plain_max - used;
        if (size > 0)
            std::memcpy(buffer + used, text, size);
        buffer[used + size] = '\0';
    }
};

// A terminated text of at most Max bytes: the caller's own, or a copy.
template <std::size_t Max>
class terminated
{
public:
    explicit terminated(text from) noexcept : m_text(from.is_terminated() ? from.data() : m_copy)
    {
        if (from.is_terminated())
            return;
        const std::size_t size = from.size() < Max ? from.size() : Max;
        if (size > 0)
            std::memcpy(m_copy, from.data(), size);
        m_copy[size] = '\0';
    }
    terminated(const terminated&) = delete;
    terminated& operator=(const terminated&) = delete;
    const char* c_str() const noexcept { return m_text; }

private:
    const char* m_text;
    char m_copy[Max + 1];
};

// An application name as it is printed.
struct name_buffer
{
    char buffer[ZEBU2_APP_NAME_LENGTH + 1] = "";
    name_buffer() noexcept = default;
    explicit name_buffer(text from) noexcept
    {
        if (from.data())
            std::snprintf(buffer, sizeof buffer, "%s", terminated<ZEBU2_APP_NAME_LENGTH>(from).c_str());
    }
};

} // namespace detail

// The puts of every kind of log. Log gives enabled(level), closed() and write(level, [id, [type,]] text).
//
// They return 0 or -1 as the C functions do. A message above the level is done with at once: the puts of
// terminated texts leave the thread's error as it was, those of views and formats clear it. When an argument
// does not fit its format, the line has the text of the format, and the put fails with ZEBU_EPOS_PARAM.
template <class Log>
class puts
{
public:
    int put(int level, text message) const noexcept
    {
        if (message.is_terminated())
            return log().write(level, message.data());
        return log().enabled(level) ? copy(level, message) : above(level);
    }

    // With a message id, 21 columns.
    int put(int level, text id, text message) const noexcept
    {
        if (id.is_terminated() && message.is_terminated())
            return log().write(level, id.data(), message.data());
        return log().enabled(level) ? copy(level, id, message) : above(level);
    }

    // With a message id, 16 columns, and a message type, 4.
    int put(int level, text id, text type, text message) const noexcept
    {
        if (id.is_terminated() && type.is_terminated() && message.is_terminated())
            return log().write(level, id.data(), type.data(), message.data());
        return log().enabled(level) ? copy(level, id, type, message) : above(level);
    }

    // With the place of the put before the text.
    int put(int level, here place, text message) const noexcept
    {
        return log().enabled(level) ? copy(level, place, message) : above(level);
    }

    [[gnu::format(printf, 3, 4)]] int putf(int level, const char* format, ...) const noexcept
    {
        if (!log().enabled(level))
            return above(level);
        std::va_list args;
        va_start(args, format);
        detail::line line;
        const int result = print(level, line, format, args);
        va_end(args);
        return result;
    }

    [[gnu::format(printf, 4, 5)]] int putf_id(int level, const char* id, const char* format,
                                              ...) const noexcept
    {
        if (!log().enabled(level))
            return above(level);
        std::va_list args;
        va_start(args, format);
        detail::line line;
        const int result = print(level, line, format, args, id);
        va_end(args);
        return result;
    }

    [[gnu::format(printf, 4, 5)]] int putf(int level, here place, const char* format, ...) const noexcept
    {
        if (!log().enabled(level))
            return above(level);
        std::va_list args;
        va_start(args, format);
        detail::line line(place);
        const int result = print(level, line, format, args);
        va_end(args);
        return result;
    }

#ifdef ZEBU2_FORMAT_NAMESPACE
    // The format is checked while compiling, but by fmt before C++20.
    template <class... Args>
    int format(int level, ZEBU2_FORMAT_NAMESPACE::format_string<Args...> format,
               Args&&... args) const noexcept
    {
        if (!log().enabled(level))
            return above(level);
        detail::line line;
        const bool fits = fill<Args...>(line, format, std::forward<Args>(args)...);
        return finish(level, line, fits, view(format));
    }

    template <class... Args>
    int format_id(int level, const char* id, ZEBU2_FORMAT_NAMESPACE::format_string<Args...> format,
                  Args&&... args) const noexcept
    {
        if (!log().enabled(level))
            return above(level);
        detail::line line;
        const bool fits = fill<Args...>(line, format, std::forward<Args>(args)...);
        return finish(level, line, fits, view(format), id);
    }

    template <class... Args>
    int format(int level, here place, ZEBU2_FORMAT_NAMESPACE::format_string<Args...> format,
               Args&&... args) const noexcept
    {
        if (!log().enabled(level))
            return above(level);
        detail::line line(place);
        const bool fits = fill<Args...>(line, format, std::forward<Args>(args)...);
        return finish(level, line, fits, view(format));
    }
#endif

private:
    const Log& log() const noexcept
    {
        return static_cast<const Log&>(*this);
    }

    // What the library refuses whatever the log level, it is asked to refuse: it writes nothing then.
    int above(int level) const noexcept
    {
        return level < ZEBU2_LEVEL_MIN || level > ZEBU2_LEVEL_MAX || log().closed() ? log().write(level, "")
                                                                                    : 0;
    }

    // Not inlined: their copies would lie in the caller's frame.
    [[gnu::noinline]] int copy(int level, text message) const noexcept
    {
        return log().write(level, detail::terminated<detail::plain_max>(message).c_str());
    }
    [[gnu::noinline]] int copy(int level, text id, text message) const noexcept
    {
        return log().write(level, detail::terminated<21>(id).c_str(),
                           detail::terminated<detail::id_max>(message).c_str());
    }
    [[gnu::noinline]] int copy(int level, text id, text type, text message) const noexcept
    {
        return log().write(level, detail::terminated<16>(id).c_str(), detail::terminated<4>(type).c_str(),
                           detail::terminated<detail::id_max>(message).c_str());
    }
    [[gnu::noinline]] int copy(int level, here place, text message) const noexcept
    {
        if (!message.data())
            return log().write(level, nullptr); // is refused, but for an empty view
        detail::line line(place);
        line.append(message.data(), message.is_terminated() ? std::strlen(message.data()) : message.size());
        return log().write(level, line.buffer);
    }

    // Puts a formatted line, with an id where one is given.
    template <class... Id>
    int finish(int level, detail::line& line, bool fits, std::string_view format, Id... id) const noexcept
    {
        if (!fits)
            line.append(format.data(), format.size());
        const int result = log().write(level, id..., line.buffer);
        return fits || result != 0 ? result
                                   : log().write(ZEBU2_LEVEL_OFF, ""); // refused: an invalid argument
    }

    template <class... Id>
    int print(int level, detail::line& line, const char* format, std::va_list args, Id... id) const noexcept
    {
        const int length =
            std::vsnprintf(line.buffer + line.used, sizeof line.buffer - line.used, format, args);
        return finish(level, line, length >= 0, format, id...);
    }

#ifdef ZEBU2_FORMAT_NAMESPACE
    template <class Format>
    static std::string_view view(const Format& format) noexcept
    {
#ifndef __cpp_lib_format
        const fmt::string_view text = format;
        return {text.data(), text.size()};
#else
        return format.get();
#endif
    }

    template <class... Args>
    static bool fill(detail::line& line, ZEBU2_FORMAT_NAMESPACE::format_string<Args...> format,
                     Args&&... args) noexcept
    {
        try {
            *ZEBU2_FORMAT_NAMESPACE::format_to_n(line.buffer + line.used, detail::plain_max - line.used,
                                                 format, std::forward<Args>(args)...)
                 .out = '\0';
            return true;
        } catch (...) {
            return false;
        }
    }
#endif
};

// Copies bytes into the trace area alone, as ZEBU2_PutToShm does.
inline int put_to_area(std::string_view bytes) noexcept
{
    return ZEBU2_PutToShm(bytes.data(), bytes.size());
}

// ---- What is not of one log ----------------------------------------------------------------------

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
        : owner(std::move(other)), m_handle(std::exchange(other.m_handle, nullptr))
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

#undef ZEBU2_FORMAT_NAMESPACE

#endif
#endif
