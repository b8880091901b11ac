// Appending to a trace area whose header holds anything: no byte outside of it is touched, and a line that is
// stored is there.
#include <string.h>

#include "Fuzz.h"
#include "mmap/AreaAppend.h"
#include "mmap/AreaGuard.h"

static void fuzz(std::string_view input)
{
    tagZEBU_AREA_HEADER header = {ZEBU_AREA_MAGIC, 0, 0, 0, 0, 0};
    if (input.size() < sizeof header + 4)
        return;
    memcpy(&header, input.data(), sizeof header);
    if (ZEBU_IsHolder(header.uGuard)) // would be waited for
        header.uGuard = 0;
    if (header.uMagic % 4 != 0)
        header.uMagic = ZEBU_AREA_MAGIC;
    const uint32_t uLength = static_cast<uint32_t>(sizeof header) + FuzzDir::byte(input, 24) * 4;
    const uint32_t uLine = 1 + FuzzDir::byte(input, 25) * 4u + FuzzDir::byte(input, 26);
    auto* pMap = static_cast<char*>(malloc(uLength)); // exactly: what follows is poisoned
    memset(pMap, '.', uLength);
    memcpy(pMap, &header, sizeof header);
    const std::string line(uLine, 'x');
    for (int i = 0; i < 3; ++i) {
        tagZEBU_AREA_HEADER before, after;
        memcpy(&before, pMap, sizeof before);
        const ZEBUAppend eAppend = ZEBU_AppendToArea(pMap, uLength, line.data(), uLine);
        memcpy(&after, pMap, sizeof after);
        FUZZ_CHECK(after.uMagic == before.uMagic && after.uDataSize == before.uDataSize);
        FUZZ_CHECK(after.uReadOffset == before.uReadOffset);
        if (eAppend != ZEBU_APPEND_STORED) {
            FUZZ_CHECK(after.uWriteOffset == before.uWriteOffset);
            continue;
        }
        FUZZ_CHECK(after.uGuard == before.uGuard);
        if (before.uReadOffset > before.uDataSize) // says that more is free than there is
            continue;
        FUZZ_CHECK(after.uWriteOffset <= after.uDataSize);
        for (uint32_t u = 0; u < uLine; ++u)
            FUZZ_CHECK(pMap[sizeof header + (before.uWriteOffset + u) % before.uDataSize] == 'x');
    }
    free(pMap);
}
