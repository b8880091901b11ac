// The trace area: creation, checks, the ring's arithmetic, damaged headers.
#include "support/Sandbox.h"

class Area : public Sandbox
{
protected:
    static int putBytes(size_t uCount) { return ZEBU2_PutToShm(std::string(uCount, 'x').data(), uCount); }
    // Starts on a file with a hole behind its first bytes.
    void startOn(const std::string& bytes, size_t uSize) const
    {
        writeFile(areaFile(), bytes);
        std::filesystem::resize_file(areaFile(), uSize);
        startArea();
    }
    // What of it has blocks.
    size_t areaBlocks() const
    {
        struct stat info = {};
        EXPECT_EQ(stat(areaFile().c_str(), &info), 0);
        return static_cast<size_t>(info.st_blocks) * 512;
    }
    // One line more than before.
    void putOne() const
    {
        const size_t uBefore = areaLines().size();
        EXPECT_EQ(putBytes(1), 0);
        EXPECT_EQ(areaLines().size(), uBefore + 1);
    }
};

TEST_F(Area, IsCreatedForEverybodyAndKeptAndConfigured)
{
    (void)umask(077);
    configure("MapSize = 24\n"); // no room for a single byte
    EXPECT_EQ(result(ZEBU2_Initialize(nullptr, "app")), Result(-1, 0x0600001A));
    EXPECT_FALSE(exists(areaFile()));
    configure();
    startArea();
    alignas(4096) static char cs_page[4096];
    const bool bAtHand = madvise(cs_page, sizeof cs_page, MADV_POPULATE_WRITE) == 0; // since Linux 5.14
    const std::string maps = readFile("/proc/self/smaps");
    EXPECT_GE(std::stoi(maps.substr(maps.find("Rss:", maps.find(areaFile())) + 4)), bAtHand ? 64 : 0);
    EXPECT_EQ(fileMode(path("mmap")), 0777);
    EXPECT_EQ(fileMode(areaFile()), 0666);
    EXPECT_EQ(readFile(areaFile()), std::string("ZEBU\0\0\0\0\xE8\xFF\0\0", 12) + std::string(65524, '\0'));
    putOne();
    stop();
    EXPECT_EQ(areaBytes().substr(68), "x\r\n");
    configure("MapSize = 131072\n"); // an area that exists keeps its geometry, and its lines
    startArea();
    EXPECT_EQ(readFile(areaFile()).size(), 131072u);
    EXPECT_EQ(areaHeader().uDataSize, 65512u);
    putOne();
    stop();
    configure("MapSize = 24\nIntervalSec = 86400\nMaxMsgNum = 3\n"); // a size to begin none with
    startArea();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(putBytes(1), 0);
    EXPECT_EQ(areaLines().size(), 2 + 3u);
}

TEST_F(Area, RingArithmetic)
{
    configure("MapSize = 4200\n");
    startArea();
    constexpr uint32_t uSize = 4176;
    const uint32_t cases[][4] = {
        // read and write offset, length of the line, and the write offset then
        {0, 0, uSize - 1, uSize - 1},         // an empty ring takes all but one byte
        {0, 0, uSize, 0},                     // and no more
        {100, uSize - 100, 199, 99},          // round the end
        {100, uSize - 100, 200, uSize - 100}, // would look empty
        {500, uSize - 100, 100, uSize},       // up to the very end
        {500, uSize, 100, 100},               // and on from there
        {200, 100, 99, 199},
        {200, 100, 100, 100},
    };
    for (const auto& [uRead, uWrite, uLine, uExpected] : cases) {
        setAreaField(12, uRead);
        setAreaField(16, uWrite);
        ASSERT_EQ(putBytes(uLine - 70), 0);
        EXPECT_EQ(areaHeader().uWriteOffset, uExpected) << uRead << ' ' << uWrite << ' ' << uLine;
        EXPECT_TRUE(uExpected == uWrite || areaBytes().ends_with("x\r\n"));
    }
}

// Only the magic and a write offset beyond the data are looked at, and that no line leaves the mapping.
TEST_F(Area, DamagedHeadersAreNeverFollowed)
{
    startArea();
    constexpr uint32_t uMagic = 0x5542455A, uSize = 65512, uMax = 0xFFFFFFFF;
    const auto [stored, damaged] = std::pair(Result(0, 0), Result(-1, 0x0D00001A));
    const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, Result> cases[] = {
        {uMagic + 1, uSize, 0, 0, damaged},   {uMagic, uSize, 0, uSize + 1, damaged},
        {uMagic, uSize, uMax, uSize, stored}, {uMagic, uSize + 1, 0, 0, stored},
        {uMagic, uMax, uMax, 0, stored},      {uMagic, uMax, 0, uSize - 4187, stored},
        {uMagic, uMax, 0, uMax, stored},      {uMagic, uMax, 0, uSize - 4186, damaged},
        {uMagic, 100, uMax, 100, stored}};
    for (const auto& [uFound, uData, uRead, uWrite, expected] : cases) {
        for (const auto& [lOffset, uValue] : {std::pair(0, uFound), {8, uData}, {12, uRead}, {16, uWrite}})
            setAreaField(lOffset, uValue);
        EXPECT_EQ(result(putBytes(4117)), expected)
            << uFound << ' ' << uData << ' ' << uRead << ' ' << uWrite;
    }
}

TEST_F(Area, FilesThatAreNoAreasAreMappedAndLeftAlone)
{
    ASSERT_EQ(mkdir(path("mmap").c_str(), 0777), 0);
    configure("MapSize = 4097\n");
    for (const size_t uSize : {0u, 24u, 4096u, 4097u, 65536u}) {
        // Up to 4,096 bytes any content is begun anew. Nothing is reserved of what no header describes.
        startOn("", uSize);
        EXPECT_EQ(result(putBytes(1)), uSize > 4096 ? Result(-1, 0x0D00001A) : Result(0, 0)) << uSize;
        stop();
        EXPECT_TRUE(uSize <= 4096 ||
                    (areaBlocks() < uSize && readFile(areaFile()) == std::string(uSize, '\0')))
            << uSize;
    }
    // Sizes are not cut off at 32 bits, and a header that is sound gets its blocks.
    startOn("", (1L << 32) + 100);
    stop();
    EXPECT_EQ(std::filesystem::file_size(areaFile()), (1UL << 32) + 100);
    startOn(std::string("ZEBU\0\0\0\0\xE8\xFF\0\0", 12), 65536);
    putOne();
    EXPECT_GE(areaBlocks(), 65536u);
}
