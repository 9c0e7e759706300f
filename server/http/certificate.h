// A certificate and its key, for TLS.
#ifndef VXCAMD_CERTIFICATE_H
#define VXCAMD_CERTIFICATE_H

#include <string>

namespace vxcam {

// One file with both, in memory alone.
class Certificate
{
public:
    // Of two PEM files; empty names: none. Throws Error{File} when one cannot be read.
    Certificate(const std::string& certificate, const std::string& key);
    ~Certificate();
    Certificate(const Certificate&) = delete;
    Certificate& operator=(const Certificate&) = delete;

    std::string path() const; // empty: none

private:
    int descriptor_ = -1;
};

} // namespace vxcam

#endif
