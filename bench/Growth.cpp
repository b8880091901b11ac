// bench/Growth.cpp -- what must not grow: the cost of a put with the number of files, instances, threads
// and with the fill of the ring; and what may: opening a ring looks at each of its files once.
#include <stdio.h>
#include <stdlib.h>

#include <thread>

#include "Groups.h"

constexpr long cs_lPuts = 500;

static void check(int iResult, const char* pszWhat)
{
    if (iResult == 0)
        return;
    (void)fprintf(stderr, "%s: %d %08x\n", pszWhat, iResult, ZEBU2_GetLastError(nullptr));
    exit(2);
}

static double timePuts(const std::function<int()>& put)
{
    for (long i = 0; i < cs_lPuts / 5; ++i)
        check(put(), "put");
    const double start = nowNs();
    for (long i = 0; i < cs_lPuts; ++i)
        check(put(), "put");
    return (nowNs() - start) / static_cast<double>(cs_lPuts);
}

static int putLine()
{
    return ZEBU2_PutLine(1, cs_pszText);
}

static double putWithFiles(Place& place, long lFiles)
{
    place.start(cs_lBigFile, lFiles);
    route(1, true, false);
    const double ns = timePuts(putLine);
    place.stop();
    return ns;
}

// The last of so many instances, each with a ring of its own.
static double putWithInstances(Place& place, long lInstances)
{
    std::vector<ZEBU2_HINSTANCE> instances(static_cast<size_t>(lInstances));
    for (size_t i = 0; i < instances.size(); ++i) {
        const std::string prefix = place.path(std::to_string(i).append("-"));
        const tagZEBU_LOGFILE_SPEC ring = {cs_lBigFile, 1, prefix.c_str()};
        check(ZEBU2_CreateInstance(&instances[i], &ring, "bench"), "instance");
        (void)ZEBU2_SetInstanceShmThreshold(instances[i], ZEBU2_LEVEL_OFF);
    }
    const double ns = timePuts([&] { return ZEBU2_PutInstanceLine(instances.back(), 0, cs_pszText); });
    for (ZEBU2_HINSTANCE hInstance : instances)
        check(ZEBU2_DeleteInstance(hInstance), "delete");
    place.clear();
    return ns;
}

static double putAfterThreads(Place& place, long lThreads)
{
    place.start();
    route(1, true, false);
    for (long i = 0; i < lThreads; ++i)
        std::thread([] { check(putLine(), "put"); }).join();
    const double ns = timePuts(putLine);
    place.stop();
    return ns;
}

// A ring of files of 1 MiB whose current one is full to so many per cent.
static double putAtFill(Place& place, long lPercent)
{
    constexpr long lSize = 1L << 20;
    place.start(lSize, 2);
    route(1, true, false);
    for (long n = lSize / 100 * lPercent / static_cast<long>(cs_uHandLine); n > 0; --n)
        check(putLine(), "put");
    const double ns = timePuts(putLine);
    place.stop();
    return ns;
}

static double putWithSharedFiles(Place& place, long lFiles)
{
    place.startShared(1L << 18, lFiles);
    route(1, true, false);
    const double ns = timePuts(putLine);
    place.stop();
    return ns;
}

// Opening a ring whose files are all there.
static double openWithFiles(Place& place, long lFiles)
{
    const std::string prefix = place.path("app");
    for (long i = 1; i <= lFiles; ++i) {
        if (FILE* pFile = fopen((prefix + std::to_string(i) + ".log").c_str(), "w"))
            (void)fclose(pFile);
    }
    const tagZEBU_LOGFILE_SPEC ring = {cs_lBigFile, lFiles, prefix.c_str()};
    ZEBU2_HINSTANCE hInstance;
    check(ZEBU2_CreateInstance(&hInstance, nullptr, "bench") == 1 ? 0 : -1, "area"); // keeps the area open
    const double start = nowNs();
    ZEBU2_HINSTANCE hOpened;
    check(ZEBU2_CreateInstance(&hOpened, &ring, "bench"), "open");
    const double ns = nowNs() - start;
    check(ZEBU2_DeleteInstance(hOpened), "close");
    check(ZEBU2_DeleteInstance(hInstance), "delete");
    place.clear();
    return ns;
}

// Joining a shared ring that stands.
static double openSharedWithFiles(Place& place, long lFiles)
{
    place.startShared(1L << 18, lFiles);
    const std::string prefix = place.path("app");
    const tagZEBU_LOGFILE_SPEC ring = {1L << 18, lFiles, prefix.c_str()};
    const double start = nowNs();
    ZEBU2_HINSTANCE hJoined;
    check(ZEBU2_CreateInstanceM(&hJoined, &ring, "bench", 0), "join");
    const double ns = nowNs() - start;
    check(ZEBU2_DeleteInstance(hJoined), "close");
    place.stop();
    return ns;
}

static Growth grow(Place& place, const char* pszWhat, double (*measure)(Place&, long),
                   const std::vector<long>& sizes, long lRounds)
{
    std::vector<std::vector<double>> found(sizes.size());
    for (long n = 0; n < lRounds; ++n) {
        for (size_t i = 0; i < sizes.size(); ++i)
            found[i].push_back(measure(place, sizes[i]));
    }
    Growth growth = {pszWhat, {}};
    for (size_t i = 0; i < sizes.size(); ++i)
        growth.sizes.emplace_back(sizes[i], median(found[i]));
    return growth;
}

std::vector<Growth> measureGrowth(Place& place, long lRounds)
{
    return {
        grow(place, "put, ns, by files of the ring", putWithFiles, {1, 4, 16}, lRounds),
        grow(place, "put, shared ring, ns, by files of the ring", putWithSharedFiles, {1, 4, 16, 64},
             lRounds),
        grow(place, "put, ns, by instances of the process", putWithInstances, {1, 10, 100, 1000}, lRounds),
        grow(place, "put, ns, by threads that came and went", putAfterThreads, {1, 10, 100, 1000}, lRounds),
        grow(place, "put, ns, by fill of the current file, %", putAtFill, {0, 25, 50, 90}, lRounds),
        grow(place, "opening, ns, by files of the ring", openWithFiles, {1, 4, 16}, lRounds),
        grow(place, "opening a shared ring, ns, by its files", openSharedWithFiles, {1, 4, 16, 64}, lRounds),
    };
}
