// bench/Peers.cpp -- other loggers at the same durability: every line is with the kernel when the call
// returns. Each joins in when its package is found.
#include "Groups.h"

#ifdef ZEBU_BENCH_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

static std::shared_ptr<spdlog::logger> spdlogTo(const std::string& path, spdlog::level::level_enum level)
{
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path);
    auto logger = std::make_shared<spdlog::logger>("bench", sink);
    logger->set_level(level);
    logger->flush_on(spdlog::level::trace);
    logger->set_pattern("%Y/%m/%d %H:%M:%S.%e %n %P %t %v");
    return logger;
}

static void addSpdlog(Group& group, Place& place, spdlog::level::level_enum level)
{
    const auto logger = std::make_shared<std::shared_ptr<spdlog::logger>>();
    group.begin = [begin = group.begin, &place, logger, level] {
        begin();
        *logger = spdlogTo(place.path("spdlog.log"), level);
    };
    group.end = [end = group.end, logger] {
        logger->reset();
        end();
    };
    group.emptied.push_back("spdlog.log");
    group.rows.push_back(
        {level == spdlog::level::off ? "spdlog, off" : "spdlog, flushed", Kind::Peer, [logger](long n) {
             for (long i = 0; i < n; ++i)
                 (*logger)->info(cs_pszText);
         }});
}
#endif

#ifdef ZEBU_BENCH_LOG4CPLUS
#include <log4cplus/fileappender.h>
#include <log4cplus/helpers/property.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

static log4cplus::Logger log4cplusTo(const std::string& path, bool bOn, bool bLockFile)
{
    static log4cplus::Initializer initializer;
    log4cplus::helpers::Properties properties;
    properties.setProperty(LOG4CPLUS_TEXT("File"), path);
    properties.setProperty(LOG4CPLUS_TEXT("Append"), LOG4CPLUS_TEXT("true"));
    properties.setProperty(LOG4CPLUS_TEXT("ImmediateFlush"), LOG4CPLUS_TEXT("true"));
    if (bLockFile) {
        properties.setProperty(LOG4CPLUS_TEXT("UseLockFile"), LOG4CPLUS_TEXT("true"));
        properties.setProperty(LOG4CPLUS_TEXT("LockFile"), path + ".lock");
    }
    log4cplus::SharedAppenderPtr appender(new log4cplus::FileAppender(properties));
    appender->setLayout(
        std::make_unique<log4cplus::PatternLayout>(LOG4CPLUS_TEXT("%D{%Y/%m/%d %H:%M:%S.%q} %c %i %t %m%n")));
    log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("bench"));
    logger.removeAllAppenders();
    logger.addAppender(appender);
    logger.setLogLevel(bOn ? log4cplus::TRACE_LOG_LEVEL : log4cplus::OFF_LOG_LEVEL);
    return logger;
}

static void addLog4cplus(Group& group, Place& place, bool bOn, bool bLockFile, const char* pszName)
{
    const auto logger = std::make_shared<log4cplus::Logger>();
    group.begin = [begin = group.begin, &place, logger, bOn, bLockFile] {
        begin();
        *logger = log4cplusTo(place.path("log4cplus.log"), bOn, bLockFile);
    };
    group.end = [end = group.end, logger] {
        logger->removeAllAppenders();
        *logger = log4cplus::Logger();
        end();
    };
    group.emptied.push_back("log4cplus.log");
    group.rows.push_back({pszName, Kind::Peer, [logger](long n) {
                              for (long i = 0; i < n; ++i)
                                  LOG4CPLUS_INFO_STR(*logger, cs_pszText);
                          }});
}
#endif

#ifdef ZEBU_BENCH_GLOG
#include <glog/logging.h>

static void addGlog(Group& group, Place& place)
{
    group.begin = [begin = group.begin, &place] {
        begin();
        static const bool bBegun = (google::InitGoogleLogging("bench"), true);
        (void)bBegun;
        FLAGS_logbuflevel = -1; // flushes each line
        FLAGS_logtostderr = false;
        google::SetLogDestination(google::INFO, place.path("glog.").c_str());
    };
    group.end = [end = group.end] {
        google::SetLogDestination(google::INFO, "");
        end();
    };
    group.rows.push_back({"glog, flushed", Kind::Peer, [](long n) {
                              for (long i = 0; i < n; ++i)
                                  LOG(INFO) << cs_pszText;
                          }});
}

static void addGlogOff(Group& group)
{
    group.rows.push_back({"glog, off", Kind::Peer, [](long n) {
                              for (long i = 0; i < n; ++i)
                                  VLOG(1) << cs_pszText;
                          }});
}
#endif

void addPeersOff([[maybe_unused]] Group& group, [[maybe_unused]] Place& place)
{
#ifdef ZEBU_BENCH_SPDLOG
    addSpdlog(group, place, spdlog::level::off);
#endif
#ifdef ZEBU_BENCH_LOG4CPLUS
    addLog4cplus(group, place, false, false, "log4cplus, off");
#endif
#ifdef ZEBU_BENCH_GLOG
    addGlogOff(group);
#endif
}

void addPeersFile([[maybe_unused]] Group& group, [[maybe_unused]] Place& place)
{
#ifdef ZEBU_BENCH_SPDLOG
    addSpdlog(group, place, spdlog::level::trace);
#endif
#ifdef ZEBU_BENCH_LOG4CPLUS
    addLog4cplus(group, place, true, false, "log4cplus, flushed");
#endif
#ifdef ZEBU_BENCH_GLOG
    addGlog(group, place);
#endif
}

void addPeersShared([[maybe_unused]] Group& group, [[maybe_unused]] Place& place)
{
#ifdef ZEBU_BENCH_LOG4CPLUS
    addLog4cplus(group, place, true, true, "log4cplus, with lock file");
#endif
}
