// Appending to a trace area whose header holds anything, the word of a dead holder as well: no byte outside
// of it is touched, and a line that is stored is there.
#include <sys/syscall.h>
#include <time.h>

#include "Fuzz.h"
#include "mmap/AreaAppend.h"
#include "mmap/AreaGuard.h"

// The clock that waits go by makes leaps, so that a dead holder costs no time.
extern "C" int clock_gettime(clockid_t iClock, timespec* pTime) noexcept
{
    static time_t lSeconds = 1;
    static long lLeaps = 0;
    if (iClock != CLOCK_MONOTONIC)
        return static_cast<int>(syscall(SYS_clock_gettime, iClock, pTime));
    lLeaps = (lLeaps + 1) % 50;
    lSeconds += lLeaps == 0;
    *pTime = {lSeconds, lLeaps * 20'000'000};
    return 0;
}

static void fuzz(std::string_view input)
{
    tagZEBU_AREA_HEADER header = {ZEBU_AREA_MAGIC, 0, 0, 0, 0, 0};
    if (input.size() < sizeof header + 4)
        return;
    memcpy(&header, input.data(), sizeof header);
    if (FuzzDir::byte(input, 27) % 4 == 0) // else hardly ever found
        header.uGuard = ZEBU_HoldOfNumber(header.uGuard) | (header.uGuard & ZEBU_GUARD_CLASS);
    if (header.uMagic % 4 != 0)
        header.uMagic = ZEBU_AREA_MAGIC;
    const uint32_t uLength = static_cast<uint32_t>(sizeof header) + FuzzDir::byte(input, 24) * 4;
    const uint32_t uLine = 1 + FuzzDir::byte(input, 25) * 4u + FuzzDir::byte(input, 26);
    const auto pMap = std::make_unique<char[]>(uLength); // exactly: what follows is poisoned
    memcpy(pMap.get(), &header, sizeof header);
    const auto& after = *reinterpret_cast<const tagZEBU_AREA_HEADER*>(pMap.get());
    const std::string line(uLine, 'x');
    for (int i = 0; i < 3; ++i) {
        const tagZEBU_AREA_HEADER before = after;
        const ZEBUAppend eAppend = ZEBU_AppendToArea(pMap.get(), uLength, line.data(), uLine);
        FUZZ_CHECK(after.uMagic == before.uMagic && after.uDataSize == before.uDataSize);
        FUZZ_CHECK(after.uReadOffset == before.uReadOffset);
        const bool bHeld = ZEBU_IsHolder(before.uGuard); // what it claimed may have become a blank line
        if (eAppend != ZEBU_APPEND_STORED) {
            FUZZ_CHECK(bHeld || after.uWriteOffset == before.uWriteOffset);
            continue;
        }
        FUZZ_CHECK(bHeld ? !ZEBU_IsHolder(after.uGuard) : after.uGuard == before.uGuard);
        if (uLine > before.uDataSize) { // a read offset behind the data says that more is free than there is
            FUZZ_CHECK(before.uReadOffset > before.uDataSize);
            continue;
        }
        FUZZ_CHECK(after.uWriteOffset <= after.uDataSize);
        for (uint32_t u = 1; u <= uLine; ++u)
            FUZZ_CHECK(pMap[sizeof header +
                            (after.uWriteOffset + uint64_t{after.uDataSize} - u) % after.uDataSize] == 'x');
    }
}
