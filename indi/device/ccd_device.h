// One camera as a device of INDI.
#ifndef VXINDI_CCD_DEVICE_H
#define VXINDI_CCD_DEVICE_H

#include "camera_session.h"
#include "exposure_runner.h"
#include "image_sender.h"
#include "observation.h"
#include "property_tab.h"

#include <indiccd.h>
#include <indipropertynumber.h>
#include <indipropertyswitch.h>
#include <indipropertytext.h>

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace vxcam {

// Says what INDI has customary properties for (exposure, frame, binning, cooling, gain, offset),
// and shows the rest of the kit's table in a tab. An exposure ends by the kit's word alone.
//
// Threads: the main loop's; exposures hand frames on in a thread of their own. Never destroyed.
class CcdDevice : public INDI::CCD
{
public:
    // `target` as vxcam::Target takes it; empty: clients say it.
    CcdDevice(const std::string& name, const std::string& target);

    void shutDown();

    void ISGetProperties(const char* device) override;
    bool ISNewNumber(const char* device, const char* name, double values[], char* names[],
                     int count) override;
    bool ISNewSwitch(const char* device, const char* name, ISState* states, char* names[],
                     int count) override;
    bool ISNewText(const char* device, const char* name, char* texts[], char* names[],
                   int count) override;
    bool ISSnoopDevice(XMLEle* root) override;

protected:
    const char* getDefaultName() override { return "VX CCD"; }
    const char* getDriverName() override { return "VX CCD"; }
    bool initProperties() override;
    bool updateProperties() override;
    bool saveConfigItems(FILE* file) override;
    bool UpdateCCDFrame(int x, int y, int width, int height) override;
    bool UpdateCCDBin(int horizontal, int vertical) override;
    bool UpdateCCDFrameType(INDI::CCDChip::CCD_FRAME) override { return true; }
    bool SetCaptureFormat(uint8_t index) override;
    bool AbortExposure() override;
    bool StartStreaming() override;
    bool StopStreaming() override;
    void TimerHit() override;
    void checkTemperatureTarget() override {} // the kit does

private:
    using Numbers = std::map<std::string, double>; // all elements, with what was not given
    enum class ReadoutMode { Standard, Regions, BinTables, BinMask };

    // ccd_requests.cpp: what clients set. A refusal throws Error{Usage}, and changes nothing.
    bool numbersGiven(const std::string& name, const Numbers& numbers);
    bool switchesGiven(const std::string& name, const Given& given);
    bool setFromTab(TabProperty& property, const Given& given);
    void requireNoStream(const std::string& name) const;
    void refuse(INDI::Property property, const std::string& why);

    // ccd_connection.cpp
    void connectionAsked(bool isOn);
    void connectCamera();
    void disconnectCamera();
    void opened();
    void handle(const Event& event);
    void linkLost(const Event& event);
    void cameraChanged(const Event& event);
    void noteIdentity(const Camera& camera);
    std::string targetText() const;
    void addressGiven(const Given& given);
    void askStates();
    bool isLinkUp() const { return session_.camera() != nullptr && !isLinkLost_; }

    // ccd_controls.cpp: gain, offset, readout mode, sensor
    void makeControls();
    void defineControls(bool isConnected);
    void showControls(const Snapshot& snapshot);
    void askFor(INDI::Property property, const std::string& name, const Value& value,
                std::function<void(const Value&)> show);
    void infoGiven(const Numbers& numbers);
    void frameGiven(const Numbers& numbers);
    void binningGiven(const Numbers& numbers);
    void showBits();
    void showSensor();
    ReadoutMode readoutMode() const;
    Size sensor() const;

    // ccd_cooling.cpp
    void makeCooling();
    void defineCooling(bool isConnected);
    void temperatureGiven(double degrees);
    void coolerGiven(bool isOn);
    void temperatureTold(std::optional<double> degrees);
    void watchCooling();

    // ccd_exposure.cpp
    void expose(double seconds);
    Plan planOf(double seconds) const;
    SendOptions sendOptions() const;
    void publishCards();
    Observation observation() const;
    void frameTaken();
    void exposureDone();
    void exposureFailed(const Error& error);
    void fastCount(double frames, IPState state);
    void streamEnded(const Error& error);
    void noteRecordFolder();
    void requireRecordSpace(size_t bytes) const;
    void showPath(const std::string& path);

    const std::string givenTarget_;
    CameraSession session_;
    ExposureRunner runner_;
    ImageSender sender_;
    PropertyTab tab_;
    bool isLinkLost_ = false;
    bool isStream_ = false; // what runs is a stream
    std::optional<double> temperature_;
    std::chrono::steady_clock::time_point temperatureTime_;
    bool isTemperatureShown_ = false;
    int coolingAsked_ = 0; // orders that the camera has not taken yet
    uint64_t framesSkipped_ = 0;
    mutable std::mutex recordLock_;
    std::string recordFolder_; // of the stream's recordings

    INDI::PropertyText addressTP_{2};
    INDI::PropertyNumber gainNP_{1};
    INDI::PropertyNumber offsetNP_{1};
    INDI::PropertySwitch modeSP_{4};
    INDI::PropertyNumber flagsNP_{1};
    INDI::PropertySwitch coolerSP_{2};
    INDI::PropertyText identityTP_{4};
};

} // namespace vxcam

#endif
