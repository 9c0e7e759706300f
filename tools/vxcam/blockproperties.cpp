// Parameters, registers, and blocks of bytes.
#include "failure.h"
#include "fields.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr int gnMostParameterBytes = 2048;
constexpr int gnUsualParameterBytes = 4;
constexpr int gnReadRegister = 100, gnWriteRegister = 101; // of the engineering command
constexpr int gnTimingBytes = 4356;

int ReadRegister(tcSession& session, uint32_t address, tsSetting* setting)
{
    uint32_t data[2] = {address, 0};
    const int result = VXEngineeringCommand(session.Handle(), gnReadRegister, data);
    if (result == eVXOk) setting->numbers.push_back(data[1]);
    return result;
}

int WriteRegister(tcSession& session, uint32_t address, const tsSetting& setting)
{
    uint32_t data[2] = {address, static_cast<uint32_t>(setting.numbers[0])};
    return VXEngineeringCommand(session.Handle(), gnWriteRegister, data);
}

// ---- Parameters: the camera tells one only to those who know its size ------------------------

[[noreturn]] void RefuseStatus(uint32_t id, int status)
{
    throw tcFailure(eExitCamera, "parameter " + std::to_string(id) +
                                     ": the camera answers status " + std::to_string(status) +
                                     (status > 0 ? ", most likely it has no such parameter" : ""));
}

// False when the parameter has another size.
bool TryParameter(tcSession& session, uint32_t id, std::vector<uint8_t>* bytes)
{
    const int size = static_cast<int>(bytes->size());
    const int result = VXGetParameter(session.Handle(), id, bytes->data(), size);
    if (result == eVXArgument) return false;
    if (result == eVXFailed || result == eVXTimeout) session.Require(result, "parameter");
    if (result != eVXOk) RefuseStatus(id, result);
    return true;
}

int ReadParameterBytes(tcSession& session, uint32_t id, tsSetting* setting)
{
    setting->bytes.resize(gnUsualParameterBytes);
    if (TryParameter(session, id, &setting->bytes)) return eVXOk;
    for (int size = 1; size <= gnMostParameterBytes; ++size) {
        setting->bytes.assign(static_cast<size_t>(size), 0);
        if (TryParameter(session, id, &setting->bytes)) return eVXOk;
    }
    RefuseStatus(id, eVXArgument);
}

int ReadParameterText(tcSession& session, uint32_t id, tsSetting* setting)
{
    const int result = ReadParameterBytes(session, id, setting);
    setting->bytes.erase(std::find(setting->bytes.begin(), setting->bytes.end(), 0),
                         setting->bytes.end());
    return result;
}

int WriteParameterBytes(tcSession& session, uint32_t id, const tsSetting& setting)
{
    std::vector<uint8_t> bytes = setting.bytes;
    return VXSetParameter(session.Handle(), id, bytes.data(), static_cast<int>(bytes.size()));
}

template <class Number>
int ReadParameter(tcSession& session, uint32_t id, tsSetting* setting)
{
    Number number{};
    std::vector<uint8_t> bytes(sizeof number);
    if (!TryParameter(session, id, &bytes)) {
        throw tcFailure(eExitCamera,
                        "parameter " + std::to_string(id) +
                            ": it has not 4 bytes, try parameter-bytes:" + std::to_string(id));
    }
    std::memcpy(&number, bytes.data(), sizeof number);
    setting->numbers.push_back(number);
    return eVXOk;
}

template <class Number>
int WriteParameter(tcSession& session, uint32_t id, const tsSetting& setting)
{
    auto number = static_cast<Number>(setting.numbers[0]);
    return VXSetParameter(session.Handle(), id, &number, sizeof number);
}

tsProperty Parameter(const char* name, const char* summary, const tsField& field,
                     int (*read)(tcSession&, uint32_t, tsSetting*),
                     int (*write)(tcSession&, uint32_t, const tsSetting&))
{
    tsProperty property{name, summary, {{field}}, read, write};
    property.key = "ID";
    property.mostKey = UINT32_MAX;
    return property;
}

