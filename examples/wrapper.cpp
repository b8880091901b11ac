// wrapper.cpp -- the C++ wrapper: owners, status, puts of every kind of text.
//
// usage: wrapper DIRECTORY
#include <cstdio>
#include <functional>
#include <string>
#include <thread>

#define FMT_HEADER_ONLY // nothing to link where fmt is found
#include "ZEBULib2.hpp"

namespace level = zebu2::level;

static void work(const zebu2::process_log& log, const char* name)
{
    const zebu2::labelled mine = log.with_label(name); // this text instead of the thread's number
    mine.put(level::info, "WORK", "begins");
    mine.putf(level::debug, "%s does %d things", name, 3);
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    const std::string directory = argv[1];
    const std::string prefix = directory + "/wrapper", auditPrefix = directory + "/audit";

    zebu2::process_log log(zebu2::ring(prefix.c_str()).size(65536).files(3).permissions(0640), "wrapper");
    if (!log.state().complete())
        std::fprintf(stderr, "%s\n", log.state().why().text().c_str());
    if (!log)
        return 1;
    log.set_level(level::info);

    log.put(level::info, "a literal");
    log.put(level::info, std::string_view(prefix).substr(0, directory.size()));
    log.put(level::warning, "NET-17", "WARN", "with id and type");
    log.putf(level::debug, "never formatted: %s", directory.c_str());
#ifdef ZEBU2_HAS_FORMAT
    log.format(level::info, zebu2::here(), "{} of {}", 3, "four");
#endif
    if (log.enabled(level::debug))
        log.put(level::debug, "something dear to find out");

    std::thread first(work, std::cref(log), "reader"), second(work, std::cref(log), "writer");
    first.join();
    second.join();

    zebu2::instance audit(zebu2::ring(auditPrefix.c_str()), "audit");
    audit.put(level::fatal, "the process log is closed after this instance: owners stop what they own");
}
