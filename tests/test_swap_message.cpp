// tests/test_swap_message.cpp -- the file-switch notice: its text and what reaches syslog.
#include <stdarg.h>
#include <syslog.h>

#include "support/Sandbox.h"

namespace {

Lines logged;

void keep(int priority, const char* format, va_list arguments)
{
    char message[1024];
    vsnprintf(message, sizeof message, format, arguments);
    logged.push_back(priority == LOG_INFO ? message : "another priority");
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

class SwapMessage : public Sandbox
{
protected:
    // Fills file after file of a ring of two, beginning with the first. Returns what was logged.
    Lines fill(int iFiles)
    {
        logged.clear();
        EXPECT_EQ(ZEBU2_Initialize(ring(4096, 2, "%%%n"), "5%%s"), 0);
        for (int i = 0; i < iFiles; ++i)
            putLine(std::string(4000, 'x'));
        stop();
        return logged;
    }

    const std::string app = "5%%s            ", first = path("%%%n1.log"), second = path("%%%n2.log");
};

TEST_F(SwapMessage, NamesTheFileJustLeft)
{
    configure("MsgString = %a left %f, %i\n");
    EXPECT_EQ(fill(2), Lines()) << "off at first";
    EXPECT_EQ(ZEBU2_SetSwapMessageMode(1), 1U);
    EXPECT_EQ(ZEBU2_SetSwapMessageMode(2), 1U) << "refused";
    EXPECT_EQ(fill(4), (Lines{app + " left " + first + ", 1\n", app + " left " + second + ", 2\n",
                              app + " left " + first + ", 1\n"}));
    EXPECT_EQ(fill(1), Lines()) << "the file chosen at the start is no switch";
    configure();
    EXPECT_EQ(fill(2), Lines()) << "no template";
}

TEST_F(SwapMessage, TemplateIsFilled)
{
    ZEBU2_SetSwapMessageMode(1);
    const std::string x250(250, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"x%qy%", "xy"},
        {"%%%%a done 100%%", "%%a done 100%"},
        {"%a%f", app + first},
        {x250 + "%f!%i", x250 + first.substr(0, 5)},
    };
    for (const auto& [pattern, message] : cases) {
        (void)unlink(first.c_str());
        (void)unlink(second.c_str());
        configure("MsgString = " + pattern);
        EXPECT_EQ(fill(2), Lines{message}) << pattern;
    }
}

} // namespace
