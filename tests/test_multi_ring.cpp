// The files of a shared ring and the way of a line into them, as processes that do no harm see them.
#include "support/SharedRing.h"

namespace {

using MultiRing = SharedRing;

TEST(MultiEndOfData, IsFoundWhereverTheBlocksAreCut)
{
    const std::pair<std::string, long> cases[] = {// where the mark is, -1: none
                                                  {"\x1A", 0},
                                                  {"a\x1A\r\r\n\x1A", 5},
                                                  {"a\r\x1A\n\x1A\r\n\n\x1A", -1}};
    for (const auto& [text, lMark] : cases) {
        for (size_t uCut = 0; uCut <= text.size(); ++uCut) {
            ZEBUEndOfDataScan scan;
            size_t uLength = scan.examine(text.data(), uCut);
            if (!scan.found())
                uLength += scan.examine(text.data() + uCut, text.size() - uCut);
            EXPECT_EQ(scan.found() ? static_cast<long>(uLength) : -1, lMark) << text << " cut at " << uCut;
        }
    }
    ZEBUEndOfDataScan scan;
    EXPECT_EQ(scan.examine("ab\0\r\n\x1A", 6), 2u); // a zero byte ends the block
    EXPECT_EQ(scan.examine("c\r\n\x1A", 4), 3u);    // and not the scan
    EXPECT_TRUE(scan.found());
}

// Without a directory in its name, by processes of which none comes to its end.
TEST_F(MultiRing, LinesOfSeveralProcessesAreInOneBackup)
{
    ASSERT_EQ(chdir(path("").c_str()), 0);
    const tagZEBU_LOGFILE_SPEC ring = {65536, 3, "app"};
    const auto write = [&](const char* pszText) {
        CHECK(ZEBU2_InitializeM(&ring, pszText, ZEBU2_OPT_NOFILL) == 0 && ZEBU2_PutLine(0, pszText) == 0);
    };
    for (const char* pszText : {"0", "1", "2"})
        EXPECT_EQ(inChild([&] { write(pszText); }), 0);
    ASSERT_EQ(unlink(manageName().c_str()), 0);
    ASSERT_EQ(result(ZEBU2_InitializeM(&ring, "reader", 63)), Result(3, 0x2700001D));
    ASSERT_EQ(ZEBU2_TraceBackupM(path("backup").c_str(), ZEBU2_BACKUP_NOLOCK), 0);
    EXPECT_EQ(bodies(traceLines(readFile(path("backup")))), (Lines{"0", "1", "2"}));
}

// ---- A new ring ----------------------------------------------------------------------------------

TEST_F(MultiRing, NewFilesAndRecordLookAsTheOptionsSay)
{
    (void)umask(077);
    // The option, what files 2 and 3 hold, and what file 1 holds behind its mark.
    const std::tuple<unsigned int, std::string, char> cases[] = {
        {0, mark() + std::string(4096 - 48, ' '), ' '},
        {ZEBU2_OPT_NOFILL, mark(), '\0'},
        {ZEBU2_OPT_CURRENT_ONLY, "", ' '}};
    for (const auto& [uOption, others, rest] : cases) {
        base = path("new" + std::to_string(uOption) + "/dir/ring");
        const Ring ring = open(static_cast<int>(uOption));
        const auto uLength = static_cast<unsigned int>(data(1).size());
        EXPECT_EQ(trace(1).substr(uLength), mark() + std::string(4096 - uLength - 48, rest));
        for (int n = 2; n <= 3; ++n) {
            EXPECT_EQ(exists(traceName(n)), uOption != ZEBU2_OPT_CURRENT_ONLY);
            EXPECT_EQ(trace(n), others);
        }
        const unsigned int words[16] = {0x5542455A, 0xEFBBBF00, 4096, 3, uLength, 1, 0xFFFFFFC0 + uOption, 1};
        EXPECT_EQ(readFile(manageName()), std::string(reinterpret_cast<const char*>(words), sizeof words));
        EXPECT_EQ(fileMode(manageDir() + "/..") & fileMode(manageDir()), 0777);
        EXPECT_EQ(fileMode(manageName()) & fileMode(traceName(1)), 0666);
    }
}

TEST_F(MultiRing, FilesThatExistAreCompletedOrLeftAlone)
{
    constexpr size_t cs_uSize = 200000; // more than is written with one call, and no multiple of it
    const std::string held = "held\r\n" + mark();
    const std::tuple<int, std::string, std::string> cases[] = {
        {0, held, held + std::string(cs_uSize - held.size(), ' ')},
        {0, "", std::string(cs_uSize, ' ')}, // blanks, and no mark: it existed
        {ZEBU2_OPT_NOFILL, held, held},
        {ZEBU2_OPT_NOFILL, "", ""}};
    for (const auto& [iOption, before, after] : cases) {
        open(iOption, cs_uSize);
        writeFile(traceName(2), before);
        unlink(traceName(3).c_str());
        open(iOption, cs_uSize);
        EXPECT_TRUE(trace(2) == after) << iOption << before;
        EXPECT_EQ(trace(3), iOption ? mark() : mark() + std::string(cs_uSize - 48, ' '));
        base += "x";
    }
    open(ZEBU2_OPT_NOFILL);
    ASSERT_EQ(unlink(traceName(2).c_str()) | mkfifo(traceName(2).c_str(), 0600), 0); // is not completed
    open(ZEBU2_OPT_NOFILL);
}

TEST_F(MultiRing, HeadersFollowTheOptions)
{
    Ring ring = make(0x05, 1048576, 8);
    ring->setAppName("app             ");
    ASSERT_EQ(ring->openFile(), 0);
    const std::string start = data(1);
    EXPECT_TRUE(start.starts_with("**** app              "));
    EXPECT_EQ(start.substr(30, 32), " 0001048576 0008 00000005\r\n**** ");
    EXPECT_EQ(start.substr(57 + 141 + 90, 13), "message(LANG=");

    // Without a start line, a file that is not empty gets none, nor does a ring just made: at that moment its
    // record does not say yet that headers are wanted.
    open(ZEBU2_OPT_NOSTARTLINE);
    EXPECT_EQ(data(1), start);
    base = path("second");
    open(ZEBU2_OPT_NOSTARTLINE);
    EXPECT_EQ(data(1), "");
    open(ZEBU2_OPT_NOSTARTLINE);
    EXPECT_EQ(data(1).substr(139, 7), "\r\n     ");
}

// ---- Moving on -----------------------------------------------------------------------------------

TEST_F(MultiRing, LineThatJustFitsStaysAndOneByteMoreMovesOn)
{
    const Ring ring = open();
    fillTo(ring, 4000);
    ASSERT_EQ(put(ring, std::string(46, 'a')), 0); // 48 bytes: 4000 + 48 + 48
    EXPECT_EQ(trace(1).substr(4000), std::string(46, 'a') + "\r\n" + mark());
    ASSERT_EQ(put(ring, "b"), 0);
    EXPECT_TRUE(data(2).starts_with("**** ") && data(2).ends_with("\r\nb\r\n"));
    EXPECT_EQ(record().writeOffset, data(2).size());
}

// ---- Joining -------------------------------------------------------------------------------------

TEST_F(MultiRing, LaterProcessesAdoptOrGrowAndNarrowTheMode)
{
    const Ring first = open(0x0A, 8192, 2);
    open(0x2B, 16384, 4); // the record has no GROW any more when this one looks for it
    const auto shape = [&] { return std::pair(record().fileSize, record().fileNum); };
    EXPECT_EQ(shape(), std::pair(8192u, 2u));
    EXPECT_EQ(record().mode, 0xFFFFFFCAu);

    poke(offsetof(tagZEBU_MANAGEMENT_DATA, mode), 0xFFFFFFFF);
    open(ZEBU2_OPT_GROW, 16384, 4);
    open(ZEBU2_OPT_GROW, 8192, 1); // only ever upwards
    EXPECT_EQ(shape(), std::pair(16384u, 4u));
    poke(offsetof(tagZEBU_MANAGEMENT_DATA, currentFile), 4);
    poke(offsetof(tagZEBU_MANAGEMENT_DATA, writeOffset), 0);
    ASSERT_EQ(put(first, "after"), 0);
    EXPECT_TRUE(data(4) == "after\r\n" && trace(4).size() == 16384);

    first->setFileAttr(0620); // shows that a file is opened anew
    poke(offsetof(tagZEBU_MANAGEMENT_DATA, fileSize), 8192);
    ASSERT_EQ(put(first, "smaller"), 0);
    EXPECT_EQ(fileMode(traceName(4)), 0620);

    poke(offsetof(tagZEBU_MANAGEMENT_DATA, mode), 0xFFFFFFFF);
    open(ZEBU2_OPT_GROW | ZEBU2_OPT_CURRENT_ONLY, 4096, 64); // as many as there can be
    open(ZEBU2_OPT_CURRENT_ONLY);
    EXPECT_EQ(shape(), std::pair(8192u, 64u));
}

TEST_F(MultiRing, RebuildsItsPositionFromTheNewestFile)
{
    const std::string full = std::string(4094, 'x') + "\r\n" + mark();
    // Seconds since files were written; the content of the newest, 20 of them ago; the place.
    const std::tuple<std::map<int, long>, std::string, unsigned int, unsigned int> cases[] = {
        {{{1, 40}, {2, 20}, {3, 20}, {4, 30}}, "abc\r\n" + mark(), 3, 5},
        {{{1, 40}, {2, 20}, {4, 30}}, "no mark", 2, 0},
        {{{3, 30}, {4, 20}}, full, 1, 0}, // full: the next one from its start
        {{{1, 20}}, "y" + full, 2, 0}};
    for (const auto& [ages, newest, uFile, uOffset] : cases) {
        base += "x";
        for (const auto& [n, lSeconds] : ages) {
            writeFile(traceName(n), lSeconds == 20 ? newest : mark());
            age(traceName(n), lSeconds);
        }
        const Ring ring = open(ZEBU2_OPT_NOSTARTLINE, 4096, 4, 3);
        EXPECT_EQ(lastError(), ZEBU_EPOS_MISMATCH);
        EXPECT_EQ(record().currentFile, uFile);
        EXPECT_EQ(record().writeOffset, uOffset);
        EXPECT_EQ(put(ring, "usable"), 0);
    }
}

// It closes the file that it saw last, which the ring has left.
TEST_F(MultiRing, ProcessThatLagsBehindMisleadsNoRebuild)
{
    for (const bool bDamaged : {false, true}) {
        base += "x";
        Ring idle = open();
        fillTo(open(), 4040);
        ASSERT_EQ(put(open(), "in file 2"), 0);
        for (int n = 1; n <= 3; ++n)
            age(traceName(n), n == 2 ? 10 : 20);
        if (bDamaged)
            poke(0, 0); // where the ring is cannot be told: as if it were there
        idle.reset();
        unlink(manageName().c_str());
        open(ZEBU2_OPT_NOSTARTLINE, 4096, 3, 3);
        EXPECT_EQ(record().currentFile, bDamaged ? 1u : 2u);
    }
}

// ---- Backup and attributes -----------------------------------------------------------------------

TEST_F(MultiRing, BackupHoldsTheDataOldestFirst)
{
    const std::string backup = path("x/y/backup");
    const Ring ring = open(ZEBU2_OPT_NOHEADER);
    fillTo(ring, 4000);
    ASSERT_EQ(put(ring, std::string(2000, 'b')), 0);
    poke(offsetof(tagZEBU_MANAGEMENT_DATA, fileNum), 4); // a file that another process added
    writeFile(traceName(4), "oldest\r\n" + mark());
    unlink(traceName(3).c_str());
    for (const int iFlag : {0, ZEBU2_BACKUP_NOLOCK}) {
        ASSERT_EQ(ring->backupToFile(backup.c_str(), iFlag), 0);
        EXPECT_EQ(readFile(backup), "oldest\r\n" + data(1) + data(2));
        // A line behind a hole, further on than a file of this ring can be.
        std::ofstream(traceName(3)).seekp(1 << 20) << "far\r\n";
    }
}

TEST_F(MultiRing, BackupThatCannotBeMadeLeavesTheRingAlone)
{
    const Ring ring = open();
    std::filesystem::create_hard_link(traceName(2), path("hard"));
    std::filesystem::create_symlink(manageName(), path("soft"));
    for (const std::string& name : {traceName(1), path("hard"), path("soft")})
        EXPECT_EQ(result(ring->backupToFile(name.c_str(), 0)), Result(-1, ZEBU_EPOS_PARAM)) << name;
    EXPECT_EQ(trace(2).size(), 4096u);
}

TEST_F(MultiRing, AttributesReachAllFilesAndThoseMadeLater)
{
    const Ring ring = open(ZEBU2_OPT_CURRENT_ONLY);
    ASSERT_EQ(ring->chFileAttr(0624), 0);
    EXPECT_TRUE(fileMode(traceName(1)) == 0624 && fileMode(manageName()) == 0624);
    EXPECT_EQ(fileMode(manageDir()), 0735);
    ring->setFileAttr(0620);
    fillTo(ring, 4000);
    ASSERT_EQ(put(ring, "does not fit into file 1, which was filled up to byte 4000"), 0);
    EXPECT_EQ(fileMode(traceName(2)), 0620);
}

} // namespace
