// A shared ring whose management file and trace files hold anything: it opens or it does not, and a line that
// was put is found.
#include <signal.h>
#include <sys/resource.h>

#include "Fuzz.h"
#include "multilog/MultiLogFile.h"

static void fuzz(std::string_view input)
{
    const FuzzDir dir;
    // A damaged record may ask for a gigabyte of files: nothing may grow beyond a megabyte.
    static const rlimit limit = {1 << 20, 1 << 20};
    FUZZ_CHECK(setrlimit(RLIMIT_FSIZE, &limit) == 0 && signal(SIGXFSZ, SIG_IGN) != SIG_ERR);
    const std::string_view rest = dir.writeRing(input);
    const std::string prefix = dir.path("app"), backup = dir.path("backup");
    const tagZEBU_LOGFILE_SPEC spec = {4096, 3, prefix.c_str()};
    ZebuMultiLogFile ring(&spec);
    ring.setOption(FuzzDir::byte(rest, 0) & 0x3F);
    ring.setLockRetryTimes(1);
    if (ring.openFile() != -1) {
        const std::string line = std::string(1 + FuzzDir::byte(rest, 1) * size_t{16}, 'x') + "\r\n";
        for (int i = 0; i < 3; ++i)
            (void)ring.putMessage(line.data(), line.size());
        (void)ring.bufferFlush();
        const bool bPut = ring.putMessage(line.data(), line.size()) == 0;
        const bool bCopied = ring.backupToFile(backup.c_str(), 0) == 0;
        std::ifstream in(backup, std::ios::binary);
        const std::string copy(std::istreambuf_iterator<char>(in), {});
        FUZZ_CHECK(!bCopied || !bPut || copy.ends_with(line));
    }
    ring.abandon();
}
