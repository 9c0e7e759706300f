// The C functions of vxcamext.h, in the header's order.
#include "vxcamext.h"

#include "errortaker.h"
#include "forward.h"
#include "tcFrameAccount.h"

#include <cstdlib>
#include <string>
#include <utility>

namespace {

// Cameras' loggers are called by their handles.
int HandleOf(const std::string& logger)
{
    const std::string before = "VXCAM";
    if (logger.size() == before.size() || logger.compare(0, before.size(), before) != 0) return -1;
    return static_cast<int>(std::strtol(logger.c_str() + before.size(), nullptr, 10)) - 1;
}

bool Tell(const std::string& logger, const tcLogEvent& event, tpLogCallback callback, void* user)
{
    tsLoggedError record{};
    record.Size = sizeof record;
    record.Handle = HandleOf(logger);
    record.ErrorNumber = event.errNum;
    record.Logger = logger.c_str();
    record.Text = event.message;
    record.Time = ThisMoment();
    return callback(&record, user) != 0;
}

} // namespace

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

extern "C" int VXGiveUpReadout(int handle)
{
    return Forward(handle, &tcVXCamera::GiveUpReadout);
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

extern "C" int VXSetPatience(int ms)
{
    return tcVXCamera::SetPatience(ms);
}

extern "C" int VXGiveUpQuestions(int handle)
{
    return Forward(handle, &tcVXCamera::GiveUpQuestions);
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

extern "C" int VXSetLogCallback(tpLogCallback callback, void* user)
{
    return Guarded([=] {
        vx::tErrorTaker taker;
        if (callback != nullptr) {
            taker = [=](const std::string& logger, const tcLogEvent& event) {
                return Tell(logger, event, callback, user);
            };
        }
        vx::SetErrorTaker(std::move(taker));
        return static_cast<int>(eVXOk);
    });
}
