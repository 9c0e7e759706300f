// The C functions of vxcamext.h, in the header's order.
#include "vxcamext.h"

#include "forward.h"

extern "C" int VXSetFrameCallback(int handle, tpFrameCallback callback, void* user)
{
    return Forward(handle, &tcVXCamera::SetFrameCallback, callback, user);
}

extern "C" int VXReadCCDArea8(int handle, unsigned char* buffer, short frames, unsigned short flags)
{
    return Forward(handle, &tcVXCamera::ReadCCDArea8, buffer, frames, flags);
}

extern "C" int VXReadoutResult(int handle)
{
    return Forward(handle, &tcVXCamera::ReadoutResult);
}

extern "C" int VXSetImageBuffers(int handle, void* const* buffers, int count, size_t bytes)
{
    return Forward(handle, &tcVXCamera::SetImageBuffers, buffers, count, bytes);
}

extern "C" int VXReturnImageBuffer(int handle, void* buffer)
{
    return Forward(handle, &tcVXCamera::ReturnImageBuffer, buffer);
}

extern "C" int VXSetLinkCallback(int handle, tpLinkCallback callback, void* user)
{
    return Forward(handle, &tcVXCamera::SetLinkCallback, callback, user);
}

extern "C" int VXSetHeartBeatRecordCallback(int handle, tpHeartBeatRecordCallback callback,
                                            void* user)
{
    return Forward(handle, &tcVXCamera::SetHeartBeatRecordCallback, callback, user);
}

extern "C" int VXSetCameraErrorCallback(int handle, tpCameraErrorCallback callback, void* user)
{
    return Forward(handle, &tcVXCamera::SetCameraErrorCallback, callback, user);
}

extern "C" int VXSetTap(int handle, unsigned what, tpTapCallback callback, void* user)
{
    return Forward(handle, &tcVXCamera::SetTap, what, callback, user);
}

extern "C" int VXSetOpeningTap(unsigned what, tpTapCallback callback, void* user)
{
    return tcVXCamera::SetOpeningTap(what, callback, user);
}

extern "C" int VXGetStatistics(int handle, tsStatistics* statistics, int size)
{
    const int refused = tcVXCamera::CheckStatistics(statistics, size);
    if (refused != eVXOk) return refused;
    return Guarded([&] {
        const tcVXCamera::tcHold camera(handle);
        return camera ? camera->GetStatistics(statistics, size) : static_cast<int>(eVXNoCamera);
    });
}
