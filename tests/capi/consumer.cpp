// A C++ application of the installed headers: every one included, a camera of its own derived.
#include <CrcCalc.h>
#include <HSocket.h>
#include <StringTokenizer.h>
#include <circbuff.h>
#include <tcConfigFile.h>
#include <tcConfiguration.h>
#include <tcDbgItem.h>
#include <tcDbgd.h>
#include <tcLog.h>
#include <tcLogConsumer.h>
#include <tcVXCamera.h>
#include <tcVXCamera_Ethernet.h>
#include <vxcamiface.h>
#include <vxmessages.h>

#include <cstring>

namespace {

// Answers the exposure request itself, at once.
class tcOwnCamera : public tcVXCamera
{
public:
    int SendMessage(tsMsgHeader* frame) override
    {
        mpParser->PrepareOutput(frame);
        if (frame->MsgId != cmdGetExposureTime.id) return 0;
        tuCameraMessages answer;
        memset(&answer, 0, sizeof answer);
        answer.header.Magic = gnMessageMagic;
        answer.header.Length = sizeof(tsWordMsg);
        answer.header.IDD = gnInterfaceVersion;
        answer.header.MsgId = ansExposure.id;
        answer.Word.payload.Value = 1234;
        mpParser->AddData(&answer, gnHeaderBytes + answer.header.Length);
        return 0;
    }
};

} // namespace

int main()
{
    tcLog log;
    tcOwnCamera camera;
    long exposure = 0, again = 0;
    if (VXGetExposureTime(camera.GetHandle(), &exposure) != 0 || exposure != 1234) return 1;
    if (camera.GetExposureTime(&again) != 0 || again != 1234) return 2;
    return VXisCameraReady(camera.GetHandle()) == 0 ? 0 : 3;
}
