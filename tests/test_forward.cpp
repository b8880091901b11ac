// zebu2 forward as a process: what reaches the server, and where it goes on after that.
#include "support/RelpServer.h"

namespace {
class Forward : public ToolTest
{
protected:
    static Words command(const RelpServer& server, Words words)
    {
        words.insert(words.begin(), {"forward", "--to", "relp://127.0.0.1:" + server.port()});
        return words;
    }
    // Waits until the server has so many messages.
    static void await(const RelpServer& server, size_t uCount)
    {
        for (int i = 0; i < 1000 && server.messages().size() < uCount; ++i)
            usleep(10'000);
        EXPECT_EQ(server.messages().size(), uCount);
    }
    // The messages of one run, which is ended when there are so many.
    std::string forward(const Words& words, size_t uCount, int iSignal = SIGTERM) const
    {
        const RelpServer server(path("relp"));
        RunningTool tool(command(server, words));
        await(server, uCount);
        tool.signal(iSignal);
        EXPECT_EQ(tool.wait(), 0);
        await(server, uCount);
        return readFile(path("relp"));
    }
    static bool has(const std::string& text, const std::string& part) { return text.find(part) != text.npos; }
};

TEST_F(Forward, DeliversRingsAndTheAreaAndGoesOnWhereItStopped)
{
    const std::string typed =
        line(7, "10:00:00.123", "NET-17           WARN text\r\n  that goes on", "my app");
    const std::string inArea = line(8, "----/--/-- --:--:--.---", "crash");
    writeRing({fileHeader() + plainLines(1, 3)}, 1);
    std::string header = fileHeader(); // another host's, in another zone
    header.replace(header.find("TZ=UTC"), 9, "TZ=UTC-01");
    writeFile(path("one1.log"), header + typed);
    writeArea(4000, 0, inArea.size(), inArea);
    const Words sources = {"--cursor", path("cursor"), "--area",     "--wait",
                           prefix(),   path("one"),    path("later")};
    const pid_t later = startChild([&] { // appears when the others are read
        while (areaHeader().uReadOffset == 0)
            usleep(1000);
        writeFile(path("later1.log"), plainLines(1, 1));
    });
    std::string messages = forward(sources, 6);
    EXPECT_EQ(waitForChild(later), 0);
    EXPECT_TRUE(has(messages, "<132>1 2026-11-22T10:00:00.123+01:00 host my_app 6699"));
    EXPECT_TRUE(has(messages, " my_app 6699 NET-17 [zebu2@32473 source=\"" + path("one") +
                                  "\" counter=\"7\" tid=\"0000ABCD\" type=\"WARN\"] " +
                                  typed.substr(0, typed.size() - 2)));
    EXPECT_TRUE(has(messages, "<134>1 - ") && has(messages, "source=\"" + areaFile() + "\""));
    EXPECT_EQ(areaHeader().uReadOffset, inArea.size());
    writeFile(path("one1.log"), header + typed + plainLines(9, 9));
    messages = forward(sources, 1, SIGINT);
    EXPECT_TRUE(has(messages, "<134>1 2026-11-22T10:00:09.000+01:00 host app"));
}

// The server takes two lines and is silent then.
TEST_F(Forward, AcknowledgementsAloneMoveThePlaces)
{
    const std::string all = plainLines(1, 6);
    const auto uTaken = static_cast<uint32_t>(all.size() / 3);
    writeFile(path("one1.log"), all);
    writeArea(4000, 3900, all.size() - 100, all);
    for (const bool bArea : {true, false}) {
        const Words words = {"--cursor", path("cursor"), bArea ? "--area" : path("one")};
        {
            const RelpServer stingy(path("relp"), {"open", "next", "take", "next", "take", "read"},
                                    {"--each"});
            RunningTool tool(command(stingy, words));
            await(stingy, 2);
            const std::string place = " " + std::to_string(uTaken) + " "; // stored a moment later
            while (!bArea && readFile(path("cursor")).find(place) == std::string::npos)
                usleep(1000);
            EXPECT_TRUE(!bArea || RunningTool(command(stingy, words)).wait() == 2); // refused
            tool.signal(bArea ? SIGTERM : SIGKILL);
            EXPECT_EQ(tool.wait(), bArea ? 0 : 128 + SIGKILL); // though its window is not empty
        }
        EXPECT_EQ(areaHeader().uReadOffset, uTaken - 100);
        EXPECT_FALSE(has(forward(words, 4), "message 2"));
        setAreaField(12, uTaken - 100);
    }
}

TEST_F(Forward, TellsTheServerWhatTheRingPassedOver)
{
    for (const auto& [iFirst, uExpected] : {std::pair(1, 2u), std::pair(5, 3u)}) {
        writeFile(traceFile(1), plainLines(iFirst, iFirst + 1));
        const std::string messages = forward({"--cursor", path("cursor"), prefix()}, uExpected);
        EXPECT_EQ(has(messages, "<132>1 20") &&
                      has(messages, " LOST [zebu2@32473 source=\"" + prefix() + "\""),
                  iFirst > 1);
    }
}

TEST_F(Forward, RefusesWhatItCannotDo)
{
    writeFile(path("one1.log"), plainLines(1, 1));
    const std::string to = "forward --to relp://127.0.0.1:9 ", cursor = "--cursor c ";
    expectStatus(
        2, {"forward", to, to + "one", to + cursor + "missing", to + cursor + "-",
            "forward --to http://h:9 --cursor c one", to + "--area=missing",
            to + cursor + "--ca one1.log one", "forward --to relps://h:9 --ca one1.log --cursor c one",
            to + cursor + "--severity E=bad one", to + "--cursor one1.log one", to + "--cursor no/c one"});
    expectStatus(0, {"forward --help"});
}
} // namespace
