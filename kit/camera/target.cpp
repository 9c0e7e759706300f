#include <vxcamkit/target.h>

#include <vxcamkit/error.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

namespace vxcam {

namespace {

constexpr const char* kSerial = "serial:";
constexpr const char* kSimulator = "sim";
constexpr int kMostPort = 65535;
constexpr int kMostSide = 16384; // of the simulated sensor

[[noreturn]] void refuse(const std::string& text, const std::string& why)
{
    throw Error(ErrorKind::Usage, "target '" + text + "': " + why);
}

// The whole of a text as a number without a sign.
template <class Number>
bool isNumber(const std::string& text, Number* number)
{
    const char* const end = text.data() + text.size();
    auto [rest, error] = std::from_chars(text.data(), end, *number);
    return error == std::errc() && rest == end && text[0] != '-';
}

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts{""};
    for (const char character : text) {
        if (character == separator) {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

bool isHost(const std::string& host)
{
    return !host.empty() && std::all_of(host.begin(), host.end(), [](unsigned char character) {
        return std::isalnum(character) != 0 || character == '.' || character == '-' ||
               character == '_';
    });
}

bool isSize(const std::string& text, Size* size)
{
    const std::vector<std::string> sides = split(text, 'x');
    return sides.size() == 2 && isNumber(sides[0], &size->columns) &&
           isNumber(sides[1], &size->rows) && size->columns >= 1 && size->rows >= 1 &&
           size->columns <= kMostSide && size->rows <= kMostSide;
}

bool isPositive(const std::string& text, double* number)
{
    return isNumber(text, number) && std::isfinite(*number) && *number > 0;
}

Target parseSimulator(const std::string& text, const std::string& query)
{
    Target target;
    SimulatorOptions& options = target.simulator;
    std::vector<std::string> seen;
    for (const std::string& part : split(query, '&')) {
        const size_t equals = part.find('=');
        const std::string name = part.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : part.substr(equals + 1);
        const bool isTwice = std::find(seen.begin(), seen.end(), name) != seen.end();
        if (isTwice && name != "fault") refuse(text, "'" + name + "' stands there twice");
        seen.push_back(name);
        bool isRight = false;
        if (name == "sensor") {
            isRight = isSize(value, &options.sensor);
        } else if (name == "seed") {
            isRight = isNumber(value, &options.seed);
        } else if (name == "scale") {
            isRight = isPositive(value, &options.timeScale);
        } else if (name == "heartbeat") {
            isRight = value == "0" || isPositive(value, &options.heartbeatSeconds);
            if (value == "0") options.heartbeatSeconds = 0;
        } else if (name == "fault-seed") {
            isRight = isNumber(value, &options.faultSeed);
        } else if (name == "fault") {
            isRight = !value.empty();
            options.faults.push_back(value);
        } else {
            std::string reason = "'";
            reason.append(name).append(
                "' is none of sensor, seed, scale, heartbeat, fault-seed and fault");
            refuse(text, reason);
        }
        if (!isRight)
            refuse(text, std::string("'").append(value).append("' is no possible ").append(name));
    }
    return target;
}

Target parseSerial(const std::string& text, const std::string& digits)
{
    Target target;
    target.kind = Target::Kind::Serial;
    if (!isNumber(digits, &target.serial)) refuse(text, "the serial number is 0 to 4294967295");
    return target;
}

Target parseNetwork(const std::string& text)
{
    const std::vector<std::string> parts = split(text, ':');
    int port = 0;
    if (parts.size() != 2 || !isHost(parts[0])) {
        refuse(text, "write HOST:PORT, serial:NUMBER, or sim for a simulated camera");
    }
    if (!isNumber(parts[1], &port) || port < 1 || port > kMostPort) {
        refuse(text, "the port is 1 to 65535");
    }
    Target target;
    target.kind = Target::Kind::Network;
    target.host = parts[0];
    target.port = static_cast<uint16_t>(port);
    return target;
}

} // namespace

Target Target::parse(const std::string& text)
{
    const std::string simulator = kSimulator, serial = kSerial;
    if (text == simulator) return {};
    if (text.rfind(simulator + "?", 0) == 0) {
        return parseSimulator(text, text.substr(simulator.size() + 1));
    }
    if (text.rfind(serial, 0) == 0) return parseSerial(text, text.substr(serial.size()));
    return parseNetwork(text);
}

std::string Target::text() const
{
    switch (kind) {
    case Kind::Network:
        return host + ":" + std::to_string(port);
    case Kind::Serial:
        return kSerial + std::to_string(serial);
    case Kind::Simulator:
        break;
    }
    return kSimulator;
}

} // namespace vxcam
