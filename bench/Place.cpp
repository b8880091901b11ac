#include "Place.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

Place::Place(const std::string& base)
{
    std::string name = base + "/zebu-bench-XXXXXX";
    if (!mkdtemp(name.data())) {
        perror(name.c_str());
        exit(2);
    }
    m_dir = name;
    std::ofstream(path("bench.cnf")) << "LogFile = " << m_dir << "/log\nMapSize = " << cs_uAreaSize << "\n";
    setenv("ZEBU2_TRACECNF_FILE", path("bench.cnf").c_str(), 1);
}

Place::~Place()
{
    std::error_code ignored;
    fs::remove_all(m_dir, ignored);
}

void Place::clear()
{
    for (const auto& entry : fs::directory_iterator(m_dir)) {
        if (entry.path().extension() != ".cnf")
            fs::remove_all(entry.path());
    }
}

void Place::empty(const std::string& name) const
{
    if (truncate(path(name).c_str(), 0) != 0)
        perror(name.c_str());
}

long Place::size(const std::string& name) const
{
    return static_cast<long>(fs::file_size(path(name)));
}

void Place::attach(int iStarted)
{
    if (iStarted != 0) {
        (void)fprintf(stderr, "the library does not start: %08x\n", ZEBU2_GetLastError(nullptr));
        exit(2);
    }
    m_area = std::make_unique<HandArea>(path("mmap/zebu2mmap.mm"), cs_uAreaSize);
    m_handArea = std::make_unique<HandArea>(path("by-hand.mm"), cs_uAreaSize);
}

void Place::start(long lFileSize, long lFiles)
{
    const std::string prefix = path("app");
    const tagZEBU_LOGFILE_SPEC ring = {lFileSize, lFiles, prefix.c_str()};
    attach(ZEBU2_Initialize(&ring, "bench"));
}

void Place::startShared(long lFileSize, long lFiles)
{
    const std::string prefix = path("app");
    const tagZEBU_LOGFILE_SPEC ring = {lFileSize, lFiles, prefix.c_str()};
    (void)ZEBU2_SetLockRetryTimes(10000); // while another process fills the files
    (void)ZEBU2_SetLockWaitTime(1);
    attach(ZEBU2_InitializeM(&ring, "bench", 0));
    (void)ZEBU2_SetLockRetryTimes(1000);
    (void)ZEBU2_SetLockWaitTime(0);
}

void Place::stop()
{
    m_area.reset();
    m_handArea.reset();
    (void)ZEBU2_SetTimeStumpMode(0);
    if (ZEBU2_Finalize() != 0)
        (void)fprintf(stderr, "the library does not stop: %08x\n", ZEBU2_GetLastError(nullptr));
    clear();
}

void route(int iLogLevel, bool bFile, bool bArea)
{
    (void)ZEBU2_SetLogLevel(iLogLevel);
    (void)ZEBU2_SetFileThreshold(bFile ? 0 : ZEBU2_LEVEL_OFF);
    (void)ZEBU2_SetShmThreshold(bArea ? ZEBU2_LEVEL_MAX : ZEBU2_LEVEL_OFF);
}
