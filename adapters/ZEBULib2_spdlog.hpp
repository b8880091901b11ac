// ZEBULib2_spdlog.hpp -- a sink for spdlog (1.5 or later) over the C functions of ZEBULib2. Header only.
//
// Each message becomes a trace line: time, process and thread are in its columns, the name of the logger is
// its message id, and the text is what was logged, or what set_pattern() makes of it. The log must have been
// started, and its level raised: at first only critical messages pass.
//
//     ZEBU2_InitializeM(&ring, "app", 0);
//     ZEBU2_SetLogLevel(ZEBU2_LEVEL_MAX); // spdlog decides
//     spdlog::set_default_logger(std::make_shared<spdlog::logger>("net",
//     std::make_shared<zebu2::spdlog_sink_mt>()));
#ifndef ZEBULIB2_SPDLOG_HPP
#define ZEBULIB2_SPDLOG_HPP

#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>

#include <memory>
#include <mutex>
#include <string>

#include "ZEBULib2.h"

namespace zebu2 {

// The level of a trace line for one of spdlog.
inline int level_of(spdlog::level::level_enum level)
{
    switch (level) {
    case spdlog::level::trace:
        return ZEBU2_LEVEL_TRACE;
    case spdlog::level::debug:
        return ZEBU2_LEVEL_DEBUG;
    case spdlog::level::info:
        return ZEBU2_LEVEL_INFO;
    case spdlog::level::warn:
        return ZEBU2_LEVEL_WARNING;
    case spdlog::level::err:
        return ZEBU2_LEVEL_ERROR;
    default:
        return ZEBU2_LEVEL_FATAL;
    }
}

// Puts through the process log, or through an instance, which must outlive the sink. What a put refuses goes
// to the error handler of the logger.
template <class Mutex>
class spdlog_sink : public spdlog::sinks::base_sink<Mutex>
{
public:
    explicit spdlog_sink(ZEBU2_HINSTANCE instance = nullptr) : m_instance(instance)
    {
        this->set_pattern_("%v");
    }

protected:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        const int level = level_of(message.level);
        if (level > (m_instance ? ZEBU2_GetInstanceLogLevel(m_instance) : ZEBU2_GetLogLevel()))
            return;
        spdlog::memory_buf_t text;
        this->formatter_->format(message, text);
        while (text.size() > 0 && (text.end()[-1] == '\n' || text.end()[-1] == '\r'))
            text.resize(text.size() - 1); // a trace line ends by itself
        text.push_back('\0');
        const std::string id(message.logger_name.data(), message.logger_name.size());
        check(put(level, id, text.data()), "put");
    }

    void flush_() override
    {
        check(m_instance ? ZEBU2_InstanceFileBufferFlush(m_instance) : ZEBU2_FileBufferFlush(), "flush");
    }

private:
    int put(int level, const std::string& id, const char* text) const
    {
        if (m_instance)
            return id.empty() ? ZEBU2_PutInstanceLine(m_instance, level, text)
                              : ZEBU2_PutInstanceWithId(m_instance, level, id.c_str(), text);
        return id.empty() ? ZEBU2_PutLine(level, text) : ZEBU2_PutWithId(level, id.c_str(), text);
    }

    static void check(int result, const char* what)
    {
        int code = 0;
        if (result == 0)
            return;
        const int value = ZEBU2_GetLastError(&code);
        spdlog::throw_spdlog_ex(std::string("ZEBULib2: ") + what + " failed with " +
                                    std::to_string(ZEBU2_ERROR_FAILURE(value)) + " of function " +
                                    std::to_string(ZEBU2_ERROR_FUNCTION(value)),
                                code);
    }

    ZEBU2_HINSTANCE m_instance;
};

using spdlog_sink_mt = spdlog_sink<std::mutex>;
using spdlog_sink_st = spdlog_sink<spdlog::details::null_mutex>;

} // namespace zebu2

#endif
