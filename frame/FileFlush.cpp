// frame/FileFlush.cpp -- flushing a ring: entry points only.
#include "frame/FileFlush.h"

static int fs_flush(const ZEBUEngineRef& engine)
{
    return engine.bufferFlush();
}

int ZEBU2_FileBufferFlush(void)
{
    const ZEBUErrScope err(ZEBU_FUNC_FILE_BUFFER_FLUSH);
    if (!err.context())
        return -1;
    return err.finish(ZEBU_OnProcessEngine(fs_flush));
}

int ZEBU2_InstanceFileBufferFlush(ZEBU2_HINSTANCE hInstance)
{
    const ZEBUErrScope err(ZEBU_FUNC_INSTANCE_FILE_BUFFER_FLUSH);
    if (!err.context())
        return -1;
    if (!hInstance)
        return err.fail(ZEBU_EPOS_PARAM);
    return err.finish(ZEBU_OnInstanceEngine(hInstance, fs_flush));
}
