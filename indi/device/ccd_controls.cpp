// Gain, offset, how to read out, and the sensor.
#include "ccd_device.h"

#include <vxcamkit/error.h>
#include <vxcamkit/property.h>

#include <algorithm>
#include <cmath>

namespace vxcam {

namespace {

constexpr int kMostBinning = 255; // what INDI's base class holds
constexpr int kBinnedBits = 32;

const Field& fieldOf(const char* name)
{
    return findProperty(name).property->field();
}

} // namespace

void CcdDevice::makeControls()
{
    const char* device = getDeviceName();
    gainNP_[0].fill("GAIN", "Gain", "%.f", fieldOf("gain").least, fieldOf("gain").most, 1, 0);
    gainNP_.fill(device, "CCD_GAIN", "Gain", MAIN_CONTROL_TAB, IP_RW, 60, IPS_IDLE);
    offsetNP_[0].fill("OFFSET", "Counts", "%.f", fieldOf("offset").least, fieldOf("offset").most, 1,
                      0);
    offsetNP_.fill(device, "CCD_OFFSET", "Offset", MAIN_CONTROL_TAB, IP_RW, 60, IPS_IDLE);

    modeSP_[0].fill("STANDARD", "Frame and binning as set here", ISS_ON);
    modeSP_[1].fill("REGIONS", "Area or regions of the camera", ISS_OFF);
    modeSP_[2].fill("BIN_TABLES", "Binning as the camera is set", ISS_OFF);
    modeSP_[3].fill("BIN_MASK", "Bins of the camera's mask", ISS_OFF);
    modeSP_.fill(device, "READOUT_MODE", "Readout", IMAGE_SETTINGS_TAB, IP_RW, ISR_1OFMANY, 60,
                 IPS_OK);
    flagsNP_[0].fill("FLAGS", "Flags; of bins, the table", "%.f", 0, 65535, 1, 0);
    flagsNP_.fill(device, "READOUT_FLAGS", "Readout flags", IMAGE_SETTINGS_TAB, IP_RW, 60, IPS_OK);

    identityTP_[0].fill("NAME", "Name", "");
    identityTP_[1].fill("SERIAL", "Serial number", "");
    identityTP_[2].fill("VERSION", "Version", "");
    identityTP_[3].fill("ADDRESS", "Address", "");
    identityTP_.fill(device, "CAMERA_IDENTITY", "Camera", INFO_TAB, IP_RO, 60, IPS_OK);
}

void CcdDevice::defineControls(bool isConnected)
{
    const auto change = [&](auto& property) {
        if (isConnected) {
            defineProperty(property);
        } else {
            deleteProperty(property.getName());
        }
    };
    gainNP_.setState(IPS_IDLE);
    offsetNP_.setState(IPS_IDLE);
    change(gainNP_);
    change(offsetNP_);
    change(modeSP_);
    change(flagsNP_);
    change(identityTP_);
}

void CcdDevice::showControls(const Snapshot& snapshot)
{
    const Value gain = snapshot.value("gain");
    if (!gain.isNothing()) {
        gainNP_[0].setValue(gain.toDouble());
        gainNP_.setState(IPS_OK);
        gainNP_.apply();
    }
    const Value cooling = snapshot.value("cooling");
    if (cooling.isNothing()) return;
    coolerSP_[0].setState(cooling.toBool() ? ISS_ON : ISS_OFF);
    coolerSP_[1].setState(cooling.toBool() ? ISS_OFF : ISS_ON);
    coolerSP_.setState(cooling.toBool() ? IPS_BUSY : IPS_IDLE);
    coolerSP_.apply();
}

// Has the camera take a value; the property is busy until it has.
void CcdDevice::askFor(INDI::Property property, const std::string& name, const Value& value,
                       std::function<void(const Value&)> show)
{
    session_.camera()->checked(name, value);
    property.setState(IPS_BUSY);
    property.apply();
    session_.ask([=](Camera& camera) { return camera.set(name, value); },
                 [=](const Value& told) {
                     INDI::Property changed(property);
                     show(told);
                     changed.setState(IPS_OK);
                     changed.apply();
                 },
                 [=](const Error& error) { refuse(property, error.what()); });
}

Size CcdDevice::sensor() const
{
    return session_.camera() ? session_.camera()->sensor() : Size();
}

// All of it is the frame, and it is not binned.
void CcdDevice::showSensor()
{
    const Size size = sensor();
    SetCCDParams(size.columns, size.rows, 16, PrimaryCCD.getPixelSizeX(),
                 PrimaryCCD.getPixelSizeY());
    UpdateCCDBin(1, 1);
    UpdateCCDFrame(0, 0, size.columns, size.rows);
}

void CcdDevice::frameGiven(const Numbers& numbers)
{
    const auto at = [&](const char* element) { return static_cast<int>(numbers.at(element)); };
    const Area area{at("X"), at("Y"), at("WIDTH"), at("HEIGHT")};
    if (!area.fits(sensor())) {
        throw Error(ErrorKind::Usage, "the frame is no part of the sensor of " +
                                          std::to_string(sensor().columns) + " x " +
                                          std::to_string(sensor().rows) + " pixels");
    }
    UpdateCCDFrame(area.column, area.row, area.columns, area.rows);
}

bool CcdDevice::UpdateCCDFrame(int x, int y, int width, int height)
{
    getNumber("CCD_FRAME").setState(IPS_OK);
    PrimaryCCD.setFrame(x, y, width, height);
    Streamer->setSize(static_cast<uint16_t>(width / PrimaryCCD.getBinX()),
                      static_cast<uint16_t>(height / PrimaryCCD.getBinY()));
    return true;
}

void CcdDevice::binningGiven(const Numbers& numbers)
{
    const double x = numbers.at("HOR_BIN"), y = numbers.at("VER_BIN");
    if (x > sensor().columns || y > sensor().rows) {
        throw Error(ErrorKind::Usage, "a bin would be larger than the sensor");
    }
    UpdateCCDBin(static_cast<int>(x), static_cast<int>(y));
}

bool CcdDevice::UpdateCCDBin(int horizontal, int vertical)
{
    getNumber("CCD_BINNING").setState(IPS_OK);
    PrimaryCCD.setMinMaxStep("CCD_BINNING", "HOR_BIN", 1, kMostBinning, 1, false);
    PrimaryCCD.setMinMaxStep("CCD_BINNING", "VER_BIN", 1, kMostBinning, 1, false);
    PrimaryCCD.setBin(static_cast<uint8_t>(horizontal), static_cast<uint8_t>(vertical));
    showBits();
    return true;
}

bool CcdDevice::SetCaptureFormat(uint8_t)
{
    showBits();
    return true;
}

// Of a pixel, as the next exposure will have it.
void CcdDevice::showBits()
{
    const Plan plan = planOf(0);
    const int bits = plan.kind == ReadoutKind::Area ? plan.bits : kBinnedBits;
    if (PrimaryCCD.getBPP() != bits) PrimaryCCD.setBPP(static_cast<uint8_t>(bits));
    if (bits != kBinnedBits) Streamer->setPixelFormat(INDI_MONO, static_cast<uint8_t>(bits));
}

CcdDevice::ReadoutMode CcdDevice::readoutMode() const
{
    return static_cast<ReadoutMode>(std::max(modeSP_.findOnSwitchIndex(), 0));
}

// Only the size of the pixels is for clients to say: that of squares alone, too.
void CcdDevice::infoGiven(const Numbers& numbers)
{
    INDI::PropertyNumber info = getNumber("CCD_INFO");
    const auto isNew = [&](const char* name) {
        return numbers.at(name) != info.findWidgetByName(name)->getValue();
    };
    double x = numbers.at("CCD_PIXEL_SIZE_X"), y = numbers.at("CCD_PIXEL_SIZE_Y");
    const bool isSquare = !isNew("CCD_PIXEL_SIZE_X") && !isNew("CCD_PIXEL_SIZE_Y");
    if (isNew("CCD_PIXEL_SIZE") && isSquare) x = y = numbers.at("CCD_PIXEL_SIZE");
    PrimaryCCD.setPixelSize(x, y);
    info.setState(IPS_OK);
    info.apply();
    publishCards();
}

} // namespace vxcam
