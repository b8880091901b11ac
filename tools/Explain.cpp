// tools/Explain.cpp -- an error value of the library in words, which are those of the C++ wrapper.
#include <string.h>

#include "tools/Verbs.h"
#include "tools/When.h"
#include "ZEBULib2.hpp"

namespace {
// Empty for an unknown one.
std::string fs_function(int iFunction)
{
    if (iFunction == ZEBU_FUNC_NONE)
        return "none: a step that does not fail the call left the value";
    const char* pszName = zebu2::detail::function_name(iFunction);
    return pszName ? std::string("ZEBU2_") + pszName : "";
}
} // namespace

std::string ZEBU_ExplainedError(unsigned uValue, int iCode)
{
    return zebu2::error_info{static_cast<int>(uValue), iCode}.text().c_str();
}

int ZEBU_Explain(const ZEBUExplainOptions& options)
{
    const zebu2::error_info error = {static_cast<int>(ZEBU_Number(options.strValue, "number")), 0};
    const auto* pFailure = zebu2::detail::find_failure(error.failure());
    const std::string strFunction = fs_function(error.function());
    std::string strText = "function  " + std::to_string(error.function()) + "  " +
                          (strFunction.empty() ? "unknown" : strFunction) + "\nfailure   " +
                          std::to_string(error.failure()) + "  ";
    strText += pFailure ? std::string(pFailure->name) + ": " + pFailure->text : "unknown";
    if (!options.strCode.empty()) {
        const auto iCode = static_cast<int>(ZEBU_Number(options.strCode, "number"));
        strText += "\ncode      " + std::to_string(iCode) + "  " + strerror(iCode);
    }
    ZEBU_WriteFully(1, strText + "\n", "standard output");
    return !strFunction.empty() && pFailure ? ZEBU_EXIT_OK : ZEBU_EXIT_NOTHING;
}
