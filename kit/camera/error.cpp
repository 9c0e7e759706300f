#include <vxcamkit/error.h>

#include "vxvisible.h"

namespace vxcam {

const std::vector<ErrorRow>& errorTable()
{
    // clang-format off
    static const std::vector<ErrorRow>& rows = *new std::vector<ErrorRow>{
        {ErrorKind::Usage,      "usage",        1, "UsageError",      "Alert", "VxCamera_Usage",        400, 0x401},
        {ErrorKind::NotFound,   "not-found",    2, "NotFoundError",   "Alert", "VxCamera_NotFound",     503, 0x407},
        {ErrorKind::Busy,       "busy",         2, "BusyError",       "Alert", "VxCamera_Busy",         503, 0x407},
        {ErrorKind::Timeout,    "time-out",     3, "CameraTimeout",   "Alert", "VxCamera_Timeout",      504, 0x500},
        {ErrorKind::LinkLost,   "link-lost",    3, "LinkLost",        "Alert", "VxCamera_LinkLost",     503, 0x501},
        {ErrorKind::Camera,     "camera-error", 4, "CameraError",     "Alert", "VxCamera_CameraError",  502, 0x502},
        {ErrorKind::Incomplete, "incomplete",   4, "IncompleteFrame", "Alert", "VxCamera_Incomplete",   502, 0x503},
        {ErrorKind::File,       "file",         5, "OSError",         "Alert", "VxCamera_File",         500, 0},
        {ErrorKind::Aborted,    "aborted",      4, "Aborted",         "Idle",  "VxCamera_Aborted",      409, 0x40E},
    };
    // clang-format on
    return rows;
}

const ErrorRow& rowOf(ErrorKind kind)
{
    return errorTable().at(static_cast<size_t>(kind));
}

Error::Error(ErrorKind kind, const std::string& text, int code, int subCode)
    : std::runtime_error(vx::Visible(text)), kind_(kind), code_(code), subCode_(subCode)
{}

Error::~Error() = default;

} // namespace vxcam
