#include "support/Sandbox.h"

#include <sched.h>
#include <sys/mount.h>

#include <fstream>

namespace fs = std::filesystem;

std::string readFile(const std::string& path)
{
    std::ostringstream bytes; // takes blocks, not characters: the sanitizers look at each
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

bool exists(const std::string& path)
{
    return fs::exists(fs::symlink_status(path));
}

void age(const std::string& path, long lSeconds)
{
    const auto then = std::chrono::system_clock::from_time_t(time(nullptr) - lSeconds);
    fs::last_write_time(path, std::chrono::file_clock::from_sys(then));
}

std::string sharedData(const std::string& bytes)
{
    const size_t uMark = ("\r\n" + bytes).find("\r\n\x1A");
    return uMark == std::string::npos ? "" : bytes.substr(0, uMark);
}

Lines splitLines(const std::string& bytes)
{
    Lines found;
    size_t uStart = 0;
    for (size_t uEnd; (uEnd = bytes.find("\r\n", uStart)) != std::string::npos; uStart = uEnd + 2)
        found.push_back(bytes.substr(uStart, uEnd - uStart));
    return found;
}

Lines traceLines(const std::string& bytes)
{
    Lines found = splitLines(bytes);
    std::erase_if(found, [](const std::string& line) {
        return line.starts_with("**** ") || line.starts_with("     yyyy");
    });
    return found;
}

std::string body(const std::string& line)
{
    return line.size() < 68 ? "" : line.substr(68);
}

Lines bodies(Lines lines)
{
    std::transform(lines.begin(), lines.end(), lines.begin(), body);
    return lines;
}

Sandbox::Sandbox()
{
    std::string name = fs::temp_directory_path() / "zebu-test-XXXXXX";
    if (!mkdtemp(name.data()))
        abort();
    m_dir = name;
    configure();
    setenv("ZEBU2_TRACECNF_FILE", configFile().c_str(), 1);
}

AreaHeader Sandbox::areaHeader() const
{
    AreaHeader header = {};
    (void)readFile(areaFile()).copy(reinterpret_cast<char*>(&header), sizeof header);
    return header;
}

std::string Sandbox::areaBytes() const
{
    const auto [uMagic, uReserved, uDataSize, uRead, uWrite, uGuard] = areaHeader();
    const std::string data = readFile(areaFile()).erase(0, sizeof(AreaHeader)).substr(0, uDataSize);
    return uRead <= uWrite ? data.substr(uRead, uWrite - uRead) : data.substr(uRead) + data.substr(0, uWrite);
}

void Sandbox::setAreaField(long lOffset, uint32_t uValue) const
{
    std::fstream file(areaFile(), std::ios::binary | std::ios::in | std::ios::out);
    EXPECT_TRUE(file.seekp(lOffset).write(reinterpret_cast<const char*>(&uValue), sizeof uValue));
}

long openDescriptors()
{
    const fs::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

int lockAsAnother(const std::string& path)
{
    const int iFd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    CHECK(fcntl(iFd, F_OFD_SETLK, &lock) == 0);
    return iFd;
}

bool enterPrivateOpt()
{
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/opt", "tmpfs", 0, "mode=0755") == 0;
}

bool enterSmallDisk()
{
    return enterPrivateOpt() && mkdir("/opt/full", 0777) == 0 &&
           mount("none", "/opt/full", "tmpfs", 0, "size=96k") == 0;
}
