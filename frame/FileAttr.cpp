// frame/FileAttr.cpp -- changing the permission bits of a ring's files: entry points only.
#include "frame/ErrPos.h"
#include "frame/Guards.h"
#include "frame/ProcessObjects.h"
#include "frame/TraceObject.h"

static bool fs_isMode(int iMode)
{
    return static_cast<unsigned int>(iMode) <= 07777;
}

// The owner, that is the writing process, keeps access whatever the caller asks for.
static int fs_change(const ZEBUEngine& engine, int iMode)
{
    return engine.changeFileAttr(iMode | 0600);
}

int ZEBU2_ChFileAttr(int iMode)
{
    const ZEBUErrScope err(ZEBU_FUNC_CH_FILE_ATTR);
    if (!err.context())
        return -1;
    const ZEBUMutexGuard lock;
    if (!ZEBU2_iIsInitialized)
        return err.fail(ZEBU_EPOS_NOTREADY);
    if (!fs_isMode(iMode))
        return err.fail(ZEBU_EPOS_PARAM);
    return err.finish(fs_change(ZEBU2_Engine, iMode));
}

int ZEBU2_ChInstanceFileAttr(ZEBU2_HINSTANCE hInstance, int iMode)
{
    const ZEBUErrScope err(ZEBU_FUNC_CH_INSTANCE_FILE_ATTR);
    const ZEBULiveInstance instance(hInstance, err);
    if (!instance)
        return -1;
    if (!err.context())
        return -1;
    if (!fs_isMode(iMode))
        return err.fail(ZEBU_EPOS_PARAM);
    return err.finish(fs_change(instance->engine, iMode));
}
