// Long and rough runs of the library, for scripts/soak: what takes chance and time to find. What is known of
// killed writers and interrupted appends, the tests step through.
//
//   zebu_stress kill (single|shared|area) [kills]   writers that are killed at any moment
//   zebu_stress soak [times]                        nothing may grow, however long it runs
#include <malloc.h>

#include <random>

#include "support/AreaConsumer.h"

namespace {

// The directory and the configuration of a test, for a run of its own.
class Place : public Sandbox
{
public:
    using Sandbox::areaFile;
    using Sandbox::path;

private:
    void TestBody() override {}
};

// ---- Killed writers ------------------------------------------------------------------------------

constexpr int cs_iWriters = 3;
constexpr int cs_iLinesMax = 500; // of one writer, which then waits for its end: no ring comes round

class KillRun
{
public:
    KillRun(const std::string& target, int iKills)
        : m_bShared(target == "shared"), m_bArea(target == "area"), m_iKills(iKills)
    {
        CHECK(m_pAcknowledged != MAP_FAILED);
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
        using Clock = std::chrono::steady_clock;
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

    void write(int w, int iIncarnation) const
    {
        // The open works, whatever the writer before was doing when it died.
        const std::string name = m_place.path(m_bShared ? "all" : "own" + std::to_string(w) + "-");
        const tagZEBU_LOGFILE_SPEC ring = {1 << 20, m_bShared ? 64 : 16, name.c_str()};
        const int iOption = ZEBU2_OPT_NOFILL | ZEBU2_OPT_CURRENT_ONLY;
        CHECK(ZEBU2_SetLockRetryTimes(5000) >= 0); // the attempts of three writers on two processors
        CHECK((m_bShared ? ZEBU2_InitializeM(&ring, "stress", iOption) : ZEBU2_Initialize(&ring, "stress")) ==
              0);
        ZEBU2_SetShmThreshold(ZEBU2_LEVEL_OFF);
        for (int i = 0; i < cs_iLinesMax; ++i) {
            const std::string text = areaMessage(std::to_string(iIncarnation), i);
            // Of the area, only the signal-safe put tells whether the line found room.
            const int iResult = m_bArea ? ZEBU2_PutMsgSigSafe(text.c_str()) : ZEBU2_PutLine(0, text.c_str());
            CHECK(m_bArea || iResult == 0);
            m_pAcknowledged[iIncarnation][i] = iResult == 0;
        }
        for (;;)
            pause();
    }

    int check(AreaConsumer& consumer) const
    {
        // The lines of the rings' files join those of the area.
        for (const auto& entry : std::filesystem::directory_iterator(m_place.path(""))) {
            std::string bytes = entry.path().extension() == ".log" ? readFile(entry.path()) : "";
            if (m_bShared)
                bytes = sharedData(bytes);
            for (const std::string& line : traceLines(bytes)) {
                const std::string whole = areaSender(body(line));
                ++(whole.empty() ? consumer.m_torn : consumer.m_seen[whole]);
            }
        }
        int iLost = 0, iTwice = 0, iAcknowledged = 0;
        for (int i = 0; i < m_iIncarnations; ++i) {
            for (int n = 0; n < cs_iLinesMax; ++n) {
                const int iCount = consumer.m_seen[std::to_string(i) + " " + std::to_string(n)];
                iAcknowledged += m_pAcknowledged[i][n];
                iLost += m_pAcknowledged[i][n] && iCount == 0;
                iTwice += iCount > 1;
            }
        }
        (void)printf("%d kills, %d lines acknowledged: %d lost, %d twice, %d torn\n", m_iKills, iAcknowledged,
                     iLost, iTwice, consumer.m_torn);
        // The kernel ends the write of a process that is killed at the next page, so each may leave the piece
        // of one line that was never acknowledged. Lines of the others go through a mapping and a mark.
        const int iTornMax = m_bShared || m_bArea ? 0 : m_iKills;
        return iLost + iTwice == 0 && consumer.m_torn <= iTornMax && iAcknowledged > m_iKills ? 0 : 1;
    }

    const bool m_bShared, m_bArea;
    const int m_iKills;
    const Place m_place;
    Acknowledged* const m_pAcknowledged = static_cast<Acknowledged*>( // shared with the writers
        mmap(nullptr, static_cast<size_t>(m_iKills + cs_iWriters) * sizeof(Acknowledged),
             PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int m_iIncarnations = 0;
};

// ---- What must not grow --------------------------------------------------------------------------

// A sanitizer makes mappings of its own as it goes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long cs_lOwnMappings = 40;
#else
constexpr long cs_lOwnMappings = 0;
#endif

struct Usage
{
    long lMemory, lDescriptors, lMappings;
};

Usage usage()
{
    const struct mallinfo2 info = mallinfo2();
    const std::string maps = readFile("/proc/self/maps");
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return {static_cast<long>(info.uordblks + info.hblkhd),
            std::distance(begin(descriptors), end(descriptors)), std::count(maps.begin(), maps.end(), '\n')};
}

// All that a process does again and again: to its steady state, then `iTimes` times more.
int soak(int iTimes)
{
    const Place place;
    const std::string own = place.path("own"), all = place.path("all");
    const tagZEBU_LOGFILE_SPEC ownRing = {1 << 20, 3, own.c_str()}, allRing = {1 << 16, 3, all.c_str()};
    const auto put = [] { CHECK(ZEBU2_PutWithId(0, "ID", "a line like any other") == 0); };
    const auto once = [&](bool bOwn) {
        ZEBU2_HINSTANCE hInstance = nullptr;
        CHECK((bOwn ? ZEBU2_Initialize(&ownRing, "soak") : ZEBU2_InitializeM(&allRing, "soak", 0)) == 0);
        CHECK((bOwn ? ZEBU2_CreateInstanceM(&hInstance, &allRing, "soak", 0)
                    : ZEBU2_CreateInstance(&hInstance, &ownRing, "soak")) == 0);
        std::thread(put).join();
        for (int i = 0; i < 500; ++i)
            put();
        CHECK(ZEBU2_PutInstanceLine(hInstance, 0, "line") == 0);
        CHECK(ZEBU2_DeleteInstance(hInstance) == 0 && ZEBU2_Finalize() == 0);
    };
    for (int i = 0; i < iTimes / 10; ++i)
        once(i % 2);
    (void)usage(); // which leaves something behind itself
    const Usage before = usage();
    for (int i = 0; i < iTimes; ++i)
        once(i % 2);
    const Usage after = usage();
    CHECK(ZEBU2_EndLibrary() == 0);
    (void)printf("%d times: memory %ld to %ld, descriptors %ld to %ld, mappings %ld to %ld\n", iTimes,
                 before.lMemory, after.lMemory, before.lDescriptors, after.lDescriptors, before.lMappings,
                 after.lMappings);
    CHECK(after.lMemory <= before.lMemory + 4096 && after.lDescriptors == before.lDescriptors);
    CHECK(after.lMappings <= before.lMappings + cs_lOwnMappings);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "", target = argc > 2 ? argv[2] : "";
    if (what == "soak")
        return soak(1000 * (argc > 2 ? atoi(argv[2]) : 1));
    if (what == "kill" && (target == "single" || target == "shared" || target == "area"))
        return KillRun(target, argc > 3 ? atoi(argv[3]) : 100).run();
    (void)fprintf(stderr, "usage: %s kill (single|shared|area) [kills] | soak [times]\n", argv[0]);
    return 2;
}
