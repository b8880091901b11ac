// Long and rough runs of the library, in short form among the tests and in long form by hand.
//
//   zebu_stress kill (single|shared|area) [kills]   writers that are killed at any moment
//   zebu_stress soak [times]                        nothing may grow, however long it runs
#include <malloc.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <thread>

#include "support/AreaConsumer.h"

namespace {

// A directory of its own, and a configuration that puts the trace area there.
struct Place
{
    std::string dir = std::filesystem::temp_directory_path() / "zebu-stress-XXXXXX";

    Place()
    {
        CHECK(mkdtemp(dir.data()));
        writeFile(dir + "/test.cnf", "LogFile = " + dir + "/log\n");
        CHECK(setenv("ZEBU2_TRACECNF_FILE", (dir + "/test.cnf").c_str(), 1) == 0);
    }
    ~Place() { std::filesystem::remove_all(dir); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    std::string areaFile() const { return dir + "/mmap/zebu2mmap.mm"; }
};

// ---- Killed writers ------------------------------------------------------------------------------

enum class Target { Single, Shared, Area };

using Clock = std::chrono::steady_clock;

constexpr int cs_iWriters = 3;
constexpr int cs_iLinesMax = 500; // of one writer, which then waits for its end: no ring comes round

class KillRun
{
public:
    KillRun(Target eTarget, int iKills) : m_eTarget(eTarget), m_iKills(iKills)
    {
        const size_t uSize = static_cast<size_t>(iKills + cs_iWriters) * sizeof(Acknowledged);
        void* p = mmap(nullptr, uSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        CHECK(p != MAP_FAILED);
        m_pAcknowledged = static_cast<Acknowledged*>(p);
    }

    int run()
    {
        // The area exists before the consumer maps it.
        CHECK(inChild([] { CHECK(ZEBU2_Initialize(nullptr, nullptr) == 1); }) == 0);
        AreaConsumer consumer(m_place.areaFile());
        pid_t writers[cs_iWriters];
        for (int w = 0; w < cs_iWriters; ++w)
            writers[w] = start(w);
        std::mt19937 random(static_cast<unsigned int>(m_iKills));
        for (int k = 0; k < m_iKills; ++k) {
            const auto until = Clock::now() + std::chrono::microseconds(50 + random() % 1500);
            while (Clock::now() < until)
                consumer.drain();
            const auto w = random() % cs_iWriters;
            end(writers[w]);
            writers[w] = start(static_cast<int>(w));
        }
        for (const pid_t writer : writers)
            end(writer);
        consumer.drain();
        return check(consumer);
    }

private:
    using Acknowledged = unsigned char[cs_iLinesMax]; // by line

    static std::string sender(int iIncarnation) { return "w" + std::to_string(iIncarnation); }
    std::string prefix(int w) const
    {
        return m_place.dir + (m_eTarget == Target::Shared ? "/all" : "/own" + std::to_string(w) + "-");
    }

    static void end(pid_t iWriter)
    {
        CHECK(kill(iWriter, SIGKILL) == 0);
        CHECK(waitForChild(iWriter) == 128 + SIGKILL); // not ended by itself, that is by a CHECK
    }

    pid_t start(int w)
    {
        const int iIncarnation = m_iIncarnations++;
        return startChild([this, w, iIncarnation] { write(w, iIncarnation); });
    }

    // The next open works, whatever the one before was doing when it died.
    void open(int w) const
    {
        const std::string name = prefix(w);
        const tagZEBU_LOGFILE_SPEC ring = {1 << 20, m_eTarget == Target::Shared ? 64 : 16, name.c_str()};
        CHECK(ZEBU2_SetLockRetryTimes(5000) >= 0); // the attempts of three writers on two processors
        if (m_eTarget == Target::Shared)
            CHECK(ZEBU2_InitializeM(&ring, "stress", ZEBU2_OPT_NOFILL | ZEBU2_OPT_CURRENT_ONLY) == 0);
        else
            CHECK(ZEBU2_Initialize(&ring, "stress") == 0);
    }

    void write(int w, int iIncarnation) const
    {
        open(w);
        ZEBU2_SetShmThreshold(ZEBU2_LEVEL_OFF);
        for (int i = 0; i < cs_iLinesMax; ++i) {
            const std::string text = areaMessage(sender(iIncarnation), i);
            // Of the area, only the signal-safe put tells whether the line found room.
            const bool bArea = m_eTarget == Target::Area;
            const int iResult = bArea ? ZEBU2_PutMsgSigSafe(text.c_str()) : ZEBU2_PutLine(0, text.c_str());
            CHECK(bArea || iResult == 0);
            m_pAcknowledged[iIncarnation][i] = iResult == 0;
        }
        for (;;)
            pause();
    }

    // Adds the lines of a ring's files to those of the area; counts what is no whole line.
    int readRings(std::map<std::string, int>* pSeen) const
    {
        int iTorn = 0;
        for (const auto& entry : std::filesystem::directory_iterator(m_place.dir)) {
            if (entry.path().extension() != ".log")
                continue;
            std::string bytes = readFile(entry.path());
            if (m_eTarget == Target::Shared)
                bytes = bytes.substr(0, bytes.starts_with('\x1A') ? 0 : bytes.find("\r\n\x1A") + 2);
            for (const std::string& line : traceLines(bytes)) {
                const std::string whole = areaSender(body(line));
                ++(whole.empty() ? iTorn : (*pSeen)[whole]);
            }
        }
        return iTorn;
    }

    int check(AreaConsumer& consumer)
    {
        const int iTorn = consumer.m_torn + readRings(&consumer.m_seen);
        int iLost = 0, iTwice = 0, iAcknowledged = 0;
        for (int i = 0; i < m_iIncarnations; ++i) {
            for (int n = 0; n < cs_iLinesMax; ++n) {
                const auto seen = consumer.m_seen.find(sender(i) + " " + std::to_string(n));
                const int iCount = seen == consumer.m_seen.end() ? 0 : seen->second;
                iAcknowledged += m_pAcknowledged[i][n];
                iLost += m_pAcknowledged[i][n] && iCount == 0 ? 1 : 0;
                iTwice += iCount > 1 ? 1 : 0;
            }
        }
        (void)printf("%d kills, %d lines acknowledged: %d lost, %d twice, %d torn\n", m_iKills, iAcknowledged,
                     iLost, iTwice, iTorn);
        // The kernel ends the write of a process that is killed at the next page, so each may leave the piece
        // of one line that was never acknowledged. Lines of the others go through a mapping and a mark.
        const int iTornMax = m_eTarget == Target::Single ? m_iKills : 0;
        return iLost + iTwice == 0 && iTorn <= iTornMax && iAcknowledged > m_iKills ? 0 : 1;
    }

    const Target m_eTarget;
    const int m_iKills;
    const Place m_place;
    Acknowledged* m_pAcknowledged;
    int m_iIncarnations = 0;
};

// ---- What must not grow --------------------------------------------------------------------------

struct Usage
{
    long lMemory, lDescriptors, lMappings;

