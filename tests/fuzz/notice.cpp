// The file-switch notice, from any template, name and file name.
#include <string.h>

#include "Fuzz.h"
#include "logfile/LogSwapMsg.h"

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    std::string_view input = fuzzText(pData, uSize);
    const std::string notice(FuzzDir::take(&input, uSize / 2));
    const std::string name(FuzzDir::take(&input, 16));
    const std::string file(input);
    auto* pMsg = static_cast<tagZEBU_SWAP_MSG*>(malloc(sizeof(tagZEBU_SWAP_MSG)));
    const int iLength =
        ZEBU_BuildSwapMsg(pMsg, notice.c_str(), name.c_str(), static_cast<int>(uSize), file.c_str());
    FUZZ_CHECK(iLength >= 0 && iLength <= ZEBU_SWAP_MSG_MAX);
    FUZZ_CHECK(strlen(pMsg->szText) == static_cast<size_t>(iLength));
    FUZZ_CHECK(strlen(pMsg->szShown) <= static_cast<size_t>(iLength));
    free(pMsg);
    return 0;
}
