// Path normalisation: the room of the result is never left, and a result is in its one form.
#include "config/GetPath.h"
#include "Fuzz.h"

static bool isNormal(std::string_view path)
{
    const std::string framed = std::string(path) + "/";
    return path == "/" || (path.starts_with('/') && framed.find("//") == framed.npos &&
                           framed.find("/./") == framed.npos && framed.find("/../") == framed.npos);
}

static void fuzz(std::string_view input)
{
    const std::string path(input);
    for (const size_t uMax : {size_t{1}, path.size() / 2 + 1, path.size() + 1}) {
        const auto pszAbsolute = std::make_unique<char[]>(uMax + 1); // exactly: what follows is poisoned
        const auto pszAgain = std::make_unique<char[]>(uMax + 1);
        if (ZEBU_GetAbsolutePath(path.c_str(), pszAbsolute.get(), uMax) != 0)
            continue;
        FUZZ_CHECK(strlen(pszAbsolute.get()) <= uMax && isNormal(pszAbsolute.get()));
        FUZZ_CHECK(ZEBU_GetAbsolutePath(pszAbsolute.get(), pszAgain.get(), uMax) == 0);
        FUZZ_CHECK(strcmp(pszAgain.get(), pszAbsolute.get()) == 0);
        FUZZ_CHECK(ZEBU_GetParentPath(path.c_str(), pszAgain.get(), uMax) == 0 && isNormal(pszAgain.get()));
    }
}
