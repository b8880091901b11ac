// tests/support/Puts.h -- the put operations as a table: how each is called and what sets it apart.
#ifndef ZEBU_TESTS_SUPPORT_PUTS_H
#define ZEBU_TESTS_SUPPORT_PUTS_H

#include <string>

#include "ZEBULib2.h"

// The texts of one put; an operation takes those that it knows.
struct Texts
{
    const char* pszApp;
    const char* pszThread;
    const char* pszId;
    const char* pszType;
    const char* pszText;
};

struct Put
{
    const char* pszName;
    int iFunction; // in the high 8 bits of its error values
    int (*call)(ZEBU2_HINSTANCE hInstance, int iLevel, const Texts& texts);
    bool bInstance;  // goes through the instance, whose time is never masked
    bool bOwnName;   // prints the name of the log
    bool bOwnThread; // prints the calling thread
    size_t uIdWidth; // 0 for a plain body, 21, or 16 beside a message type

    size_t textMax() const { return uIdWidth == 0 ? 4117 : 4095; }
    bool masksTime() const { return !bInstance && bOwnThread; }
};

constexpr Put cs_puts[] = {
    {"PutLine", 0x08000000,
     [](ZEBU2_HINSTANCE, int iLevel, const Texts& t) { return ZEBU2_PutLine(iLevel, t.pszText); }, false,
     true, true, 0},
    {"PutWithId", 0x09000000,
     [](ZEBU2_HINSTANCE, int iLevel, const Texts& t) { return ZEBU2_PutWithId(iLevel, t.pszId, t.pszText); },
     false, true, true, 21},
    {"PutWithIdEx", 0x0A000000,
     [](ZEBU2_HINSTANCE, int iLevel, const Texts& t) {
         return ZEBU2_PutWithIdEx(iLevel, t.pszApp, t.pszId, t.pszText);
     },
     false, false, true, 21},
    {"PutWithMsgType", 0x20000000,
     [](ZEBU2_HINSTANCE, int iLevel, const Texts& t) {
         return ZEBU2_PutWithMsgType(iLevel, t.pszApp, t.pszId, t.pszType, t.pszText);
     },
     false, false, true, 16},
    {"PutWithIdAndTidEx", 0x23000000,
     [](ZEBU2_HINSTANCE, int iLevel, const Texts& t) {
         return ZEBU2_PutWithIdAndTidEx(iLevel, t.pszApp, t.pszThread, t.pszId, t.pszText);
     },
     false, false, false, 21},
    {"PutWithMsgTypeAndTid", 0x24000000,
     [](ZEBU2_HINSTANCE, int iLevel, const Texts& t) {
         return ZEBU2_PutWithMsgTypeAndTid(iLevel, t.pszApp, t.pszThread, t.pszId, t.pszType, t.pszText);
     },
     false, false, false, 16},
    {"PutInstanceLine", 0x15000000,
     [](ZEBU2_HINSTANCE h, int iLevel, const Texts& t) {
         return ZEBU2_PutInstanceLine(h, iLevel, t.pszText);
     },
     true, true, true, 0},
    {"PutInstanceWithId", 0x16000000,
     [](ZEBU2_HINSTANCE h, int iLevel, const Texts& t) {
         return ZEBU2_PutInstanceWithId(h, iLevel, t.pszId, t.pszText);
     },
     true, true, true, 21},
    {"PutInstanceWithIdEx", 0x17000000,
     [](ZEBU2_HINSTANCE h, int iLevel, const Texts& t) {
         return ZEBU2_PutInstanceWithIdEx(h, iLevel, t.pszApp, t.pszId, t.pszText);
     },
     true, false, true, 21},
    {"PutInstanceWithMsgType", 0x21000000,
     [](ZEBU2_HINSTANCE h, int iLevel, const Texts& t) {
         return ZEBU2_PutInstanceWithMsgType(h, iLevel, t.pszApp, t.pszId, t.pszType, t.pszText);
     },
     true, false, true, 16},
};

#endif
