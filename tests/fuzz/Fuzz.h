// tests/fuzz/Fuzz.h -- what the fuzz targets share: a directory in memory, files in it, and a check that
// stays in every build.
#ifndef ZEBU_TESTS_FUZZ_FUZZ_H
#define ZEBU_TESTS_FUZZ_FUZZ_H

#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <string_view>

#define FUZZ_CHECK(condition) ((condition) ? (void)0 : abort())

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize);

// One directory for the whole run, removed at its end.
class FuzzDir
{
public:
    FuzzDir()
    {
        m_path = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path().string();
        m_path += "/zebu-fuzz-XXXXXX";
        FUZZ_CHECK(mkdtemp(m_path.data()));
    }
    ~FuzzDir() { std::filesystem::remove_all(m_path); }
    FuzzDir(const FuzzDir&) = delete;
    FuzzDir& operator=(const FuzzDir&) = delete;

    std::string path(const std::string& name) const { return m_path + "/" + name; }

    void write(const std::string& name, std::string_view bytes) const
    {
        FILE* pFile = fopen(path(name).c_str(), "wb");
        FUZZ_CHECK(pFile);
        FUZZ_CHECK(fwrite(bytes.data(), 1, bytes.size(), pFile) == bytes.size());
        FUZZ_CHECK(fclose(pFile) == 0);
    }

    // A ring "app": the input is cut into a management file of 64 bytes and three trace files, each behind
    // its length in two bytes. What is left over is returned.
    std::string_view writeRing(std::string_view input) const
    {
        std::filesystem::create_directory(path("mmap"));
        write("mmap/app.mm", take(&input, 64));
        for (const char* pszName : {"app1.log", "app2.log", "app3.log"}) {
            const std::string_view length = take(&input, 2);
            const size_t uLength = length.size() < 2 ? 0 : byte(length, 0) + byte(length, 1) * size_t{256};
            write(pszName, take(&input, uLength));
        }
        return input;
    }

    static std::string_view take(std::string_view* pInput, size_t uLength)
    {
        const std::string_view taken = pInput->substr(0, uLength);
        pInput->remove_prefix(taken.size());
        return taken;
    }
    static unsigned char byte(std::string_view bytes, size_t u)
    {
        return u < bytes.size() ? static_cast<unsigned char>(bytes[u]) : 0;
    }

    // A damaged record may ask for a gigabyte of files: nothing may grow beyond a megabyte.
    static void limitFiles()
    {
        const rlimit limit = {1 << 20, 1 << 20};
        FUZZ_CHECK(setrlimit(RLIMIT_FSIZE, &limit) == 0);
        (void)signal(SIGXFSZ, SIG_IGN);
    }

private:
    std::string m_path;
};

inline std::string_view fuzzText(const uint8_t* pData, size_t uSize)
{
    return {reinterpret_cast<const char*>(pData), uSize};
}

#endif
