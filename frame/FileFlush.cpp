// frame/FileFlush.cpp -- flushing a ring: entry points only.
#include "frame/ErrPos.h"
#include "frame/Guards.h"
#include "frame/ProcessObjects.h"
#include "frame/TraceObject.h"

int ZEBU2_FileBufferFlush(void)
{
    const ZEBUErrScope err(ZEBU_FUNC_FILE_BUFFER_FLUSH);
    if (!err.context())
        return -1;
    const ZEBUMutexGuard lock;
    return err.finish(ZEBU2_Engine.bufferFlush());
}

int ZEBU2_InstanceFileBufferFlush(ZEBU2_HINSTANCE hInstance)
{
    const ZEBUErrScope err(ZEBU_FUNC_INSTANCE_FILE_BUFFER_FLUSH);
    if (!err.context())
        return -1;
    const ZEBULiveInstance instance(hInstance, err);
    return instance ? err.finish(instance->engine.bufferFlush()) : -1;
}
