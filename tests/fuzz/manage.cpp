// A shared ring whose management file and trace files hold anything: it opens or it does not, and a line that
// was put is found.
#include <string.h>

#include "Fuzz.h"
#include "multilog/MultiLogFile.h"

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    static const FuzzDir dir;
    static const bool bLimited = (FuzzDir::limitFiles(), true);
    (void)bLimited;
    const std::string_view rest = dir.writeRing(fuzzText(pData, uSize));
    const std::string prefix = dir.path("app");
    const tagZEBU_LOGFILE_SPEC spec = {4096, 3, prefix.c_str()};
    ZebuMultiLogFile ring(&spec);
    ring.setOption(FuzzDir::byte(rest, 0) & 0x3F);
    ring.setLockRetryTimes(1);
    if (const int iOpened = ring.openFile(); iOpened != 0 && iOpened != 3) {
        ring.abandon();
        return 0;
    }
    std::string line(1 + FuzzDir::byte(rest, 1) * size_t{16}, 'x');
    line += "\r\n";
    for (int i = 0; i < 3; ++i)
        (void)ring.putMessage(line.data(), line.size());
    (void)ring.bufferFlush();
    const std::string backup = dir.path("backup");
    const bool bPut = ring.putMessage(line.data(), line.size()) == 0;
    if (ring.backupToFile(backup.c_str(), 0) == 0 && bPut) {
        FILE* pFile = fopen(backup.c_str(), "rb");
        FUZZ_CHECK(pFile && fseek(pFile, -static_cast<long>(line.size()), SEEK_END) == 0);
        std::string last(line.size(), '?');
        FUZZ_CHECK(fread(last.data(), 1, last.size(), pFile) == last.size() && last == line);
        FUZZ_CHECK(fclose(pFile) == 0);
    }
    ring.abandon();
    for (const auto& entry :
         std::filesystem::directory_iterator(dir.path(""))) { // the next input starts clean
        if (!entry.is_directory())
            std::filesystem::remove(entry);
    }
    return 0;
}
