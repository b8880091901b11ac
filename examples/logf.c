/* logf.c -- printf-style puts: formats, ids, places, every n-th, and a level from the environment.
 *
 * usage: [APP_LEVEL=debug] logf PREFIX
 */
#define ZEBU2_LOG_COMPILED ZEBU2_LEVEL_DEBUG /* ZEBU2_LEVEL_TRACE is not even compiled */
#include "ZEBULib2_log.h"

int main(int argc, char** argv)
{
    tagZEBU_LOGFILE_SPEC ring = {64 * 1024, 2, NULL};
    int i;
    if (argc < 2) {
        fprintf(stderr, "usage: [APP_LEVEL=debug] %s PREFIX\n", argv[0]);
        return 2;
    }
    ring.pszFilePath = argv[1];
    if (ZEBU2_Initialize(&ring, "logf") == -1)
        return 1;
    ZEBU2_SetLogLevelFromEnv("APP_LEVEL", ZEBU2_LEVEL_INFO);

    ZEBU2_LOGF(ZEBU2_LEVEL_INFO, "%d arguments, the first is %s", argc - 1, argv[1]);
    ZEBU2_LOGF_ID(ZEBU2_LEVEL_WARNING, "NET-17", "no answer after %.1f s", 2.5);
    ZEBU2_LOGF_AT(ZEBU2_LEVEL_DEBUG, "seen with APP_LEVEL=debug");
    for (i = 0; i < 1000; ++i) {
        ZEBU2_LOGF_EVERY(250, ZEBU2_LEVEL_INFO, "turn %d", i);
        ZEBU2_LOGF_ONCE(ZEBU2_LEVEL_NOTICE, "only in turn %d", i);
        ZEBU2_LOGF(ZEBU2_LEVEL_TRACE, "never, %d", i);
    }
    ZEBU2_Finalize();
    return ZEBU2_EndLibrary();
}
