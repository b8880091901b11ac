// frame/Backup.cpp -- copying a ring into one file: entry points only.
#include "frame/ErrPos.h"
#include "frame/Guards.h"
#include "frame/ProcessObjects.h"
#include "frame/TraceObject.h"

static bool fs_isOption(int iOption)
{
    return iOption == 0 || iOption == ZEBU2_BACKUP_NOLOCK;
}

static int ZEBU2_Sub_TraceBackup(int iFunc, const char* pszBackupFile, int iOption)
{
    const ZEBUErrScope err(iFunc);
    if (!fs_isOption(iOption))
        return err.fail(ZEBU_EPOS_PARAM);
    if (ZEBU2_FileBufferFlush() != 0)
        return err.finish(-1);
    const ZEBUMutexGuard lock;
    return err.finish(ZEBU2_Engine.backupToFile(pszBackupFile, iOption));
}

static int ZEBU2_Sub_InstanceTraceBackup(int iFunc, ZEBU2_HINSTANCE hInstance, const char* pszBackupFile,
                                         int iOption)
{
    const ZEBUErrScope err(iFunc);
    if (!hInstance || !fs_isOption(iOption))
        return err.fail(ZEBU_EPOS_PARAM);
    if (ZEBU2_InstanceFileBufferFlush(hInstance) != 0)
        return err.finish(-1);
    const ZEBULiveInstance instance(hInstance, err);
    return instance ? err.finish(instance->engine.backupToFile(pszBackupFile, iOption)) : -1;
}

int ZEBU2_TraceBackup(const char* pszBackupFile)
{
    return ZEBU2_Sub_TraceBackup(ZEBU_FUNC_TRACE_BACKUP, pszBackupFile, 0);
}

int ZEBU2_TraceBackupM(const char* pszBackupFile, int iOption)
{
    return ZEBU2_Sub_TraceBackup(ZEBU_FUNC_TRACE_BACKUP_M, pszBackupFile, iOption);
}

int ZEBU2_InstanceTraceBackup(ZEBU2_HINSTANCE hInstance, const char* pszBackupFile)
{
    return ZEBU2_Sub_InstanceTraceBackup(ZEBU_FUNC_INSTANCE_TRACE_BACKUP, hInstance, pszBackupFile, 0);
}

int ZEBU2_InstanceTraceBackupM(ZEBU2_HINSTANCE hInstance, const char* pszBackupFile, int iOption)
{
    return ZEBU2_Sub_InstanceTraceBackup(ZEBU_FUNC_INSTANCE_TRACE_BACKUP_M, hInstance, pszBackupFile,
                                         iOption);
}
