/* The public header alone, in every language it is for. */
#include "ZEBULib2.h"

int take(ZEBU2_HINSTANCE hInstance)
{
    const tagZEBU_LOGFILE_SPEC spec = {ZEBU2_FILE_SIZE_MIN, ZEBU2_FILE_COUNT_MAX, "prefix"};
    const int iError = ZEBU2_Initialize(&spec, ZEBU2_version_string) + ZEBU2_DeleteInstance(hInstance);
    return ZEBU2_ERROR_FUNCTION(iError) + ZEBU2_ERROR_FAILURE(iError);
}
