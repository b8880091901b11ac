// tests/test_swap_message.cpp -- the file-switch notice: its text and what reaches syslog.
#include <stdarg.h>
#include <stdio.h>
#include <syslog.h>

#include "logfile/LogSwapMsg.h"
#include "support/Sandbox.h"

namespace {

struct tagLogged
{
    int iPriority;
    std::string message;
};
std::vector<tagLogged> cs_logged;

void keep(int iPriority, const char* pszFormat, va_list arguments)
{
    char szMessage[1024];
    vsnprintf(szMessage, sizeof szMessage, pszFormat, arguments);
    cs_logged.push_back({iPriority, szMessage});
}

} // namespace

// Stand in for the system's, which is called by one of these names.
extern "C" void syslog(int iPriority, const char* pszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pszFormat);
    keep(iPriority, pszFormat, arguments);
    va_end(arguments);
}

extern "C" void __syslog_chk(int iPriority, int, const char* pszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pszFormat);
    keep(iPriority, pszFormat, arguments);
    va_end(arguments);
}

namespace {

TEST(SwapMessage, TemplateIsFilledAndShown)
{
    const std::string x250(250, 'x');
    const std::string x254(254, 'x');
    const struct
    {
        std::string pattern;
        const char* pszAppName;
        int iNumber;
        std::string file;
        std::string shown;
        int iLength;
    } cases[] = {
        {"%a: %f (%i) done 100%%", "APP", 3, "/var/trace/app3.log", "APP: /var/trace/app3.log (3) done 100%",
         39},
        {"%a|", "APP             ", 1, "f", "APP             |", 17},
        {"x%qy%", "APP", 1, "f", "xy", 2},
        {"", "APP", 1, "f", "", 0},
        {"%%%%a%%", "APP", 1, "f", "%%a%", 7},
        {"%f%a", "5%%s", 1, "/100%%/%n", "/100%%/%n5%%s", 13},
        {"end of %f\n", "APP", 1, "f", "end of f\n", 9},
        {"%i", "APP", -2147483647 - 1, "f", "-2147483648", 11},
        {x250 + "%f", "APP", 1, "123456", x250 + "12345", 255},
        {x250 + "%f!%i", "APP", 1, "12345", x250 + "12345", 255},
        {x254 + "%%", "APP", 1, "f", x254 + "%", 255},
        {"%%" + x254, "APP", 1, "f", "%" + x254.substr(1), 255},
    };
    for (const auto& test : cases) {
        cs_logged.clear();
        EXPECT_EQ(
            ZEBU_FormatSwapMsgString(test.pattern.c_str(), test.pszAppName, test.iNumber, test.file.c_str()),
            test.iLength)
            << test.pattern;
        ASSERT_EQ(cs_logged.size(), 1U);
        EXPECT_EQ(cs_logged[0].message, test.shown);
        EXPECT_EQ(cs_logged[0].iPriority, LOG_INFO);
    }
}

TEST(SwapMessage, ModeTakesZeroAndOneAlone)
{
    const struct
    {
        unsigned int uMode;
        unsigned int uInForce;
    } cases[] = {{2, 0}, {1, 1}, {2, 1}, {0xFFFFFFFF, 1}, {0, 0}};
    EXPECT_EQ(ZEBU_IsEnableSwapMsg(), 0) << "off when the library is loaded";
    for (const auto& test : cases) {
        EXPECT_EQ(ZEBU2_SetSwapMessageMode(test.uMode), test.uInForce) << test.uMode;
        EXPECT_EQ(ZEBU_IsEnableSwapMsg(), static_cast<int>(test.uInForce)) << test.uMode;
    }
}

class SwapNotice : public Sandbox
{
protected:
    // Fills file after file of a ring of two, beginning with the first. Returns what was logged.
    Lines fill(int iFiles)
    {
        cs_logged.clear();
        EXPECT_EQ(ZEBU2_Initialize(ring(4096, 2), "app"), 0);
        for (int i = 0; i < iFiles; ++i)
            EXPECT_EQ(ZEBU2_PutLine(0, std::string(4000, 'x').c_str()), 0);
        EXPECT_EQ(ZEBU2_Finalize(), 0);
        Lines messages;
        for (const tagLogged& logged : cs_logged)
            messages.push_back(logged.message);
        return messages;
    }
};

TEST_F(SwapNotice, NamesTheFileJustLeft)
{
    configure("MsgString = %a left %f, %i\n");
    EXPECT_EQ(fill(2), Lines()) << "off at first";
    ASSERT_EQ(ZEBU2_SetSwapMessageMode(1), 1U);
    const std::string left = "app              left ";
    EXPECT_EQ(fill(4), (Lines{left + traceFile(1) + ", 1\n", left + traceFile(2) + ", 2\n",
                              left + traceFile(1) + ", 1\n"}));
    EXPECT_EQ(fill(1), Lines()) << "the file chosen at the start is no switch";
    configure();
    EXPECT_EQ(fill(2), Lines()) << "no template";
}

} // namespace
