#include "ccd_device.h"

namespace vxcam {

namespace {

constexpr int kTick = 1000;              // ms
constexpr double kLongest = 4294967.295; // s, what 32 bits of milliseconds hold

} // namespace

CcdDevice::CcdDevice(const std::string& name, const std::string& target) : givenTarget_(target)
{
    setDeviceName(name.c_str());
    setVersion(VXCAM_MAJOR, VXCAM_MINOR);
}

void CcdDevice::shutDown()
{
    runner_.cancel();
    session_.close();
}

bool CcdDevice::initProperties()
{
    INDI::CCD::initProperties();
    setDriverInterface(CCD_INTERFACE);
    // The cooler's properties are this driver's own: they come and go with what is known.
    SetCCDCapability(CCD_CAN_BIN | CCD_CAN_SUBFRAME | CCD_CAN_ABORT | CCD_HAS_SHUTTER |
                     CCD_HAS_STREAMING);
    PrimaryCCD.setMinMaxStep("CCD_EXPOSURE", "CCD_EXPOSURE_VALUE", 0, kLongest, 0.001, false);
    PrimaryCCD.getCCDInfo()->p = IP_RW; // of the size of the pixels, which no camera tells
    addCaptureFormat({"INDI_MONO_16", "Mono 16", 16, true, true});
    addCaptureFormat({"INDI_MONO_8", "Mono 8", 8, false, true});
    Streamer->setStreamingExposureEnabled(true);

    addressTP_[0].fill("ADDRESS", "Address, serial:NUMBER or sim", "");
    addressTP_[1].fill("PORT", "Port", "");
    addressTP_.fill(getDeviceName(), "DEVICE_ADDRESS", "Camera", MAIN_CONTROL_TAB, IP_RW, 60,
                    IPS_IDLE);
    if (givenTarget_.empty()) {
        char text[MAXINDINAME * 4] = "";
        if (IUGetConfigText(getDeviceName(), "DEVICE_ADDRESS", "ADDRESS", text, sizeof text) == 0) {
            addressTP_[0].setText(text);
        }
        if (IUGetConfigText(getDeviceName(), "DEVICE_ADDRESS", "PORT", text, sizeof text) == 0) {
            addressTP_[1].setText(text);
        }
    } else {
        const Target target = Target::parse(givenTarget_);
        const bool isNetwork = target.kind == Target::Kind::Network;
        addressTP_[0].setText(isNetwork ? target.host : givenTarget_);
        addressTP_[1].setText(isNetwork ? std::to_string(target.port) : "");
    }
    makeControls();
    makeCooling();
    tab_.make(getDeviceName());
    addDebugControl();
    return true;
}

// The base class takes the first device that anybody asks for as its own name, and defines all
// properties again whoever is asked for.
void CcdDevice::ISGetProperties(const char* device)
{
    if (device != nullptr && std::string(device) != getDeviceName()) return;
    const bool isFirst = !isInitializationComplete();
    INDI::CCD::ISGetProperties(nullptr);
    if (!isFirst) return;
    defineProperty(addressTP_);
    SetTimer(kTick);
}

bool CcdDevice::updateProperties()
{
    INDI::CCD::updateProperties();
    const bool isOpen = isConnected();
    deleteProperty(WorldCoordSP.name); // a frame does not know how the sensor is turned
    defineControls(isOpen);
    defineCooling(isOpen);
    if (isOpen) {
        tab_.define(*this);
    } else {
        tab_.remove(*this);
    }
    return true;
}

bool CcdDevice::saveConfigItems(FILE* file)
{
    INDI::CCD::saveConfigItems(file);
    addressTP_.save(file);
    if (session_.camera() == nullptr) return true;
    TemperatureRampNP.save(file);
    ScopeInfoNP.save(file);
    if (gainNP_.getState() == IPS_OK) gainNP_.save(file);
    if (offsetNP_.getState() == IPS_OK) offsetNP_.save(file);
    modeSP_.save(file);
    flagsNP_.save(file);
    tab_.save(file);
    return true;
}

void CcdDevice::TimerHit()
{
    SetTimer(kTick);
    if (isLinkUp()) watchCooling();
}

} // namespace vxcam
