// tests/test_swap_message.cpp -- the file-switch notice: its text and what reaches syslog.
#include <stdarg.h>
#include <syslog.h>

#include "logfile/LogSwapMsg.h"

#include "support/Sandbox.h"

namespace {

std::vector<std::pair<int, std::string>> logged; // priorities and messages

void keep(int priority, const char* format, va_list arguments)
{
    char message[1024];
    vsnprintf(message, sizeof message, format, arguments);
    logged.emplace_back(priority, message);
}

} // namespace

// Stand in for the system's, which is called by one of these names.
#define STAND_IN(...)                                                                                        \
    extern "C" void __VA_ARGS__                                                                              \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, format);                                                                         \
        keep(priority, format, arguments);                                                                   \
        va_end(arguments);                                                                                   \
    }
STAND_IN(syslog(int priority, const char* format, ...))
STAND_IN(__syslog_chk(int priority, int, const char* format, ...))

namespace {

TEST(SwapMessage, TemplateIsFilledAndShown)
{
    const std::string x250(250, 'x'), x254(254, 'x');
    const std::tuple<std::string, std::string, int, std::string, std::string, int> cases[] = {
        {"%a: %f (%i) done 100%%", "APP", 3, "/app3.log", "APP: /app3.log (3) done 100%", 29},
        {"x%qy%", "APP", 1, "f", "xy", 2},
        {"%%%%a%%", "APP", 1, "f", "%%a%", 7},
        {"%f%a", "5%%s", 1, "/100%%/%n", "/100%%/%n5%%s", 13},
        {"%i\n", "APP", -2147483647 - 1, "f", "-2147483648\n", 12},
        {x250 + "%f!%i", "APP", 1, "123456", x250 + "12345", 255},
        {x254 + "%%", "APP", 1, "f", x254 + "%", 255},
    };
    for (const auto& [pattern, app, number, file, shown, length] : cases) {
        logged.clear();
        EXPECT_EQ(ZEBU_FormatSwapMsgString(pattern.c_str(), app.c_str(), number, file.c_str()), length);
        EXPECT_EQ(logged, (decltype(logged){{LOG_INFO, shown}}));
    }
}

class SwapNotice : public Sandbox
{
protected:
    // Fills file after file of a ring of two, beginning with the first. Returns what was logged.
    Lines fill(int iFiles)
    {
        logged.clear();
        EXPECT_EQ(ZEBU2_Initialize(ring(4096, 2), "app"), 0);
        for (int i = 0; i < iFiles; ++i)
            putLine(std::string(4000, 'x'));
        stop();
        Lines messages;
        for (const auto& [priority, message] : logged)
            messages.push_back(message);
        return messages;
    }
};

TEST_F(SwapNotice, NamesTheFileJustLeft)
{
    configure("MsgString = %a left %f, %i\n");
    EXPECT_EQ(fill(2), Lines()) << "off at first";
    EXPECT_EQ(ZEBU2_SetSwapMessageMode(1), 1U);
    EXPECT_EQ(ZEBU2_SetSwapMessageMode(2), 1U) << "refused";
    const std::string left = "app              left ";
    EXPECT_EQ(fill(4), (Lines{left + traceFile(1) + ", 1\n", left + traceFile(2) + ", 2\n",
                              left + traceFile(1) + ", 1\n"}));
    EXPECT_EQ(fill(1), Lines()) << "the file chosen at the start is no switch";
    configure();
    EXPECT_EQ(fill(2), Lines()) << "no template";
}

} // namespace
