// Members that all device types have.
#include "alpaca/alpaca_error.h"
#include "alpaca/alpaca_members.h"
#include "cameras/frame_json.h"
#include "cameras/time_text.h"

namespace vxcam {

namespace {

constexpr const char* kFrameFacts = "FrameFacts";

Json none()
{
    return nullptr;
}

// What is absent or unknown now is left out.
void addState(Json* states, const char* name, const std::function<Json()>& read)
{
    try {
        states->push_back({{"Name", name}, {"Value", read()}});
    } catch (const AlpacaError&) {
        return;
    } catch (const Error&) {
        return;
    }
}

Json deviceState(AlpacaCamera& camera)
{
    Json states = Json::array();
    addState(&states, "CameraState", [&] { return Json(static_cast<int>(camera.state())); });
    if (const auto told = camera.shared().temperatures()) {
        addState(&states, "CCDTemperature", [&] { return Json(told->sensor); });
    }
    addState(&states, "ImageReady", [&] { return Json(camera.imageReady()); });
    addState(&states, "IsPulseGuiding", [] { return Json(false); });
    addState(&states, "PercentCompleted", [&] { return Json(camera.percentCompleted()); });
    addState(&states, "TimeStamp", [] { return Json(presentText()); });
    return states;
}

Json runAction(AlpacaCamera& camera, const std::string& name)
{
    if (!equalsIgnoringCase(name, kFrameFacts)) {
        throw AlpacaError(AlpacaNumber::ActionNotImplemented, "there is no action '" + name + "'");
    }
    return textOf(frameJson(camera.lastFrame()));
}

AlpacaAction command(AlpacaCamera&, const AlpacaForm& form)
{
    form.text("Command");
    form.boolean("Raw");
    return [] {
        refuseMember("commands as texts");
        return Json();
    };
}

std::vector<AlpacaMember> commonMembers()
{
    using C = AlpacaCamera;
    using F = AlpacaForm;
    return {
        {"connected", [](C& c) { return Json(c.isConnected()); },
         [](C& c, const F& form) -> AlpacaAction {
             const bool wanted = form.boolean("Connected");
             return [&c, wanted, client = form.client()] {
                 wanted ? c.connect(client) : c.disconnect(client);
                 return none();
             };
         },
         false},
        {"connect", nullptr,
         [](C& c, const F& form) -> AlpacaAction {
             return [&c, client = form.client()] {
                 c.startConnecting(client);
                 return none();
             };
         },
         false, 4},
        {"disconnect", nullptr,
         [](C& c, const F& form) -> AlpacaAction {
             return [&c, client = form.client()] {
                 c.disconnect(client);
                 return none();
             };
         },
         false, 4},
        {"connecting", [](C& c) { return Json(c.isConnecting()); }, nullptr, false, 4},
        {"devicestate", deviceState, nullptr, true, 4},
        {"interfaceversion", [](C& c) { return Json(c.options().interfaceVersion); }, nullptr,
         false},
        {"name", [](C& c) { return Json(c.name()); }, nullptr, false},
        {"description", [](C&) { return Json("A camera that vxcamd shares"); }, nullptr, false},
        {"driverinfo", [](C&) { return Json("vxcamd " VXCAM_VERSION ", a server for cameras"); },
         nullptr, false},
        {"driverversion",
         [](C&) {
             const std::string version = VXCAM_VERSION;
             return Json(version.substr(0, version.rfind('.')));
         },
         nullptr, false},
        {"supportedactions", [](C&) { return Json(Json::array({kFrameFacts})); }, nullptr, false},
        {"action", nullptr,
         [](C& c, const F& form) -> AlpacaAction {
             const std::string name = form.text("Action");
             form.text("Parameters");
             return [&c, name] { return runAction(c, name); };
         }},
        {"commandblind", nullptr, command},
        {"commandbool", nullptr, command},
        {"commandstring", nullptr, command},
    };
}

} // namespace

void refuseMember(const char* what)
{
    throw AlpacaError(AlpacaNumber::NotImplemented, std::string("this camera has no ") + what);
}

const std::vector<AlpacaMember>& alpacaMembers()
{
    static const std::vector<AlpacaMember>& all = *[] {
        auto* const list = new std::vector<AlpacaMember>(commonMembers());
        for (const AlpacaMember& member : alpacaCameraMembers()) {
            list->push_back(member);
        }
        return list;
    }();
    return all;
}

} // namespace vxcam
