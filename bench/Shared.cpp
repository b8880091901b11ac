// bench/Shared.cpp -- rings that several processes share: one process and several, and moving on.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <initializer_list>
#include <memory>

#include "Groups.h"
#include "HandShared.h"

constexpr long cs_lSharedSize = 16777216;
constexpr uint32_t cs_uSharedFiles = 2;
constexpr long cs_lSwitchSize = 262144;

static void handPut(HandShared& ring)
{
    size_t uLength;
    const char* pLine = handLine(cs_pszText, Stamp::Clock, &uLength);
    const HandMutex lock;
    ring.put(pLine, uLength);
}

// ---- One process ---------------------------------------------------------------------------------

namespace {

struct Rings
{
    std::unique_ptr<HandShared> limit;
    std::unique_ptr<HandShared> hand;
    int iFd = -1;
};

} // namespace

static std::shared_ptr<Rings> startWith(Group& group, Place& place, long lSize)
{
    const auto rings = std::make_shared<Rings>();
    group.begin = [&place, rings, lSize] {
        place.startShared(lSize, cs_uSharedFiles);
        route(1, true, false);
        rings->limit = std::make_unique<HandShared>(place.path("limit"), lSize, cs_uSharedFiles);
        rings->hand = std::make_unique<HandShared>(place.path("hand"), lSize, cs_uSharedFiles);
        rings->iFd = open(place.path("hand1.log").c_str(), O_RDONLY | O_CLOEXEC);
    };
    group.end = [&place, rings] {
        rings->limit.reset();
        rings->hand.reset();
        (void)close(rings->iFd);
        place.stop();
    };
    return rings;
}

static Group shared(Place& place)
{
    Group group = {"shared", "shared ring, 1 process", 500, {{Kind::ByHand, 1.10, 3}}, nullptr, nullptr};
    const auto rings = startWith(group, place, cs_lSharedSize);
    group.rows.push_back({"stat, lock, copy, unlock", Kind::Limit, times([rings] {
                              static const char szLine[cs_uHandLine] = {};
                              rings->limit->put(szLine, sizeof szLine);
                          })});
    group.rows.push_back({"by hand", Kind::ByHand, times([rings] { handPut(*rings->hand); })});
    group.rows.push_back({"ZEBU2_PutLine", Kind::Product, times([] { (void)ZEBU2_PutLine(1, cs_pszText); })});
    group.rows.push_back({"one fstat", Kind::Piece, times([rings] {
                              struct stat info;
                              (void)fstat(rings->iFd, &info);
                          })});
    addPeersShared(group, place);
    return group;
}

// ---- Moving on -----------------------------------------------------------------------------------

static double timeHandSwitch(HandShared& ring)
{
    static const char szLine[cs_uHandLine] = {};
    while (!ring.full(sizeof szLine))
        ring.put(szLine, sizeof szLine);
    const double start = nowNs();
    ring.put(szLine, sizeof szLine);
    return nowNs() - start;
}

namespace {

// The record of the library's ring, to see when the next line opens a file.
class Record
{
public:
    explicit Record(const std::string& path)
    {
        const int iFd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        void* p = mmap(nullptr, 64, PROT_READ, MAP_SHARED, iFd, 0);
        if (p == MAP_FAILED)
            exit(2);
        m_words = static_cast<const uint32_t*>(p);
        // The descriptor stays open: closing it would give up the library's lock on the file.
    }
    ~Record() { (void)munmap(const_cast<uint32_t*>(m_words), 64); }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    bool full(size_t uLength) const { return m_words[4] + uLength + 48 > m_words[2]; }

private:
    const uint32_t* m_words;
};

} // namespace

static double timeSwitch(const Record& record)
{
    while (!record.full(cs_uHandLine))
        (void)ZEBU2_PutLine(1, cs_pszText);
    const double start = nowNs();
    (void)ZEBU2_PutLine(1, cs_pszText);
    return nowNs() - start;
}

static Group sharedSwitch(Place& place)
{
    Group group = {
        "shared-switch", "shared switch, files of 256 KiB made before", 1, {{Kind::Limit, 1.5}}, nullptr,
        nullptr};
    const auto rings = startWith(group, place, cs_lSwitchSize);
    const auto record = std::make_shared<std::unique_ptr<Record>>();
    group.begin = [begin = group.begin, &place, record] {
        begin();
        *record = std::make_unique<Record>(place.path("mmap/app.mm"));
    };
    group.end = [end = group.end, record] {
        record->reset();
        end();
    };
    group.rows.push_back(
        {"its system calls by hand", Kind::Limit, nullptr, [rings] { return timeHandSwitch(*rings->hand); }});
    group.rows.push_back(
        {"ZEBU2_PutLine", Kind::Product, nullptr, [record] { return timeSwitch(**record); }});
    return group;
}

// ---- Several processes ---------------------------------------------------------------------------

namespace {

// Child processes that do the same work at the same time whenever they are told to.
class Fleet
{
public:
    // `setUp` runs in each child and gives the work.
    Fleet(int iProcesses, const std::function<std::function<bool()>()>& setUp)
    {
        void* p = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        m_board = static_cast<Board*>(p);
        pthread_barrierattr_t attributes;
        pthread_barrierattr_init(&attributes);
        pthread_barrierattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        pthread_barrier_init(&m_board->start, &attributes, static_cast<unsigned>(iProcesses) + 1);
        pthread_barrier_init(&m_board->stop, &attributes, static_cast<unsigned>(iProcesses) + 1);
        for (int i = 0; i < iProcesses; ++i) {
            const pid_t iChild = fork();
            if (iChild == 0) {
                (void)atexit([] { (void)kill(getppid(), SIGTERM); }); // a failed child is waited for in vain
                serve(setUp());
            }
            m_children.push_back(iChild);
        }
    }

