// What an Alpaca device refuses.
#ifndef VXCAMD_ALPACA_ERROR_H
#define VXCAMD_ALPACA_ERROR_H

#include <vxcamkit/error.h>

#include <stdexcept>
#include <string>

namespace vxcam {

// Of the protocol itself; those of a camera stand in the kit's table (ErrorRow::alpaca).
enum class AlpacaNumber {
    NotImplemented = 0x400,
    ValueNotSet = 0x402,
    NotConnected = 0x407,
    InvalidOperation = 0x40B,
    ActionNotImplemented = 0x40C,
    CannotConnect = 0x504 // of the driver's own, behind those in the kit's table
};

class AlpacaError : public std::runtime_error
{
public:
    AlpacaError(AlpacaNumber number, const std::string& text)
        : AlpacaError(static_cast<int>(number), text)
    {}
    explicit AlpacaError(const Error& error) : AlpacaError(numberOf(error), error.what()) {}

    int number() const { return number_; }

private:
    AlpacaError(int number, const std::string& text) : std::runtime_error(text), number_(number) {}
    // What has none of its own is one of the driver's.
    static int numberOf(const Error& error)
    {
        constexpr int kDriver = 0x5FF;
        return error.row().alpaca != 0 ? error.row().alpaca : kDriver;
    }

    int number_;
};

[[noreturn]] inline void refuseAlpacaValue(const std::string& text)
{
    throw AlpacaError(Error(ErrorKind::Usage, text));
}

} // namespace vxcam

#endif
