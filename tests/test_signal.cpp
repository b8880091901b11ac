// The signal-safe put: its line, its results, and handlers that interrupt the library anywhere.
#include <pthread.h>
#include <signal.h>

#include "support/AreaConsumer.h"

using Signal = Sandbox;

TEST_F(Signal, LineHasPlaceholders)
{
    EXPECT_EQ(ZEBU2_PutMsgSigSafe("no area yet"), -1); // takes number 0000
    startArea();
    EXPECT_EQ(ZEBU2_SetLogLevel(1001), 0);
    errno = 4711;
    EXPECT_EQ(ZEBU2_PutMsgSigSafe(nullptr), -1); // takes none
    EXPECT_EQ(ZEBU2_PutMsgSigSafe(std::string(5000, 'L').c_str()), 0);
    EXPECT_EQ(errno, 4711);
    EXPECT_EQ(lastError(), 0x02000001);
    char szExpected[200];
    (void)snprintf(szExpected, sizeof szExpected, "0001 ----/--/-- --:--:--.---     %-16s %08X -------- ",
                   "app", static_cast<unsigned>(getpid()));
    EXPECT_EQ(areaLines(), Lines{szExpected + std::string(4117, 'L')});
}

TEST_F(Signal, FullAndDamagedAreas)
{
    startArea();
    for (int i = 0; i < 20; ++i)
        (void)ZEBU2_PutToShm(std::string(4000, 'f').data(), 4000);
    EXPECT_EQ(result(ZEBU2_PutMsgSigSafe(std::string(4000, 'x').c_str())), Result(-1, 0));
    setAreaField(16, 70000);
    EXPECT_EQ(result(ZEBU2_PutMsgSigSafe("damaged")), Result(-1, 26));
    // No context is made for it.
    std::thread([] { EXPECT_EQ(result(ZEBU2_PutMsgSigSafe("damaged")), Result(-1, 16)); }).join();
}

// ---- Handlers ------------------------------------------------------------------------------------

static Lines cs_handlerTexts; // of the first signals
static std::atomic<size_t> cs_uHandled{0}, cs_uStored{0};

static const AreaConsumer* cs_pArea;

static void onSignal(int)
{
    const size_t uNumber = cs_uHandled.fetch_add(1);
    const char* pszText = uNumber < cs_handlerTexts.size() ? cs_handlerTexts[uNumber].c_str() : nullptr;
    // What the interrupted put has found free stays free for it, however many handlers run before it goes on.
    if (cs_pArea && !cs_pArea->hasRoom(30000))
        return;
    if (ZEBU2_PutMsgSigSafe(pszText) == 0)
        cs_uStored.fetch_add(1);
}

// Runs `body` while signals are sent to the calling thread as fast as it takes them.
static void underFire(const std::function<void()>& body)
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    (void)sigaction(SIGUSR1, &action, nullptr);
    for (int i = 0; i < 20000; ++i)
        cs_handlerTexts.push_back(areaMessage("handler", i));
    std::atomic<bool> bDone{false};
    std::thread sender([&, target = pthread_self()] {
        for (; !bDone; std::this_thread::yield())
            (void)pthread_kill(target, SIGUSR1);
    });
    body();
    bDone = true;
    sender.join();
}

TEST_F(Signal, HandlersThatInterruptPutsTearAndLoseNothing)
{
    constexpr int cs_iLines = 20000;
    startArea();
    AreaConsumer consumer(areaFile());
    cs_pArea = &consumer;
    std::atomic<size_t> uPut{0};
    const auto write = [&](const std::string& sender, size_t uHandlers) {
        for (int i = 0; i < cs_iLines || cs_uStored < uHandlers; ++i, ++uPut)
            consumer.put(sender, i);
    };
    std::atomic<int> iWriting{2};
    std::thread writers([&] {
        inThreads(2, [&](int t) {
            t == 0 ? write("quiet", 0) : underFire([&] { write("interrupted", 100); });
            --iWriting;
        });
    });
    while (iWriting > 0)
        consumer.drain();
    consumer.drain();
    writers.join();
    consumer.expectEachOnce();
    EXPECT_EQ(consumer.m_seen.size(), uPut + cs_uStored);
}

TEST_F(Signal, HandlersMayInterruptStartAndStop)
{
    std::thread other([] {
        for (int i = 0; i < 20000; ++i)
            (void)ZEBU2_PutMsgSigSafe("other");
    });
    underFire([] {
        for (int i = 0; i < 300 || cs_uHandled == 0; ++i) {
            startArea();
            stop();
        }
    });
    other.join();
    EXPECT_EQ(areaHeader().uGuard, 0u);
}
