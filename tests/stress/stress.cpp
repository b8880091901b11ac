// Long and rough runs of the library, for scripts/soak: what takes chance and time to find. What is known of
// killed writers and interrupted appends, the tests step through.
//
//   zebu_stress kill (single|shared|area) [kills]   writers that are killed at any moment
//   zebu_stress soak [times]                        nothing may grow, however long it runs
#include <malloc.h>
#include <sys/time.h>

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

constexpr int cs_iWriters = 3;
constexpr int cs_iLinesMax = 500; // of one writer, which then waits for its end: no ring comes round

// The lines of a writer. One of the area is interrupted by a handler that puts the next of them; there, only
// the signal-safe put tells whether the line found room.
Lines cs_texts;
unsigned char* cs_pAcknowledged;
std::atomic<int> cs_iNext{0};
bool cs_bArea;

void putNext(int = 0)
{
    const int i = cs_iNext++;
    if (i >= cs_iLinesMax)
        return;
    const char* pszText = cs_texts[static_cast<size_t>(i)].c_str();
    cs_pAcknowledged[i] = (cs_bArea ? ZEBU2_PutMsgSigSafe(pszText) : ZEBU2_PutLine(0, pszText)) == 0;
    CHECK(cs_bArea || cs_pAcknowledged[i]);
}

// Opens what a writer before may have left in any state, puts lines and notes which were acknowledged.
void write(const Place& place, const std::string& target, long lWriter, int iIncarnation,
           unsigned char* pAcknowledged)
{
    const bool bShared = target == "shared";
    const std::string name = place.path(bShared ? "all" : "own" + std::to_string(lWriter) + "-");
    const tagZEBU_LOGFILE_SPEC ring = {1 << 20, bShared ? 64 : 16, name.c_str()};
    CHECK(ZEBU2_SetLockRetryTimes(5000) >= 0); // the attempts of three writers on two processors
    CHECK((bShared ? ZEBU2_InitializeM(&ring, "stress", ZEBU2_OPT_NOFILL | ZEBU2_OPT_CURRENT_ONLY)
                   : ZEBU2_Initialize(&ring, "stress")) == 0);
    ZEBU2_SetShmThreshold(ZEBU2_LEVEL_OFF);
    for (int i = 0; i < cs_iLinesMax; ++i)
        cs_texts.push_back(areaMessage(std::to_string(iIncarnation), i));
    cs_pAcknowledged = pAcknowledged;
    cs_bArea = target == "area";
    const itimerval every = {{0, 97}, {0, 97}};
    CHECK(!cs_bArea || (signal(SIGALRM, putNext) != SIG_ERR && setitimer(ITIMER_REAL, &every, nullptr) == 0));
    while (cs_iNext < cs_iLinesMax)
        putNext();
    for (;;)
        pause();
}

int killWriters(const std::string& target, int iKills)
{
    const Place place;
    const int iLines = (iKills + cs_iWriters) * cs_iLinesMax;
    auto* const pAcknowledged = static_cast<unsigned char*>(mmap(
        nullptr, static_cast<size_t>(iLines), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    CHECK(pAcknowledged != MAP_FAILED);
    // The area exists before the consumer maps it.
    CHECK(inChild([] { CHECK(ZEBU2_Initialize(nullptr, nullptr) == 1); }) == 0);
    AreaConsumer consumer(place.areaFile());
    pid_t writers[cs_iWriters] = {};
    std::mt19937 random(static_cast<unsigned int>(iKills));
    for (int k = 0; k < iKills + 2 * cs_iWriters; ++k) { // each starts at first, and is not replaced at last
        const bool bFirst = k < cs_iWriters, bLast = k >= iKills + cs_iWriters;
        pid_t& writer =
            writers[bFirst || bLast ? static_cast<unsigned>(k % cs_iWriters) : random() % cs_iWriters];
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(50 + random() % 1500);
        while (std::chrono::steady_clock::now() < until)
            consumer.drain();
        CHECK(bFirst || (kill(writer, SIGKILL) == 0 && waitForChild(writer) == 128 + SIGKILL)); // by no CHECK
        if (!bLast)
            writer = startChild(
                [&] { write(place, target, &writer - writers, k, pAcknowledged + k * cs_iLinesMax); });
    }
    consumer.drain();
    // The lines of the rings' files join those of the area.
    for (const auto& entry : std::filesystem::directory_iterator(place.path(""))) {
        const std::string bytes = entry.path().extension() == ".log" ? readFile(entry.path()) : "";
        for (const std::string& line : traceLines(target == "shared" ? sharedData(bytes) : bytes))
            consumer.count(line);
    }
    int iLost = 0, iTwice = 0, iAcknowledged = 0;
    for (int i = 0; i < iLines; ++i) {
        const std::string line = std::to_string(i / cs_iLinesMax) + " " + std::to_string(i % cs_iLinesMax);
        const int iCount = consumer.m_seen[line];
        iAcknowledged += pAcknowledged[i];
        iLost += pAcknowledged[i] && iCount == 0;
        iTwice += iCount > 1;
    }
    (void)printf("%d kills, %d lines acknowledged: %d lost, %d twice, %d torn\n", iKills, iAcknowledged,
                 iLost, iTwice, consumer.m_iTorn);
    // The kernel ends the write of a process that is killed at the next page, so each may leave the piece of
    // one line that was never acknowledged. Lines of the others go through a mapping and a mark.
    const int iTornMax = target == "single" ? iKills + cs_iWriters : 0;
    return iLost + iTwice == 0 && consumer.m_iTorn <= iTornMax && iAcknowledged > iKills ? 0 : 1;
}

// Memory, descriptors and mappings in use.
std::tuple<long, long, long> usage()
{
    const struct mallinfo2 info = mallinfo2();
    const std::string maps = readFile("/proc/self/maps");
    return {static_cast<long>(info.uordblks + info.hblkhd), openDescriptors(),
            std::count(maps.begin(), maps.end(), '\n')};
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
    const auto [lMemory, lDescriptors, lMappings] = usage();
    for (int i = 0; i < iTimes; ++i)
        once(i % 2);
    const auto [lMemoryThen, lDescriptorsThen, lMappingsThen] = usage();
    (void)printf("%d times: memory %ld to %ld, descriptors %ld to %ld, mappings %ld to %ld\n", iTimes,
                 lMemory, lMemoryThen, lDescriptors, lDescriptorsThen, lMappings, lMappingsThen);
    CHECK(ZEBU2_EndLibrary() == 0);
    CHECK(lMemoryThen <= lMemory + 4096 && lDescriptorsThen == lDescriptors && lMappingsThen <= lMappings);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "", target = argc > 2 ? argv[2] : "";
    if (what == "soak")
        return soak(1000 * (argc > 2 ? atoi(argv[2]) : 1));
    if (what == "kill" && (target == "single" || target == "shared" || target == "area"))
        return killWriters(target, argc > 3 ? atoi(argv[3]) : 100);
    (void)fprintf(stderr, "usage: %s kill (single|shared|area) [kills] | soak [times]\n", argv[0]);
    return 2;
}
