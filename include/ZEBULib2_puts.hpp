// ZEBULib2_puts.hpp -- texts and the puts that every kind of log has; a part of ZEBULib2.hpp, for C++17.
#ifndef ZEBULIB2_PUTS_HPP
#define ZEBULIB2_PUTS_HPP

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "ZEBULib2.h"
#include "ZEBULib2_error.hpp"

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

} // namespace zebu2

#undef ZEBU2_FORMAT_NAMESPACE

#endif
