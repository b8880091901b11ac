// tests/fuzz/Fuzz.h -- what the fuzz targets share: a directory in memory, files in it, and a check that
// stays in every build.
#ifndef ZEBU_TESTS_FUZZ_FUZZ_H
#define ZEBU_TESTS_FUZZ_FUZZ_H

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#define FUZZ_CHECK(condition) ((condition) ? (void)0 : abort())

// The target, of which each program has one.
static void fuzz(std::string_view input);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    fuzz({reinterpret_cast<const char*>(pData), uSize});
    return 0;
}

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
    FuzzDir(FuzzDir&&) = delete; // nor copied

    std::string path(const std::string& name) const { return m_path + "/" + name; }

    void write(const std::string& name, std::string_view bytes) const
    {
        std::ofstream out(path(name), std::ios::binary);
        FUZZ_CHECK(out << bytes << std::flush);
    }

    // A ring "app": the input is cut into a management file of 64 bytes and three trace files, each behind
    // its length in two bytes. What is left over is returned.
    std::string_view writeRing(std::string_view input) const
    {
        std::filesystem::create_directory(path("mmap"));
        write("mmap/app.mm", take(&input, 64));
        for (const char* pszName : {"app1.log", "app2.log", "app3.log"}) {
            const std::string_view length = take(&input, 2);
            write(pszName, take(&input, byte(length, 0) + byte(length, 1) * size_t{256}));
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

private:
    std::string m_path;
};

#endif
