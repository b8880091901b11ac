// The C++ wrapper: what it adds to the C functions.
#define FMT_HEADER_ONLY
#include "support/Sandbox.h"
#include "ZEBULib2.hpp"

using namespace std::string_view_literals;

class Wrapper : public Sandbox
{
protected:
    zebu2::ring files(const std::string& name = "app") { return zebu2::ring(ring(0, 0, name)->pszFilePath); }
    // The last bodies of the first file.
    Lines tail(int iCount)
    {
        const Lines all = bodies(lines(1));
        return {all.end() - iCount, all.end()};
    }
};

TEST_F(Wrapper, PutsEveryKindOfTextInEveryForm)
{
    zebu2::process_log log(files(), "app");
    const std::string long5000(5000, 'x');
    const std::string_view view = "viewed, not terminated";
    EXPECT_EQ(log.put(0, "literal") | log.put(0, std::string("string")) | log.put(0, view.substr(0, 6)), 0);
    EXPECT_EQ(log.put(0, std::string_view()) | log.put(0, std::string_view(long5000)), 0);
    EXPECT_EQ(log.put(0, "ID", std::string_view(long5000)), 0);
    EXPECT_EQ(log.put(0, view.substr(0, 4), "typeX"sv, "text"), 0);
    EXPECT_EQ(log.putf(0, "%d-%s", 7, long5000.c_str()) | log.putf_id(0, "ID", "%5.1f", 2.5), 0);
    const std::string id = "ID                    ";
    EXPECT_EQ(bodies(lines(1)),
              (Lines{"literal", "string", "viewed", "", std::string(4117, 'x'), id + std::string(4095, 'x'),
                     "view             type text", "7-" + std::string(4115, 'x'), id + "  2.5"}));
    EXPECT_EQ(log.with_label("worker-number-1").put(0, "labelled"), 0);
    EXPECT_EQ(lines(1).back().substr(33, 17), "app              ");
    EXPECT_EQ(lines(1).back().substr(59, 9), "worker-n ");
    EXPECT_EQ(log.with_label(nullptr).put(0, "own"), 0);
    EXPECT_EQ(lines(1).back().substr(59, 9), lines(1).front().substr(59, 9));
#ifdef ZEBU2_HAS_FORMAT
    EXPECT_EQ(log.format(0, "{}/{}", 1, "two") | log.format_id(0, "ID", "{}", long5000), 0);
    EXPECT_EQ(log.format(0, zebu2::here("some/where.cpp", 7), "{}", "three"), 0);
    EXPECT_EQ(log.format(0, "{:{}}", 4, -1), -1); // what no compiler sees
    EXPECT_EQ(zebu2::last_error().failure(), ZEBU_EPOS_PARAM);
    EXPECT_EQ(tail(4), (Lines{"1/two", id + std::string(4095, 'x'), "where.cpp:7: three", "{:{}}"}));
#endif
    const wchar_t notInThisLocale[] = {0x110000, 0};
    EXPECT_EQ(log.putf_id(0, "ID", "%ls", notInThisLocale), -1);
    EXPECT_EQ(zebu2::last_error().failure(), ZEBU_EPOS_PARAM);
    const int iLine = __LINE__ + 1;
    EXPECT_EQ(log.put(0, zebu2::here(), long5000) | log.putf(0, zebu2::here(), "%s", "printed"), 0);
    EXPECT_EQ(log.put(0, zebu2::last_error().text()), 0);
    const std::string place = "test_wrapper.cpp:" + std::to_string(iLine) + ": ";
    EXPECT_EQ(tail(4), (Lines{id + "%ls", place + std::string(4117 - place.size(), 'x'), place + "printed",
                              "no failure (0)"}));
}

TEST_F(Wrapper, FormatsNothingAboveTheLevel)
{
    zebu2::process_log log(files(), "app");
    zebu2::instance other(files("other"), "other");
    const char* pszUnreadable = reinterpret_cast<const char*>(8);
    EXPECT_EQ(log.putf(1, "%s", pszUnreadable) | other.putf_id(1, "ID", "%s", pszUnreadable), 0);
    EXPECT_EQ(log.put(1, std::string_view(pszUnreadable, 10)), 0);
    EXPECT_EQ(ZEBU2_SetLogLevel(1), 0); // behind the wrapper's back
    EXPECT_EQ(log.putf(1, "%s", "seen"), 0);
    EXPECT_EQ(bodies(lines(1)), Lines{"seen"});
    EXPECT_EQ(log.putf(-1, "%d", 1), -1);
    EXPECT_EQ(other.put(1001, "view"sv), -1);
    EXPECT_EQ(zebu2::last_error().failure(), ZEBU_EPOS_PARAM);
}

