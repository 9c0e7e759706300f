#include "camera_device.h"

#include "called.h"

#include <cstdlib>
#include <sstream>

namespace vxcam {

namespace {

// The device properties, as the database has them; what it has not stays.
class DeviceProperties
{
public:
    explicit DeviceProperties(Tango::DbDevice& database)
    {
        for (const char* name :
             {"Target", "RetrySeconds", "RingFrames", "RingMegabytes", "Keyed", "ArrayVersion"}) {
            data_.push_back(Tango::DbDatum(name));
        }
        database.get_property(data_);
    }

    template <class What>
    What get(const char* name, What otherwise)
    {
        for (Tango::DbDatum& datum : data_) {
            if (datum.name == name && !datum.is_empty()) datum >> otherwise;
        }
        return otherwise;
    }

    double atLeast(const char* name, double least, double otherwise)
    {
        const double value = get<double>(name, otherwise);
        return value >= least ? value : otherwise;
    }

private:
    Tango::DbData data_;
};

Tango::DevState tangoState(StationState state)
{
    static const Tango::DevState states[] = {Tango::OFF, Tango::INIT, Tango::ON, Tango::RUNNING,
                                             Tango::FAULT};
    return states[static_cast<size_t>(state)];
}

} // namespace

void throwFailed(const Error& error, const std::string& origin)
{
    Tango::Except::throw_exception(std::string(error.row().tango), std::string(error.what()),
                                   origin);
    std::abort(); // not reached
}

std::string endText(const StationReport& report)
{
    return report.end ? nameOf(*report.end) : "";
}

VxCamera::VxCamera(Tango::DeviceClass* deviceClass, const std::string& name, int number)
    : TANGO_BASE_CLASS(deviceClass, name.c_str(), "a scientific camera"), number_(number)
{
    for (const char* attribute :
         {"State", "Status", "FrameNumber", "last_image_ready", "AcquisitionEnd"}) {
        set_change_event(attribute, true, false);
    }
    announcer_ = std::make_unique<Announcer>(*this);
    init_device();
}

VxCamera::~VxCamera()
{
    delete_device();
    announcer_.reset();
}

void VxCamera::init_device()
{
    StationOptions options;
    std::vector<std::string> keyed;
    readProperties(&options, &keyed);
    Settings settings;
    if (station_) settings = station_->made();
    delete_device();
    StationListener listener;
    listener.frame = [this](int index) { announcer_->frame(index); };
    listener.change = [this](const StationReport& report) {
        announcer_->change(tangoState(report.state), report.status, endText(report));
    };
    station_ =
        std::make_unique<Station>(std::move(options), std::move(settings), std::move(listener));
    addKeyed(keyed);
}

void VxCamera::delete_device()
{
    frame_.reset();
    station_.reset();
}

void VxCamera::readProperties(StationOptions* options, std::vector<std::string>* keyed)
{
    if (!Tango::Util::_UseDb) {
        options->target = targetWithoutDatabase();
        return;
    }
    DeviceProperties properties(*get_db_device());
    options->target = properties.get<std::string>("Target", "");
    options->retry = std::chrono::milliseconds(
        static_cast<int64_t>(1000 * properties.atLeast("RetrySeconds", 0.1, 5)));
    options->ringFrames = static_cast<size_t>(properties.atLeast("RingFrames", 1, 8));
    options->ringBytes = static_cast<size_t>(properties.atLeast("RingMegabytes", 1, 256)) << 20;
    *keyed = properties.get<std::vector<std::string>>("Keyed", {});
    arrayVersion_ = static_cast<int>(properties.atLeast("ArrayVersion", 1, 2));
}

// The targets of all devices, one behind the other with spaces between them.
std::string VxCamera::targetWithoutDatabase() const
{
    const char* const targets = std::getenv("VXCAM_TARGETS");
    std::istringstream words(targets != nullptr ? targets : "");
    std::string target;
    for (int i = 0; i <= number_; ++i) {
        target.clear();
        words >> target;
    }
    return target;
}

Tango::DevState VxCamera::dev_state()
{
    set_state(station_ ? tangoState(station_->report().state) : Tango::INIT);
    return get_state();
}

Tango::ConstDevString VxCamera::dev_status()
{
    status_ = station_ ? station_->report().status : "The device starts.";
    return status_.c_str();
}

void VxCamera::read_attr_hardware(std::vector<long>& /*attributes*/)
{
    frame_ = station_->ring().last();
}

void VxCamera::noteFailedWrite(const Error& error)
{
    const bool isMemorised = Tango::Util::instance()->is_svr_starting();
    if (isMemorised && error.kind() != ErrorKind::NotFound) station_->miss(error);
}

void VxCamera::requireDeliverable(const Frame& frame) const
{
    if (!frame.complete() && !settings_.deliverIncomplete) throw IncompleteFrame(frame);
}

} // namespace vxcam