    ~Fleet()
    {
        m_board->lShare = 0;
        pthread_barrier_wait(&m_board->start);
        for (const pid_t iChild : m_children)
            (void)waitpid(iChild, nullptr, 0);
        (void)munmap(m_board, sizeof(Board));
    }

    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    void run(long n)
    {
        m_board->lShare = n / static_cast<long>(m_children.size());
        pthread_barrier_wait(&m_board->start);
        pthread_barrier_wait(&m_board->stop);
    }

    long refused() const { return m_board->lRefused; }

private:
    struct Board
    {
        pthread_barrier_t start, stop;
        long lShare;
        long lRefused;
    };

    [[noreturn]] void serve(const std::function<bool()>& put)
    {
        for (;;) {
            pthread_barrier_wait(&m_board->start);
            if (m_board->lShare == 0)
                _exit(0);
            long lRefused = 0;
            for (long i = 0; i < m_board->lShare; ++i)
                lRefused += put() ? 0 : 1;
            __atomic_fetch_add(&m_board->lRefused, lRefused, __ATOMIC_RELAXED);
            pthread_barrier_wait(&m_board->stop);
        }
    }

    Board* m_board;
    std::vector<pid_t> m_children;
};

struct Fleets
{
    std::unique_ptr<Fleet> hand;
    std::unique_ptr<Fleet> product;
};

} // namespace

static std::function<bool()> setUpHand(Place& place)
{
    const auto ring = std::make_shared<HandShared>(place.path("hand"), cs_lSharedSize, cs_uSharedFiles, true);
    return [ring] {
        handPut(*ring);
        return true;
    };
}

static std::function<bool()> setUpProduct(Place& place)
{
    place.startShared(cs_lSharedSize, cs_uSharedFiles);
    route(1, true, false);
    return [] { return ZEBU2_PutLine(1, cs_pszText) == 0; };
}

static Group processes(Place& place, int iProcesses)
{
    const auto fleets = std::make_shared<Fleets>();
    const std::string count = std::to_string(iProcesses);
    Group group = {"shared-processes-" + count,
                   "shared ring, " + count + (iProcesses == 1 ? " process" : " processes"),
                   4000,
                   {{Kind::ByHand, 1 / 0.9}},
                   [&place, fleets, iProcesses] {
                       { // the files are there before anybody joins
                           const HandShared files(place.path("hand"), cs_lSharedSize, cs_uSharedFiles);
                       }
                       fleets->hand =
                           std::make_unique<Fleet>(iProcesses, [&place] { return setUpHand(place); });
                       fleets->product =
                           std::make_unique<Fleet>(iProcesses, [&place] { return setUpProduct(place); });
                   },
                   nullptr};
    group.throughput = true;
    const auto remark = std::make_shared<std::string>();
    group.remark = remark;
    group.end = [&place, fleets, remark, title = group.title] {
        *remark = title + ": " + std::to_string(fleets->product->refused()) + " lines of the library refused";
        fleets->hand.reset();
        fleets->product.reset();
        place.clear();
    };
    group.rows.push_back(
        {"by hand, the same calls", Kind::ByHand, [fleets](long n) { fleets->hand->run(n); }});
    group.rows.push_back({"ZEBU2_PutLine", Kind::Product, [fleets](long n) { fleets->product->run(n); }});
    return group;
}

// The children have the two areas from before they were forked. Each empties them now and then, so that the
// lines of all find room.
static std::function<bool()> emptying(HandArea& area, const std::function<void()>& put)
{
    return [&area, put, lLines = 0L]() mutable {
        if (lLines++ % 64 == 0)
            area.drain();
        put();
        return true;
    };
}

static Group areaProcesses(Place& place, int iProcesses)
{
    const auto fleets = std::make_shared<Fleets>();
    const std::string count = std::to_string(iProcesses);
    Group group = {"area-processes-" + count,
                   count + " processes, one area",
                   8000,
                   {{Kind::ByHand, 1 / 0.9}},
                   [&place, fleets, iProcesses] {
                       place.start();
                       route(1, false, true);
                       fleets->hand = std::make_unique<Fleet>(iProcesses, [&place] {
                           return emptying(place.handArea(), [&place] {
                               size_t uLength;
                               const char* pLine = handLine(cs_pszText, Stamp::Clock, &uLength);
                               place.handArea().appendGuarded(pLine, static_cast<uint32_t>(uLength));
                           });
                       });
                       fleets->product = std::make_unique<Fleet>(iProcesses, [&place] {
                           return emptying(place.area(), [] { (void)ZEBU2_PutLine(1, cs_pszText); });
                       });
                   },
                   [&place, fleets] {
                       fleets->hand.reset();
                       fleets->product.reset();
                       place.stop();
                   }};
    group.throughput = true;
    group.rows.push_back(
        {"by hand, safe between processes", Kind::ByHand, [fleets](long n) { fleets->hand->run(n); }});
    group.rows.push_back({"ZEBU2_PutLine", Kind::Product, [fleets](long n) { fleets->product->run(n); }});
    return group;
}

void addShared(std::vector<Group>& groups, Place& place)
{
    groups.push_back(shared(place));
    groups.push_back(sharedSwitch(place));
    for (int iProcesses : {1, 4})
        groups.push_back(processes(place, iProcesses));
    groups.push_back(areaProcesses(place, 4));
}