TEST_F(Wrapper, KeepsPartialSuccessAndItsReason)
{
    const zebu2::status part = zebu2::process_log(zebu2::ring("/proc/none/x").size(4096), "app").state();
    EXPECT_TRUE(part && part.has_area() && !part.has_files());
    EXPECT_STREQ(part.why().text().c_str(),
                 "ZEBU2_Initialize: a missing directory cannot be made (21): No such file or directory");
    EXPECT_STREQ(zebu2::process_log(files().permissions(0640), "app").state().why().text().c_str(),
                 "no failure (0)");
    EXPECT_EQ(fileMode(traceFile(1)), 0640);
    const zebu2::status none = zebu2::process_log(zebu2::no_ring, "app").state();
    EXPECT_TRUE(none.complete() && none.has_area() && !none.has_files());
    EXPECT_STREQ(none.why().text().c_str(), "ZEBU2_Initialize: without trace files, as asked for (0)");
}

TEST_F(Wrapper, AnOwnerClosesOnce)
{
    zebu2::process_log first(files(), "app");
    EXPECT_FALSE(zebu2::process_log(files(), "again")); // one per process; this one must not stop the first
    zebu2::process_log second(std::move(first));
    EXPECT_EQ(first.close() | second.put(0, "still open") | second.close(), 0);
    EXPECT_EQ(ZEBU2_PutLine(0, "closed"), -1);
    zebu2::instance none;
    for (const int iLevel : {0, 1}) { // above the level or not, whatever the kind of text
        EXPECT_EQ(
            second.put(iLevel, "closed") & second.put(iLevel, "closed"sv) & second.putf(iLevel, "%d", 1), -1);
        EXPECT_EQ(none.put(iLevel, "closed") & none.put(iLevel, "closed"sv) & none.putf(iLevel, "%d", 1), -1);
        EXPECT_EQ(second.with_label("x").put(iLevel, "closed"sv), -1);
        EXPECT_EQ(zebu2::last_error().failure(), ZEBU_EPOS_NOTREADY);
    }

    zebu2::instance a(files("a"), "a");
    zebu2::instance b(files("b"), "b");
    const ZEBU2_HINSTANCE hGone = b.handle();
    b = std::move(a);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hGone, 0, "deleted"), -1);
    EXPECT_EQ(b.put(0, "alive"), 0);
}

TEST_F(Wrapper, AfterForkTheChildHasItsOwnRingAndProcessId)
{
    zebu2::process_log log(files(), "app");
    zebu2::instance other(files("other"), "other");
    other.set_level(500);
    other.set_file_threshold(100);
    const pid_t child = startChild([&] {
        CHECK(log.after_fork(files("child")) && other.after_fork(files("childother")));
        CHECK(log.put(0, "child") == 0 && other.put(99, "below") == 0 && other.put(500, "in") == 0);
    });
    ASSERT_EQ(waitForChild(child), 0);
    EXPECT_EQ(log.put(0, "parent"), 0);
    EXPECT_EQ(bodies(lines(1)), Lines{"parent"});
    EXPECT_EQ(std::stoi(traceLines(readFile(path("child1.log"))).back().substr(50, 8), nullptr, 16), child);
    EXPECT_EQ(bodies(traceLines(readFile(path("childother1.log")))), Lines{"in"});
}

TEST_F(Wrapper, ReachesTheSettingsThatAreNotOfOneLog)
{
    // The lock parameters belong to shared rings.
    EXPECT_EQ(zebu2::process_log::set_lock_wait_time(-5), 1); // of the next one
    zebu2::process_log log(files().shared(), "app");
    EXPECT_EQ(log.lock_wait_time(), 0);
    EXPECT_EQ(log.set_lock_retry_times(0), 20);
    EXPECT_EQ(log.close(), 0);
    EXPECT_EQ(log.lock_retry_times(), 1);
    zebu2::instance none;
    EXPECT_EQ(none.set_lock_wait_time(6), 1);
    EXPECT_EQ(none.set_lock_retry_times(8), 20);
    const zebu2::instance shared(files("shared").shared(), "shared");
    EXPECT_EQ(none.set_lock_retry_times(9), 8); // of the next one
    EXPECT_EQ(shared.lock_wait_time() * 100 + shared.lock_retry_times(), 608);

    EXPECT_TRUE(log.open(files("single"), "app"));
    EXPECT_EQ(result(log.lock_wait_time()), Result(-1, 0x2900001C));
    EXPECT_EQ(result(log.set_lock_retry_times(10)), Result(-1, 0x2C00001C));
    zebu2::instance single(files("other"), "single");
    EXPECT_EQ(result(single.set_lock_wait_time(1)), Result(-1, 0x2E00001C));

    zebu2::mask_time(true);
    EXPECT_TRUE(zebu2::time_is_masked() && log.put(0, "masked") == 0);
    zebu2::mask_time(false);
    EXPECT_EQ(areaLines().back().substr(5, 4), "****");
    zebu2::set_switch_notice(true);
    EXPECT_EQ(ZEBU2_SetSwapMessageMode(2), 1U);
    EXPECT_EQ(zebu2::put_signal_safe("from a handler"), 0);
    EXPECT_EQ(zebu2::clear_older_than(path("old*.log").c_str(), -1), -1);
    EXPECT_EQ(zebu2::last_error().function(), ZEBU_FUNC_LOG_FILE_CLEAR);
    writeFile(path("old1.log"), "x");
    EXPECT_EQ(zebu2::clear_all_but(path("old*.log").c_str(), 0), 0);
    EXPECT_FALSE(exists(path("old1.log")));
}
