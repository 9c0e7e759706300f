// The device server VxCamera.
#include "device_class.h"

#include <tango.h>

#include <iostream>

// No port of the library's own beside those of Tango.
extern "C" const int VXNoDebugServices = 1;

// What the control system asks of a server.
void Tango::DServer::class_factory()
{
    add_class(new vxcam::VxCameraClass("VxCamera"));
}

int main(int argc, char* argv[])
try {
    Tango::Util* const server = Tango::Util::init(argc, argv);
    server->server_init();
    std::cout << "Ready to accept request" << std::endl;
    server->server_run();
    return 0;
} catch (const Tango::DevFailed& failure) {
    for (CORBA::ULong i = 0; i < failure.errors.length(); ++i) {
        std::cerr << "VxCamera: " << failure.errors[i].desc.in() << "\n";
    }
    return 1;
} catch (const CORBA::Exception& failure) {
    std::cerr << "VxCamera: " << failure._name() << "\n";
    return 1;
} catch (const std::exception& failure) {
    std::cerr << "VxCamera: " << failure.what() << "\n";
    return 1;
}