std::vector<tsProperty> Parameters()
{
    const tsField text{"text", teField::eText, 1, gnMostParameterBytes};
    return {
        Parameter("parameter", "parameter of the camera, a number without a sign", Word("value"),
                  ReadParameter<uint32_t>, WriteParameter<uint32_t>),
        Parameter("parameter-int", "the same, with a sign", Whole("value"), ReadParameter<int32_t>,
                  WriteParameter<int32_t>),
        Parameter("parameter-float", "the same, a float", Real("value"), ReadParameter<float>,
                  WriteParameter<float>),
        Parameter("parameter-text", "the same, a text; its size is found by trying", text,
                  ReadParameterText, WriteParameterBytes),
        Parameter("parameter-bytes", "the same, as bytes; its size is found by trying",
                  Bytes(1, gnMostParameterBytes), ReadParameterBytes, WriteParameterBytes),
    };
}

// ---- Blocks ----------------------------------------------------------------------------------

int ReadTiming(tcSession& session, uint32_t, tsSetting* setting)
{
    int size = VXGetTimingDataSize();
    setting->bytes.resize(static_cast<size_t>(size));
    const int result = VXGetTimingData(session.Handle(), setting->bytes.data(), &size);
    if (result != eVXOk) setting->bytes.clear();
    return result;
}

int WriteTiming(tcSession& session, uint32_t, const tsSetting& setting)
{
    std::vector<uint8_t> bytes = setting.bytes;
    return VXSetTimingData(session.Handle(), bytes.data(), static_cast<int>(bytes.size()));
}

int ReadHardware(tcSession& session, uint32_t, tsSetting* setting)
{
    TVXCameraHardware hardware{};
    int size = sizeof hardware;
    const int result = VXGetCameraHardwareInfo(session.Handle(), &hardware, &size);
    if (result != eVXOk) return result;
    setting->bytes.resize(static_cast<size_t>(size));
    std::memcpy(setting->bytes.data(), &hardware, setting->bytes.size());
    return result;
}

int WriteHardware(tcSession& session, uint32_t, const tsSetting& setting)
{
    TVXCameraHardware hardware{};
    int size = static_cast<int>(setting.bytes.size());
    std::memcpy(&hardware, setting.bytes.data(), setting.bytes.size());
    return VXSetCameraHardwareInfo(session.Handle(), &hardware, &size);
}

int ReadNetwork(tcSession& session, uint32_t, tsSetting* setting)
{
    TVXNetworkConfig config{};
    const int result = VXGetCameraNetworkConfig(session.Handle(), &config);
    if (result != eVXOk) return result;
    setting->numbers.assign(std::begin(config.Words), std::end(config.Words));
    setting->numbers.push_back(config.Value);
    return result;
}

int WriteNetwork(tcSession& session, uint32_t, const tsSetting& setting)
{
    TVXNetworkConfig config{};
    for (size_t i = 0; i < std::size(config.Words); ++i) {
        config.Words[i] = static_cast<uint32_t>(setting.numbers[i]);
    }
    config.Value = static_cast<uint16_t>(setting.numbers[std::size(config.Words)]);
    return VXSetCameraNetworkConfig(session.Handle(), &config);
}

tsProperty Register()
{
    tsProperty property{
        "register", "a register of the camera", {{Hex("value")}}, ReadRegister, WriteRegister};
    property.key = "ADDRESS";
    property.mostKey = UINT32_MAX;
    return property;
}

} // namespace

std::vector<tsProperty> BlockProperties()
{
    std::vector<tsProperty> properties = Parameters();
    const std::vector<tsProperty> rest{
        Register(),
        {"network-config",
         "network configuration, five words and a number",
         {{Hex("first"), Hex("second"), Hex("third"), Hex("fourth"), Hex("fifth"),
           Number("value", 0, gnMost16)}},
         ReadNetwork,
         WriteNetwork},
        {"hardware-info",
         "hardware information; the sensor's size is at bytes 42 and 46",
         {{Bytes(1, sizeof(TVXCameraHardware))}},
         ReadHardware,
         WriteHardware},
        {"timing-data",
         "timing data of the readout",
         {{Bytes(1, gnTimingBytes)}},
         ReadTiming,
         WriteTiming},
    };
    properties.insert(properties.end(), rest.begin(), rest.end());
    return properties;
}
