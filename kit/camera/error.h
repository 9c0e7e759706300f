// What can go wrong, in one table: a row is a kind of failure and what it is called everywhere.
#ifndef VXCAMKIT_ERROR_H
#define VXCAMKIT_ERROR_H

#include <vxcamkit/export.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace vxcam {

enum class ErrorKind {
    Usage,      // a value, a name, a range; nothing was sent
    NotFound,   // no camera answers there
    Busy,       // the camera serves somebody else
    Timeout,    // the camera did not answer, or no frame came, in time
    LinkLost,   // the connection broke
    Camera,     // the camera reported an error, see Error::code(), or refused a command
    Incomplete, // a frame came without all of its pixels
    File,       // a file could not be read or written, see Error::code() (errno)
    Aborted     // by abort(), close() or the user
};

// How one kind of failure is told in each ecosystem.
struct ErrorRow {
    ErrorKind kind;
    const char* name;      // "time-out", for JSON and logs
    int exitCode;          // of the vxcam program; after a signal, that is 128 + its number instead
    const char* python;    // the class in the module vxcam; of File, a built-in one
    const char* indiState; // of the property that was being set
    const char* tango;     // the reason of the DevFailed
    int http;              // status
    int alpaca;            // error number; 0: none
};

// All of them, a row for each kind, in the order of the enum.
VXCAMKIT_EXPORT const std::vector<ErrorRow>& errorTable();
VXCAMKIT_EXPORT const ErrorRow& rowOf(ErrorKind kind);

// What all failures are told with. what() says what was tried, on which camera, what happened and
// what to do about it, in one line: control characters in it, such as a camera may send, are
// written as \xNN.
class VXCAMKIT_EXPORT Error : public std::runtime_error
{
public:
    Error(ErrorKind kind, const std::string& text, int code = 0, int subCode = 0);
    ~Error() override;

    ErrorKind kind() const { return kind_; }
    const ErrorRow& row() const { return rowOf(kind_); }
    int code() const { return code_; } // the camera's, or errno; 0: none
    int subCode() const { return subCode_; }

private:
    ErrorKind kind_;
    int code_, subCode_;
};

} // namespace vxcam

#endif
