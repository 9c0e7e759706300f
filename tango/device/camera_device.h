// One camera as a Tango device.
#ifndef VXCAMERA_CAMERA_DEVICE_H
#define VXCAMERA_CAMERA_DEVICE_H

#include "announcer.h"
#include "station.h"

#include <tango.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

// What a client sets for the next acquisition, beyond the camera's own properties.
struct AcquisitionSettings {
    Plan plan;
    bool deliverIncomplete = false; // images of which something is missing, too
    double coolingRamp = 0;         // degrees a minute, of Cool and WarmUp
};

// "complete", "running"; empty: there was no acquisition, or it did not begin.
std::string endText(const StationReport& report);

// Threads: as Tango serialises: one request of a client at a time. The announcer's thread takes the
//   same lock to push events.
class VxCamera : public TANGO_BASE_CLASS
{
public:
    VxCamera(Tango::DeviceClass* deviceClass, const std::string& name, int number);
    ~VxCamera() override;

    // Opens the camera, in the background; by the command Init anew, with the settings that were
    // made.
    void init_device() override;
    void delete_device() override;

    Tango::DevState dev_state() override;
    Tango::ConstDevString dev_status() override;
    void read_attr_hardware(std::vector<long>& attributes) override;

    Station& station() { return *station_; }
    AcquisitionSettings& settings() { return settings_; }

    // The latest frame: the same one for all that a client reads with one request. Nothing: none
    // came since the acquisition began.
    const std::optional<Frame>& frame() const { return frame_; }
    // Throws Error{Incomplete} for a frame of which something is missing, unless the client wants
    // such.
    void requireDeliverable(const Frame& frame) const;
    int arrayVersion() const { return arrayVersion_; }
    // Nobody hears of the write of a memorised value while the server starts: the state tells it.
    void noteFailedWrite(const Error& error);

    // The attributes and names of properties that the device property Keyed names, see
    // property_attributes.cpp.
    void addKeyed(const std::vector<std::string>& names);

private:
    void readProperties(StationOptions* options, std::vector<std::string>* keyed);
    std::string targetWithoutDatabase() const;

    const int number_; // of the server's devices, from 0
    AcquisitionSettings settings_;
    int arrayVersion_ = 2;
    std::unique_ptr<Station> station_;
    std::optional<Frame> frame_;
    std::string status_; // as it was told last
    std::unique_ptr<Announcer> announcer_;
};

} // namespace vxcam

#endif
