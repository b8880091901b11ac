// Path normalisation: the room of the result is never left, and a result is in its one form.
#include <string.h>

#include "config/GetPath.h"
#include "Fuzz.h"

static bool isNormal(std::string_view path)
{
    const std::string framed = std::string(path) + "/";
    return path == "/" ||
           (path.starts_with('/') && !framed.ends_with("//") && framed.find("//") == std::string::npos &&
            framed.find("/./") == std::string::npos && framed.find("/../") == std::string::npos);
}

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    const std::string path(fuzzText(pData, uSize));
    for (const size_t uMax : {size_t{1}, uSize / 2 + 1, uSize + 1}) {
        char* const pszAbsolute = static_cast<char*>(malloc(uMax + 1)); // exactly: what follows is poisoned
        char* const pszParent = static_cast<char*>(malloc(uMax + 1));
        if (ZEBU_GetAbsolutePath(path.c_str(), pszAbsolute, uMax) == 0) {
            FUZZ_CHECK(strlen(pszAbsolute) <= uMax && isNormal(pszAbsolute));
            std::string again(uMax + 1, '?');
            FUZZ_CHECK(ZEBU_GetAbsolutePath(pszAbsolute, again.data(), uMax) == 0);
            FUZZ_CHECK(strcmp(again.c_str(), pszAbsolute) == 0);
            FUZZ_CHECK(ZEBU_GetParentPath(path.c_str(), pszParent, uMax) == 0 && isNormal(pszParent));
        }
        free(pszAbsolute);
        free(pszParent);
    }
    return 0;
}
