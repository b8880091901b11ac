// The C++ wrapper: what it adds to the C functions.
#include <string_view>

#define FMT_HEADER_ONLY
#include "support/Sandbox.h"
#include "ZEBULib2.hpp"

using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

class Wrapper : public Sandbox
{
protected:
    zebu2::ring files(const std::string& name = "app")
    {
        return zebu2::ring(ring(65536, 3, name)->pszFilePath).files(3);
    }
};

} // namespace

TEST_F(Wrapper, PutsEveryKindOfTextInEveryForm)
{
    zebu2::process_log log(files(), "app");
    const std::string long5000(5000, 'x');
    const std::string_view view = "viewed, not terminated";
    EXPECT_EQ(log.put(0, "literal") | log.put(0, "string"s) | log.put(0, view.substr(0, 6)), 0);
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
#ifdef ZEBU2_HAS_FORMAT
    EXPECT_EQ(log.format(0, "{}/{}", 1, "two") | log.format_id(0, "ID", "{}", long5000), 0);
    EXPECT_EQ(bodies(lines(1))[10], "1/two");
    EXPECT_EQ(bodies(lines(1))[11], id + std::string(4095, 'x'));
#endif
}

TEST_F(Wrapper, FormatsNothingAboveTheLevel)
{
    zebu2::process_log log(files(), "app");
    zebu2::instance other(files("other"), "other");
    const char* unreadable = reinterpret_cast<const char*>(8);
    EXPECT_EQ(log.putf(1, "%s", unreadable) | other.putf_id(1, "ID", "%s", unreadable), 0);
    EXPECT_EQ(log.put(1, std::string_view(unreadable, 10)), 0);
    EXPECT_EQ(ZEBU2_SetLogLevel(1), 0); // behind the wrapper's back
    EXPECT_EQ(log.putf(1, "%s", "seen"), 0);
    EXPECT_EQ(bodies(lines(1)), Lines{"seen"});
    EXPECT_EQ(log.putf(-1, "%d", 1), -1);
    EXPECT_EQ(other.put(1001, "view"sv), -1);
    EXPECT_EQ(zebu2::last_error().failure(), ZEBU_EPOS_PARAM);
}

TEST_F(Wrapper, KeepsPartialSuccessAndItsReason)
{
    {
        const zebu2::process_log log(zebu2::ring("/proc/none/x").size(4096), "app");
        EXPECT_TRUE(log && log.state().has_area() && !log.state().has_files());
        EXPECT_STREQ(log.state().why().text().c_str(),
                     "ZEBU2_Initialize: a missing directory cannot be made (21): No such file or directory");
    }
    EXPECT_STREQ(zebu2::process_log(files().permissions(0640), "app").state().why().text().c_str(),
                 "no failure (0)");
    EXPECT_EQ(fileMode(traceFile(1)), 0640);
    EXPECT_EQ(zebu2::process_log(zebu2::no_ring, "app").state().result(), 1);
}

TEST_F(Wrapper, AnOwnerClosesOnce)
{
    zebu2::process_log first(files(), "app");
    EXPECT_FALSE(zebu2::process_log(files(), "again")); // one per process; this one must not stop the first
    zebu2::process_log second(std::move(first));
    EXPECT_EQ(first.close() | second.put(0, "still open") | second.close(), 0);
    EXPECT_EQ(ZEBU2_PutLine(0, "closed"), -1);

    zebu2::instance a(files("a"), "a");
    zebu2::instance b(files("b"), "b");
    const ZEBU2_HINSTANCE gone = b.handle();
    b = std::move(a);
    EXPECT_EQ(ZEBU2_PutInstanceLine(gone, 0, "deleted"), -1);
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
