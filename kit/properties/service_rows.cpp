// Parameters, registers, and blocks of bytes.
#include "properties/rows.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace vxcam {

namespace {

constexpr int kMostParameterBytes = 2048;
constexpr int kUsualParameterBytes = 4;
constexpr int kReadRegister = 100, kWriteRegister = 101; // of the engineering command
constexpr int kTimingBytes = 4356;

int readRegister(Access& access, uint32_t address, FieldValues* values)
{
    uint32_t data[2] = {address, 0};
    const int result = VXEngineeringCommand(access.handle(), kReadRegister, data);
    if (result == eVXOk) values->numbers.push_back(data[1]);
    return result;
}

int writeRegister(Access& access, uint32_t address, const FieldValues& values)
{
    uint32_t data[2] = {address, static_cast<uint32_t>(values.numbers[0])};
    return VXEngineeringCommand(access.handle(), kWriteRegister, data);
}

// ---- Parameters: the camera tells one only to those who know its size ------------------------

[[noreturn]] void refuseStatus(uint32_t id, int status)
{
    throw Error(ErrorKind::Camera,
                "parameter " + std::to_string(id) + ": the camera answers status " +
                    std::to_string(status) +
                    (status > 0 ? ", most likely it has no such parameter" : ""));
}

// False when the parameter has another size.
bool tryParameter(Access& access, uint32_t id, std::vector<uint8_t>* bytes)
{
    const int size = static_cast<int>(bytes->size());
    const int result = VXGetParameter(access.handle(), id, bytes->data(), size);
    if (result == eVXArgument) return false;
    if (result == eVXFailed || result == eVXTimeout || result == eVXNoCamera) {
        access.require(result, "parameter " + std::to_string(id));
    }
    if (result != eVXOk) refuseStatus(id, result);
    return true;
}

int readParameterBytes(Access& access, uint32_t id, FieldValues* values)
{
    values->bytes.resize(kUsualParameterBytes);
    if (tryParameter(access, id, &values->bytes)) return eVXOk;
    for (int size = 1; size <= kMostParameterBytes; ++size) {
        values->bytes.assign(static_cast<size_t>(size), 0);
        if (tryParameter(access, id, &values->bytes)) return eVXOk;
    }
    refuseStatus(id, eVXArgument);
}

int readParameterText(Access& access, uint32_t id, FieldValues* values)
{
    const int result = readParameterBytes(access, id, values);
    values->bytes.erase(std::find(values->bytes.begin(), values->bytes.end(), 0),
                        values->bytes.end());
    return result;
}

int writeParameterBytes(Access& access, uint32_t id, const FieldValues& values)
{
    std::vector<uint8_t> bytes = values.bytes;
    return VXSetParameter(access.handle(), id, bytes.data(), static_cast<int>(bytes.size()));
}

template <class Number>
int readParameter(Access& access, uint32_t id, FieldValues* values)
{
    Number number{};
    std::vector<uint8_t> bytes(sizeof number);
    if (!tryParameter(access, id, &bytes)) {
        throw Error(ErrorKind::Camera,
                    "parameter " + std::to_string(id) +
                        ": it has not 4 bytes, try parameter-bytes:" + std::to_string(id));
    }
    std::memcpy(&number, bytes.data(), sizeof number);
    values->numbers.push_back(number);
    return eVXOk;
}

template <class Number>
int writeParameter(Access& access, uint32_t id, const FieldValues& values)
{
    auto number = static_cast<Number>(values.numbers[0]);
    return VXSetParameter(access.handle(), id, &number, sizeof number);
}

std::vector<Property> parameterRows()
{
    std::vector<Property> rows{
        Row("parameter", "parameter of the camera, a number without a sign", {word("value")})
            .reads(readParameter<uint32_t>)
            .writes(writeParameter<uint32_t>),

        Row("parameter-int", "the same, with a sign", {whole("value")})
            .reads(readParameter<int32_t>)
            .writes(writeParameter<int32_t>),

        Row("parameter-float", "the same, a float", {real("value")})
            .reads(readParameter<float>)
            .writes(writeParameter<float>),

        Row("parameter-text", "the same, a text; its size is found by trying",
            {text("text", 1, kMostParameterBytes)})
            .reads(readParameterText)
            .writes(writeParameterBytes)
            .costs(Cost::Many),

        Row("parameter-bytes", "the same, as bytes; its size is found by trying",
            {bytes(1, kMostParameterBytes)})
            .reads(readParameterBytes)
            .writes(writeParameterBytes)
            .costs(Cost::Many),
    };
    for (Property& row : rows) {
        row.key = "ID";
        row.mostKey = UINT32_MAX;
        if (&row != &rows.front()) row.sameAs = rows.front().name;
    }
    return rows;
}

// ---- Blocks ----------------------------------------------------------------------------------

int readTiming(Access& access, uint32_t, FieldValues* values)
{
    int size = VXGetTimingDataSize();
    values->bytes.resize(static_cast<size_t>(size));
    const int result = VXGetTimingData(access.handle(), values->bytes.data(), &size);
    if (result != eVXOk) values->bytes.clear();
    return result;
}

int writeTiming(Access& access, uint32_t, const FieldValues& values)
{
    std::vector<uint8_t> bytes = values.bytes;
    return VXSetTimingData(access.handle(), bytes.data(), static_cast<int>(bytes.size()));
}

int readHardware(Access& access, uint32_t, FieldValues* values)
{
    TVXCameraHardware hardware{};
    int size = sizeof hardware;
    const int result = VXGetCameraHardwareInfo(access.handle(), &hardware, &size);
    if (result != eVXOk) return result;
    values->bytes.resize(static_cast<size_t>(size));
    std::memcpy(values->bytes.data(), &hardware, values->bytes.size());
    return result;
}

int writeHardware(Access& access, uint32_t, const FieldValues& values)
{
    TVXCameraHardware hardware{};
    int size = static_cast<int>(values.bytes.size());
    std::memcpy(&hardware, values.bytes.data(), values.bytes.size());
    return VXSetCameraHardwareInfo(access.handle(), &hardware, &size);
}

int readNetwork(Access& access, uint32_t, FieldValues* values)
{
    TVXNetworkConfig config{};
    const int result = VXGetCameraNetworkConfig(access.handle(), &config);
    if (result != eVXOk) return result;
    values->numbers.assign(std::begin(config.Words), std::end(config.Words));
    values->numbers.push_back(config.Value);
    return result;
}

int writeNetwork(Access& access, uint32_t, const FieldValues& values)
{
    TVXNetworkConfig config{};
    for (size_t i = 0; i < std::size(config.Words); ++i) {
        config.Words[i] = static_cast<uint32_t>(values.numbers[i]);
    }
    config.Value = static_cast<uint16_t>(values.numbers[std::size(config.Words)]);
    return VXSetCameraNetworkConfig(access.handle(), &config);
}

std::vector<Property> blockRows()
{
    return {
        Row("register", "a register of the camera", {hex("value")})
            .keyed("ADDRESS", UINT32_MAX)
            .reads(readRegister)
            .writes(writeRegister)
            .is(Nature::Action),

        Row("network-config", "network configuration, five words and a number",
            {hex("first"), hex("second"), hex("third"), hex("fourth"), hex("fifth"),
             number("value", 0, kMost16)})
            .reads(readNetwork)
            .writes(writeNetwork)
            .is(Nature::Identity),

        Row("hardware-info", "hardware information; the sensor's size is at bytes 42 and 46",
            {bytes(1, sizeof(TVXCameraHardware))})
            .reads(readHardware)
            .writes(writeHardware)
            .is(Nature::Identity),

        Row("timing-data", "timing data of the readout", {bytes(1, kTimingBytes)})
            .reads(readTiming)
            .writes(writeTiming),
    };
}

} // namespace

std::vector<Property> serviceRows()
{
    return joined({grouped(Group::Service, parameterRows()), grouped(Group::Service, blockRows())});
}

} // namespace vxcam
