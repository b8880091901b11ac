// bench/Pieces.cpp -- what a put is made of, each piece alone.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <memory>

#include "Groups.h"

template <class Once>
static Row piece(const char* pszName, Once once)
{
    return {pszName, Kind::Piece, times(once)};
}

static Group memoryPieces(Place& place)
{
    Group group = {"pieces", "pieces without a system call", 20000,
                   {},       [&place] { place.start(); },    [&place] { place.stop(); }};
    group.rows.push_back(piece("gettimeofday", [] {
        timeval now;
        gettimeofday(&now, nullptr);
        benchmark::DoNotOptimize(now);
    }));
    group.rows.push_back(piece("localtime_r", [] {
        static time_t lSecond = time(nullptr);
        tm local;
        benchmark::DoNotOptimize(localtime_r(&lSecond, &local));
    }));
    group.rows.push_back(piece("mutex, lock and unlock", [] {
        const HandMutex lock;
        benchmark::ClobberMemory();
    }));
    group.rows.push_back(piece("pthread_setcancelstate, twice", [] {
        int iState;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &iState);
        pthread_setcancelstate(iState, nullptr);
    }));
    group.rows.push_back(piece("a compare-and-swap", [] {
        static unsigned int uWord;
        unsigned int uSeen = uWord;
        benchmark::DoNotOptimize(__atomic_compare_exchange_n(&uWord, &uSeen, uSeen + 1, false,
                                                             __ATOMIC_RELAXED, __ATOMIC_RELAXED));
    }));
    group.rows.push_back(piece("line by hand, without the clock", [] {
        size_t uLength;
        benchmark::DoNotOptimize(handLine(cs_pszText, Stamp::Masked, &uLength));
    }));
    group.rows.push_back(piece("length and copy of the text", [] {
        static char szLine[4188];
        const char* pszText = cs_pszText;
        benchmark::DoNotOptimize(pszText);
        const size_t uLength = strnlen(pszText, 4117);
        memcpy(szLine, pszText, uLength);
        benchmark::DoNotOptimize(szLine);
    }));
    return group;
}

static Group callPieces(Place& place)
{
    const auto fd = std::make_shared<int>(-1);
    Group group = {"calls",
                   "system calls",
                   1000,
                   {},
                   [&place, fd] {
                       place.start();
                       *fd = open(place.path("calls").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
                   },
                   [&place, fd] {
                       (void)close(*fd);
                       place.stop();
                   }};
    group.rows.push_back(piece("the cheapest (getppid)", [] { benchmark::DoNotOptimize(getppid()); }));
    group.rows.push_back(piece("fstat", [fd] {
        struct stat info;
        (void)fstat(*fd, &info);
        benchmark::DoNotOptimize(info);
    }));
    group.rows.push_back(piece("stat", [&place] {
        static const std::string name = place.path("calls");
        struct stat info;
        (void)stat(name.c_str(), &info);
        benchmark::DoNotOptimize(info);
    }));
    group.rows.push_back(piece("lockf, lock and unlock", [fd] {
        (void)lockf(*fd, F_TLOCK, 0);
        (void)lockf(*fd, F_ULOCK, 0);
    }));
    return group;
}

void addPieces(std::vector<Group>& groups, Place& place)
{
    groups.push_back(memoryPieces(place));
    groups.push_back(callPieces(place));
}
