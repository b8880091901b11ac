// tests/test_swap_message.cpp -- the file-switch notice: its text and what reaches syslog.
#include <stdarg.h>
#include <syslog.h>

#include "support/Sandbox.h"

static Lines cs_logged;

// Stands in for the system's, as a program may that collects what its libraries log.
extern "C" void syslog(int iPriority, const char* pszFormat, ...)
{
    char message[1024];
    va_list arguments;
    va_start(arguments, pszFormat);
    vsnprintf(message, sizeof message, pszFormat, arguments);
    va_end(arguments);
    cs_logged.push_back(iPriority == LOG_INFO ? message : "another priority");
}

using SwapMessage = Sandbox;

TEST_F(SwapMessage, FillsTheTemplateForTheFileJustLeft)
{
    // Fills file after file of a ring of two, beginning with the first. Returns what was logged.
    const auto fill = [&](int iFiles) {
        EXPECT_EQ(ZEBU2_Initialize(ring(4096, 2, "%%%n"), "5%%s"), 0);
        for (int i = 0; i < iFiles; ++i)
            putLine(std::string(4000, 'x'));
        stop();
        return std::exchange(cs_logged, {});
    };
    configure("MsgString = %a left %f, %i%%%q\n");
    EXPECT_EQ(fill(2), Lines()) << "off at first";
    EXPECT_EQ(ZEBU2_SetSwapMessageMode(1), 1U);
    EXPECT_EQ(ZEBU2_SetSwapMessageMode(2), 1U) << "refused";
    const std::string left = "5%%s             left " + path("%%%n");
    EXPECT_EQ(fill(4), (Lines{left + "1.log, 1%\n", left + "2.log, 2%\n", left + "1.log, 1%\n"}));
    EXPECT_EQ(fill(1), Lines()) << "the file chosen at the start is no switch";
    const std::string x250(250, 'x');
    configure("MsgString = " + x250 + "%f");
    EXPECT_EQ(fill(2), Lines{x250 + path("").substr(0, 5)}) << "cut at 255 characters";
    configure();
    EXPECT_EQ(fill(2), Lines()) << "no template";
}
