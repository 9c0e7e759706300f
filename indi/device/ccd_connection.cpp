// Connecting, and what becomes of the link.
#include "ccd_device.h"

#include <vxcamkit/property.h>
#include <vxcamkit/target.h>

namespace vxcam {

std::string CcdDevice::targetText() const
{
    const std::string address = addressTP_[0].getText(), port = addressTP_[1].getText();
    return port.empty() ? address : address + ":" + port;
}

void CcdDevice::addressGiven(const Given& given)
{
    const auto textOf = [&](size_t i) {
        const auto found = given.find(addressTP_[i].getName());
        return found == given.end() ? std::string(addressTP_[i].getText()) : found->second.toText();
    };
    const std::string address = textOf(0), port = textOf(1);
    if (!address.empty() || !port.empty()) {
        Target::parse(port.empty() ? address : address + ":" + port);
    }
    const std::string before = targetText();
    addressTP_[0].setText(address);
    addressTP_[1].setText(port);
    addressTP_.setState(IPS_OK);
    if (session_.camera() == nullptr || targetText() == before) return addressTP_.apply();
    addressTP_.apply("It counts when the device is connected the next time.");
}

void CcdDevice::connectionAsked(bool isOn)
{
    const bool isOpen = session_.camera() != nullptr;
    if (isOn && !isOpen && !session_.isOpening()) return connectCamera();
    if (!isOn && (isOpen || session_.isOpening())) return disconnectCamera();
    if (session_.isOpening()) return setConnected(false, IPS_BUSY);
    setConnected(isOpen, isOpen ? (isLinkLost_ ? IPS_ALERT : IPS_OK) : IPS_IDLE);
}

void CcdDevice::connectCamera()
{
    const std::string target = targetText();
    if (target.empty()) {
        return setConnected(false, IPS_ALERT, "DEVICE_ADDRESS does not say where the camera is");
    }
    setConnected(false, IPS_BUSY, ("Connecting to " + target).c_str());
    session_.open(
        target, [this] { opened(); },
        [this](const Error& error) { setConnected(false, IPS_ALERT, error.what()); },
        [this](const Event& event) { handle(event); });
}

void CcdDevice::disconnectCamera()
{
    if (runner_.isRunning() && !isStream_) AbortExposure();
    runner_.cancel();
    if (isStream_) Streamer->setStream(false);
    isStream_ = false;
    session_.close();
    isLinkLost_ = false;
    temperatureTold(std::nullopt);
    setConnected(false, IPS_IDLE);
    updateProperties();
}

void CcdDevice::opened()
{
    const Camera& camera = *session_.camera();
    noteIdentity(camera);
    isLinkLost_ = false;
    setConnected(true, IPS_OK, ("Connected to " + camera.address()).c_str());
    updateProperties();
    showSensor();
    const auto ask = [](Camera& asked) {
        Snapshot told = asked.snapshot();
        for (const Property& row : properties()) {
            const bool isCheap = row.isReadable() && row.key == nullptr && row.cost != Cost::Many;
            if (!isCheap || told.entry(row.name) != nullptr) continue;
            std::string why;
            if (const auto value = asked.tryGet(row.name, &why)) told.set(row.name, *value);
        }
        return told;
    };
    const auto show = [this](const Snapshot& told) {
        tab_.show(told);
        showControls(told);
    };
    session_.ask(ask, show, [this](const Error& error) { LOGF_ERROR("%s", error.what()); });
}

void CcdDevice::noteIdentity(const Camera& camera)
{
    const Identity& identity = camera.identity();
    identityTP_[0].setText(identity.name);
    identityTP_[1].setText(identity.serial);
    identityTP_[2].setText(identity.version);
    identityTP_[3].setText(camera.address());
}

// What changes by itself.
void CcdDevice::askStates()
{
    const auto ask = [names = tab_.states()](Camera& camera) {
        Snapshot told;
        for (const std::string& name : names) {
            std::string why;
            if (const auto value = camera.tryGet(name, &why)) told.set(name, *value);
        }
        return told;
    };
    session_.ask(
        ask, [this](const Snapshot& told) { tab_.show(told); }, [](const Error&) {});
}

void CcdDevice::handle(const Event& event)
{
    switch (event.kind) {
    case EventKind::Heartbeat:
        temperatureTold(event.sensorTemperature);
        break;
    case EventKind::CameraError:
        LOGF_ERROR("The camera reports error %d, %d: %s", event.code, event.subCode,
                   event.text.c_str());
        break;
    case EventKind::LinkLost:
        linkLost(event);
        break;
    case EventKind::LinkRestored:
        isLinkLost_ = false;
        setConnected(true, IPS_OK, "The connection to the camera was made anew.");
        break;
    case EventKind::SettingsRestored:
        if (event.text.empty()) {
            setConnected(true, IPS_OK, "The settings were restored.");
        } else {
            setConnected(true, IPS_OK, ("Not restored: " + event.text).c_str());
        }
        askStates();
        break;
    case EventKind::CameraChanged:
        cameraChanged(event);
        break;
    default:
        break;
    }
}

void CcdDevice::linkLost(const Event& event)
{
    isLinkLost_ = true;
    temperatureTold(std::nullopt);
    const std::string last = event.text.empty() ? "" : " (" + event.text + ")";
    setConnected(true, IPS_ALERT,
                 ("The connection to the camera is lost" + last +
                  "; it will be made anew as soon as the camera answers.")
                     .c_str());
}

// Nothing more of one that was closed meanwhile.
void CcdDevice::cameraChanged(const Event& event)
{
    const std::shared_ptr<Camera> camera = session_.camera();
    if (!camera) return;
    setConnected(true, IPS_OK, ("The camera is not what it was: " + event.text).c_str());
    noteIdentity(*camera);
    identityTP_.apply();
    if (sensor() != Size{PrimaryCCD.getXRes(), PrimaryCCD.getYRes()}) showSensor();
}

} // namespace vxcam
