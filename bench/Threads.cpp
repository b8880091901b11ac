// bench/Threads.cpp -- several threads at once: the library beside the same work by hand.
#include <fcntl.h>
#include <pthread.h>

#include <atomic>
#include <initializer_list>
#include <memory>
#include <thread>

#include "Groups.h"

namespace {

// Threads that stay, so that a round does not measure how threads are started.
class Crew
{
public:
    explicit Crew(int iThreads)
    {
        pthread_barrier_init(&m_start, nullptr, static_cast<unsigned>(iThreads) + 1);
        pthread_barrier_init(&m_stop, nullptr, static_cast<unsigned>(iThreads) + 1);
        for (int i = 0; i < iThreads; ++i)
            m_threads.emplace_back([this] { serve(); });
    }

    ~Crew()
    {
        m_work = nullptr;
        pthread_barrier_wait(&m_start);
        for (std::thread& thread : m_threads)
            thread.join();
        pthread_barrier_destroy(&m_start);
        pthread_barrier_destroy(&m_stop);
    }

    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    // Does the work n times in all, in equal parts.
    void run(const std::function<void(long)>& work, long n)
    {
        m_work = &work;
        m_share = n / static_cast<long>(m_threads.size());
        pthread_barrier_wait(&m_start);
        pthread_barrier_wait(&m_stop);
    }

private:
    void serve()
    {
        for (;;) {
            pthread_barrier_wait(&m_start);
            if (!m_work)
                return;
            (*m_work)(m_share);
            pthread_barrier_wait(&m_stop);
        }
    }

    std::vector<std::thread> m_threads;
    pthread_barrier_t m_start, m_stop;
    const std::function<void(long)>* m_work = nullptr;
    long m_share = 0;
};

struct Threads
{
    std::unique_ptr<Crew> crew;
    std::unique_ptr<HandRing> handRing;
};

} // namespace

static Row row(const char* pszName, Kind kind, const std::shared_ptr<Threads>& threads,
               std::function<void(long)> work)
{
    return {pszName, kind, [threads, work](long n) { threads->crew->run(work, n); }};
}

static Group fileThreads(Place& place, int iThreads)
{
    const auto threads = std::make_shared<Threads>();
    const std::string count = std::to_string(iThreads);
    Group group = {"file-threads-" + count,
                   "single ring, " + count + (iThreads == 1 ? " thread" : " threads"),
                   8000,
                   {{Kind::ByHand, 1 / 0.9}},
                   [&place, threads, iThreads] {
                       place.start();
                       route(1, true, false);
                       threads->handRing = std::make_unique<HandRing>(place.path("hand"), cs_lBigFile, 2);
                       threads->crew = std::make_unique<Crew>(iThreads);
                   },
                   [&place, threads] {
                       threads->crew.reset();
                       threads->handRing.reset();
                       place.stop();
                   }};
    group.throughput = true;
    group.emptied = {"hand1.log", "app1.log"};
    group.rows.push_back(row("by hand", Kind::ByHand, threads, times([threads] {
                                 size_t uLength;
                                 const char* pLine = handLine(cs_pszText, Stamp::Clock, &uLength);
                                 const HandMutex lock;
                                 threads->handRing->put(pLine, uLength);
                             })));
    group.rows.push_back(
        row("ZEBU2_PutLine", Kind::Product, threads, times([] { (void)ZEBU2_PutLine(1, cs_pszText); })));
    return group;
}

static Group areaThreads(Place& place, int iThreads)
{
    const auto threads = std::make_shared<Threads>();
    const std::string count = std::to_string(iThreads);
    Group group = {"area-threads-" + count,
                   "trace area, " + count + (iThreads == 1 ? " thread" : " threads"),
                   100000, // many more than one thread puts before the last one runs
                   {{Kind::ByHand, 1 / (iThreads == 1 ? 0.9 : 1.5)}},
                   [&place, threads, iThreads] {
                       place.start();
                       route(1, false, true);
                       threads->crew = std::make_unique<Crew>(iThreads);
                   },
                   [&place, threads] {
                       threads->crew.reset();
                       place.stop();
                   }};
    group.throughput = true;
    group.rows.push_back(row("by hand", Kind::ByHand, threads, drained(&Place::handArea, place, [&place] {
                                 size_t uLength;
                                 const char* pLine = handLine(cs_pszText, Stamp::Clock, &uLength);
                                 const HandMutex lock;
                                 place.handArea().append(pLine, static_cast<uint32_t>(uLength));
                             })));
    group.rows.push_back(row("ZEBU2_PutLine", Kind::Product, threads,
                             drained(&Place::area, place, [] { (void)ZEBU2_PutLine(1, cs_pszText); })));
    return group;
}

// A consumer that gives everything back as soon as it is there: the offsets wander between two processors.
static Group areaConsumed(Place& place)
{
    struct Consumer
    {
        std::atomic<bool> bEnded{false};
        std::thread thread;
    };
    const auto consumer = std::make_shared<Consumer>();
    Group group = {"area-consumer",
                   "trace area, a consumer reading all the time",
                   20000,
                   {{Kind::ByHand, 1 / 0.5}},
                   [&place, consumer] {
                       place.start();
                       route(1, false, true);
                       consumer->thread = std::thread([&place, consumer] {
                           while (!consumer->bEnded.load(std::memory_order_relaxed)) {
                               place.area().drain();
                               place.handArea().drain();
                           }
                       });
                   },
                   [&place, consumer] {
                       consumer->bEnded = true;
                       consumer->thread.join();
                       place.stop();
                   }};
    group.throughput = true;
    group.rows.push_back({"by hand", Kind::ByHand, times([&place] {
                              size_t uLength;
                              const char* pLine = handLine(cs_pszText, Stamp::Clock, &uLength);
                              const HandMutex lock;
                              place.handArea().append(pLine, static_cast<uint32_t>(uLength));
                          })});
    group.rows.push_back({"ZEBU2_PutLine", Kind::Product, times([] { (void)ZEBU2_PutLine(1, cs_pszText); })});
    return group;
}

void addThreads(std::vector<Group>& groups, Place& place)
{
    for (int iThreads : {1, 2, 4, 8})
        groups.push_back(fileThreads(place, iThreads));
    for (int iThreads : {1, 2, 4, 8})
        groups.push_back(areaThreads(place, iThreads));
    groups.push_back(areaConsumed(place));
}