    static Usage now()
    {
        const struct mallinfo2 info = mallinfo2();
        const std::string maps = readFile("/proc/self/maps");
        Usage usage = {static_cast<long>(info.uordblks + info.hblkhd), 0,
                       std::count(maps.begin(), maps.end(), '\n')};
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
            usage.lDescriptors += entry.path().empty() ? 0 : 1;
        return usage;
    }
};

// A sanitizer makes mappings of its own as it goes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long cs_lOwnMappings = 40;
#else
constexpr long cs_lOwnMappings = 0;
#endif

// Runs a step often enough to reach its steady state, then `iTimes` times more.
template <class Step>
int soak(const char* pszWhat, int iTimes, Step step)
{
    for (int i = 0; i < iTimes / 10; ++i)
        step();
    const Usage before = Usage::now();
    for (int i = 0; i < iTimes; ++i)
        step();
    const Usage after = Usage::now();
    const bool bFlat = after.lMemory - before.lMemory <= 4096 && after.lDescriptors == before.lDescriptors &&
                       after.lMappings <= before.lMappings + cs_lOwnMappings;
    (void)printf("%-30s %8d times: memory %ld to %ld, descriptors %ld to %ld, mappings %ld to %ld%s\n",
                 pszWhat, iTimes, before.lMemory, after.lMemory, before.lDescriptors, after.lDescriptors,
                 before.lMappings, after.lMappings, bFlat ? "" : "  GROWS");
    return bFlat ? 0 : 1;
}

int soakAll(int iTimes)
{
    const Place place;
    const std::string own = place.dir + "/own", all = place.dir + "/all";
    const tagZEBU_LOGFILE_SPEC ownRing = {1 << 20, 3, own.c_str()}, allRing = {1 << 16, 3, all.c_str()};
    const auto put = [] { CHECK(ZEBU2_PutWithId(0, "ID", "a line like any other") == 0); };
    int iGrown = 0;
    CHECK(ZEBU2_Initialize(&ownRing, "soak") == 0);
    iGrown += soak("puts to a ring of one process", 200'000 * iTimes, put);
    CHECK(ZEBU2_Finalize() == 0);
    CHECK(ZEBU2_InitializeM(&allRing, "soak", 0) == 0);
    iGrown += soak("puts to a shared ring", 200'000 * iTimes, put);
    iGrown += soak("threads", 500 * iTimes,
                   [] { std::thread([] { CHECK(ZEBU2_PutLine(0, "thread") == 0); }).join(); });
    CHECK(ZEBU2_Finalize() == 0);
    iGrown += soak("starts and stops", 500 * iTimes, [&, i = 0]() mutable {
        CHECK((++i % 2 == 0 ? ZEBU2_Initialize(&ownRing, "soak") : ZEBU2_InitializeM(&allRing, "soak", 0)) ==
              0);
        CHECK(ZEBU2_PutLine(0, "line") == 0);
        CHECK(ZEBU2_Finalize() == 0);
    });
    iGrown += soak("instances", 500 * iTimes, [&, i = 0]() mutable {
        ZEBU2_HINSTANCE hInstance = nullptr;
        CHECK((++i % 2 == 0 ? ZEBU2_CreateInstance(&hInstance, &ownRing, "soak")
                            : ZEBU2_CreateInstanceM(&hInstance, &allRing, "soak", 0)) == 0);
        CHECK(ZEBU2_PutInstanceLine(hInstance, 0, "line") == 0);
        CHECK(ZEBU2_DeleteInstance(hInstance) == 0);
    });
    CHECK(ZEBU2_EndLibrary() == 0);
    return iGrown == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "", target = argc > 2 ? argv[2] : "";
    if (what == "soak")
        return soakAll(argc > 2 ? atoi(argv[2]) : 1);
    const std::map<std::string, Target> targets = {
        {"single", Target::Single}, {"shared", Target::Shared}, {"area", Target::Area}};
    if (what == "kill" && targets.contains(target))
        return KillRun(targets.at(target), argc > 3 ? atoi(argv[3]) : 100).run();
    (void)fprintf(stderr, "usage: %s kill (single|shared|area) [kills] | soak [times]\n", argv[0]);
    return 2;
}
