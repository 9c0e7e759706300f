#include "http/certificate.h"

#include <vxcamkit/error.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sys/mman.h>
#include <unistd.h>

namespace vxcam {

namespace {

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (content.empty()) {
        throw Error(ErrorKind::File, path + ": cannot be read: " + std::strerror(errno), errno);
    }
    return content + "\n";
}

} // namespace

Certificate::Certificate(const std::string& certificate, const std::string& key)
{
    if (certificate.empty()) return;
    const std::string both = contentOf(certificate) + contentOf(key);
    descriptor_ = memfd_create("vxcamd certificate", MFD_CLOEXEC);
    if (descriptor_ < 0 ||
        ::write(descriptor_, both.data(), both.size()) != static_cast<ssize_t>(both.size())) {
        throw Error(ErrorKind::File, std::string("certificate: ") + std::strerror(errno), errno);
    }
}

Certificate::~Certificate()
{
    if (descriptor_ >= 0) ::close(descriptor_);
}

std::string Certificate::path() const
{
    return descriptor_ < 0 ? "" : "/proc/self/fd/" + std::to_string(descriptor_);
}

} // namespace vxcam
