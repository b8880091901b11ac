// Trace instances: creation, handles, levels, deletion. Their lock parameters are set through the wrapper.
#include "support/Sandbox.h"

class Instance : public Sandbox
{
protected:
    static ZEBU2_HINSTANCE create(const tagZEBU_LOGFILE_SPEC* pRing, Result expected = {0, 0})
    {
        ZEBU2_HINSTANCE hInstance = nullptr;
        EXPECT_EQ(result(ZEBU2_CreateInstance(&hInstance, pRing, "abc")), expected);
        return hInstance;
    }
    static ZEBU2_HINSTANCE createForArea() { return create(nullptr, {1, 0x13000000}); }
    static void remove(ZEBU2_HINSTANCE hInstance) { EXPECT_EQ(ZEBU2_DeleteInstance(hInstance), 0); }
};

TEST_F(Instance, CreationAndHandlesAreChecked)
{
    EXPECT_EQ(result(ZEBU2_CreateInstance(nullptr, ring(), "x")), Result(-1, 0x13000001));
    EXPECT_EQ(result(ZEBU2_CreateInstanceM(nullptr, ring(), "x", 0)), Result(-1, 0x28000001));
    remove(create(ring(4096, 17), {1, 0x13000001}));

    ZEBU2_HINSTANCE hInstance = create(ring());
    remove(hInstance);
    // The last: null stands for the defaults.
    const std::tuple<int (*)(ZEBU2_HINSTANCE), int, int, bool> calls[] = {
        {ZEBU2_DeleteInstance, 20, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_PutInstanceLine(h, 0, "x"); }, 21, -1, false},
        {ZEBU2_InstanceFileBufferFlush, 24, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_ChInstanceFileAttr(h, 0640); }, 38, -1, false},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_SetInstanceLogLevel(h, 1); }, 15, 0, false},
        {ZEBU2_GetInstanceLockWaitTime, 45, -1, true},
        {[](ZEBU2_HINSTANCE h) { return ZEBU2_SetInstanceLockRetryTimes(h, 20); }, 48, -1, true},
    };
    for (const auto& [call, iFunction, iResult, bNullIsDefault] : calls) {
        for (ZEBU2_HINSTANCE hDead : {hInstance, reinterpret_cast<ZEBU2_HINSTANCE>(uintptr_t{64})})
            EXPECT_EQ(result(call(hDead)), Result(iResult, iFunction << 24 | 11));
        EXPECT_TRUE(bNullIsDefault || result(call(nullptr)) == Result(iResult, iFunction << 24 | 1));
    }
}

TEST_F(Instance, ManyComeAndGo)
{
    ZEBU2_HINSTANCE instances[200];
    for (int iRound = 0; iRound < 4; ++iRound) {
        for (int i = 0; i < 200; i += iRound ? 2 : 1)
            instances[i] = createForArea();
        for (int i = 0; i < 200; i += 2)
            remove(instances[i]);
        for (int i = 0; i < 200; ++i)
            EXPECT_EQ(ZEBU2_PutInstanceLine(instances[i], 0, "x"), i % 2 ? 0 : -1);
    }
}

// A user that came out without the area holds no reference on it, and must not give one up.
TEST_F(Instance, TheAreaStaysWhileSomebodyUsesIt)
{
    writeFile(path("mmap"), "in the way");
    EXPECT_EQ(create(ring(1), {-1, 0x13000002}), nullptr);
    ZEBU2_HINSTANCE hWithout = create(ring(), {2, 2});
    EXPECT_EQ(failure(ZEBU2_Initialize(ring(4096, 1, "process"), "app")), Failure(2, 2, ENOTDIR));
    EXPECT_EQ(ZEBU2_PutInstanceLine(hWithout, 0, "file only"), 0);
    ASSERT_EQ(unlink(path("mmap").c_str()), 0);
    ZEBU2_HINSTANCE hFirst = createForArea(), hSecond = createForArea();
    remove(hWithout);
    stop();
    startArea();
    stop();
    remove(hFirst);
    EXPECT_EQ(result(ZEBU2_PutInstanceLine(hSecond, 0, "still attached")), Result(0, 0));
    remove(hSecond);
    EXPECT_EQ(result(ZEBU2_PutToShm("x", 1)), Result(0, 11)); // the last user has closed it
    EXPECT_EQ(bodies(lines(1)), Lines{"file only"});
    EXPECT_EQ(bodies(areaLines()), Lines{"still attached"});
}

TEST_F(Instance, HasLevelsPermissionsAndBackupsOfItsOwn)
{
    const std::string copy = path("copy");
    ZEBU2_HINSTANCE hInstance = create(ring());
    const std::tuple<int (*)(ZEBU2_HINSTANCE, int), int, int> levels[] = {
        {ZEBU2_SetInstanceLogLevel, 15, 5},
        {ZEBU2_SetInstanceFileThreshold, 17, 3},
        {ZEBU2_SetInstanceShmThreshold, 18, 4}};
    for (const auto& [set, iFunction, iValue] : levels) {
        EXPECT_EQ(result(set(hInstance, iValue)), Result(0, 0));
        for (const int iRefused : {-2, 1001})
            EXPECT_EQ(result(set(hInstance, iRefused)), Result(iValue, iFunction << 24 | 1));
    }
    EXPECT_EQ(ZEBU2_GetLogLevel(), 0);
    EXPECT_EQ(result(ZEBU2_PutInstanceLine(hInstance, 4, "kept")), Result(0, 0));

    EXPECT_EQ(result(ZEBU2_ChFileAttr(0644)), Result(-1, 0x2500000B));
    EXPECT_EQ(result(ZEBU2_TraceBackupM(copy.c_str(), 0)), Result(-1, 0x3100000B));
    EXPECT_EQ(result(ZEBU2_ChInstanceFileAttr(hInstance, 0x1000)), Result(-1, 0x26000001));
    EXPECT_EQ(ZEBU2_ChInstanceFileAttr(hInstance, 0440) | ZEBU2_InstanceFileBufferFlush(hInstance), 0);
    EXPECT_EQ(fileMode(traceFile(1)), 0640);
    EXPECT_EQ(result(ZEBU2_InstanceTraceBackupM(hInstance, copy.c_str(), 1)), Result(-1, 0x32000001));
    EXPECT_EQ(ZEBU2_InstanceTraceBackupM(hInstance, copy.c_str(), 16), 0);
    EXPECT_EQ(bodies(traceLines(readFile(copy))), Lines{"kept"});
}
