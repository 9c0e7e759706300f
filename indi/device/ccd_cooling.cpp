// The temperature, which is shown only while it is known, and the cooler.
#include "ccd_device.h"

#include <vxcamkit/property.h>

#include <cmath>

namespace vxcam {

namespace {

constexpr std::chrono::seconds kOld{30}; // a heartbeat says nothing any more
constexpr double kVisible = 0.05;        // degrees

} // namespace

void CcdDevice::makeCooling()
{
    coolerSP_[0].fill("COOLER_ON", "On", ISS_OFF);
    coolerSP_[1].fill("COOLER_OFF", "Off", ISS_OFF);
    coolerSP_.fill(getDeviceName(), "CCD_COOLER", "Cooler", MAIN_CONTROL_TAB, IP_RW, ISR_ATMOST1,
                   60, IPS_IDLE);
    const Field& field = findProperty("target-temp").property->field();
    TemperatureN[0].min = field.least;
    TemperatureN[0].max = field.most;
    TemperatureN[0].step = field.step;
}

void CcdDevice::defineCooling(bool isConnected)
{
    coolingAsked_ = 0;
    if (isConnected) {
        defineProperty(TemperatureRampNP);
        defineProperty(coolerSP_);
        return;
    }
    deleteProperty(TemperatureRampNP.getName());
    deleteProperty(coolerSP_.getName());
}

void CcdDevice::temperatureTold(std::optional<double> degrees)
{
    const bool isNews = degrees.has_value() != temperature_.has_value() ||
                        (degrees && std::abs(*degrees - TemperatureN[0].value) >= kVisible);
    temperature_ = degrees;
    temperatureTime_ = std::chrono::steady_clock::now();
    if (!isNews) return;
    if (!degrees) {
        if (isTemperatureShown_) deleteProperty(TemperatureNP.name);
        isTemperatureShown_ = false;
        return;
    }
    TemperatureN[0].value = *degrees;
    if (isTemperatureShown_) return IDSetNumber(&TemperatureNP, nullptr);
    // A camera that is back is still on its way.
    const auto phase = session_.camera()->cooler().state().phase;
    const bool isOnItsWay = phase == CoolingPhase::Ramping || phase == CoolingPhase::Settling;
    TemperatureNP.s = isOnItsWay ? IPS_BUSY : IPS_IDLE;
    defineProperty(&TemperatureNP);
    isTemperatureShown_ = true;
}

void CcdDevice::temperatureGiven(double degrees)
{
    Cooling cooling;
    cooling.target = degrees;
    cooling.ramp = TemperatureRampNP[RAMP_SLOPE].getValue();
    cooling.tolerance = TemperatureRampNP[RAMP_THRESHOLD].getValue();
    TemperatureNP.s = IPS_BUSY;
    IDSetNumber(&TemperatureNP, nullptr);
    ++coolingAsked_;
    session_.ask(
        [=](Camera& camera) {
            camera.cooler().cool(cooling);
            return true;
        },
        [this](bool) {
            --coolingAsked_;
            coolerSP_[0].setState(ISS_ON);
            coolerSP_[1].setState(ISS_OFF);
            coolerSP_.setState(IPS_BUSY);
            coolerSP_.apply();
        },
        [this](const Error& error) {
            --coolingAsked_;
            if (isTemperatureShown_) refuse(getNumber("CCD_TEMPERATURE"), error.what());
        });
}

// Off goes slowly where there is a ramp.
void CcdDevice::coolerGiven(bool isOn)
{
    coolerSP_.setState(IPS_BUSY);
    coolerSP_.apply();
    ++coolingAsked_;
    Warming warming;
    warming.ramp = TemperatureRampNP[RAMP_SLOPE].getValue();
    session_.ask(
        [=](Camera& camera) {
            if (isOn) return camera.set("cooling", true).toBool();
            camera.cooler().warmUp(warming);
            return false;
        },
        [this, warming](bool isCooling) {
            --coolingAsked_;
            coolerSP_[0].setState(isCooling ? ISS_ON : ISS_OFF);
            coolerSP_[1].setState(isCooling ? ISS_OFF : ISS_ON);
            coolerSP_.setState(isCooling || warming.ramp > 0 ? IPS_BUSY : IPS_OK);
            coolerSP_.apply();
            if (isCooling || !isTemperatureShown_) return;
            TemperatureNP.s = IPS_IDLE;
            IDSetNumber(&TemperatureNP, nullptr);
        },
        [this](const Error& error) {
            --coolingAsked_;
            refuse(coolerSP_, error.what());
        });
}

void CcdDevice::watchCooling()
{
    if (temperature_ && std::chrono::steady_clock::now() - temperatureTime_ > kOld) {
        temperatureTold(std::nullopt);
    }
    const CoolingState state = session_.camera()->cooler().state();
    if (coolingAsked_ > 0 || !state.isOver()) return;
    const bool isFailed = state.phase == CoolingPhase::Failed;
    if (isTemperatureShown_ && TemperatureNP.s == IPS_BUSY) {
        TemperatureNP.s = isFailed ? IPS_ALERT : IPS_OK;
        IDSetNumber(&TemperatureNP, "%s", state.text.c_str());
    }
    if (state.phase == CoolingPhase::Settled || coolerSP_.getState() != IPS_BUSY) return;
    coolerSP_.setState(isFailed ? IPS_ALERT : IPS_OK);
    coolerSP_.apply("%s", state.text.c_str());
}

} // namespace vxcam
