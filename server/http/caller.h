// Wakes what listens.
#ifndef VXCAMD_CALLER_H
#define VXCAMD_CALLER_H

#include <atomic>
#include <string>
#include <thread>

namespace vxcam {

// As long as it lives it connects to a port of this host again and again, and hangs up at once.
//
// Errors: none; where nothing can be reached, or no thread be had, nobody is woken. Owns: a thread.
class Caller
{
public:
    Caller(const std::string& address, int port); // of IPv4
    ~Caller();
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

private:
    std::atomic<bool> isEnding_{false};
    std::thread thread_;
};

} // namespace vxcam

#endif
