// bench/Place.h -- a directory for the files of the benchmark, and the library at work in it.
#ifndef ZEBU_BENCH_PLACE_H
#define ZEBU_BENCH_PLACE_H

#include <memory>
#include <string>

#include "ByHand.h"
#include "ZEBULib2.h"

constexpr uint32_t cs_uAreaSize = 65536;
constexpr long cs_lBigFile = 2000000000; // a file that is never left

class Place
{
public:
    // Makes a directory of its own under `base` and points the library's configuration at it.
    explicit Place(const std::string& base);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    std::string path(const std::string& name) const { return m_dir + "/" + name; }
    const std::string& dir() const { return m_dir; }

    // Starts the process log with an empty ring "app", and makes the trace area ready to be drained.
    void start(long lFileSize = cs_lBigFile, long lFiles = 2);
    // The same with a ring that processes share, whose lock is tried 1,000 times without a wait.
    void startShared(long lFileSize, long lFiles);
    void stop();

    HandArea& area() { return *m_area; }         // the library's trace area, as its consumer sees it
    HandArea& handArea() { return *m_handArea; } // one of the same size, written by hand

    // Removes what rings and loggers have left.
    void clear();
    // Empties a file that is being written, so that no round waits for the disk.
    void empty(const std::string& name) const;
    long size(const std::string& name) const;

private:
    void attach(int iStarted);

    std::string m_dir;
    std::unique_ptr<HandArea> m_area;
    std::unique_ptr<HandArea> m_handArea;
};

// Sets the process log's level and thresholds: what passes, and where it goes.
void route(int iLogLevel, bool bFile, bool bArea);

#endif
