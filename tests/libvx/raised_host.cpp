// A program that says what the library took from its environment. With RAISED set it has raised
// rights in the eyes of the library.
#include "tcConfiguration.h"
#include "tcDbgItem.h"
#include "tcDbgd.h"
#include "tcLog.h"
#include "tcLogConsumer.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/auxv.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

// In place of the C library's.
extern "C" __attribute__((visibility("default"))) unsigned long
getauxval(unsigned long type) noexcept
{
    if (type == AT_SECURE && getenv("RAISED") != nullptr) return 1;
    using tpFunction = unsigned long (*)(unsigned long);
    static const auto spProper = reinterpret_cast<tpFunction>(dlsym(RTLD_NEXT, "getauxval"));
    return spProper(type);
}

namespace {

int Bound(const char* address, unsigned short port)
{
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = inet_addr(address);
    local.sin_port = htons(port);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    (void)bind(descriptor, reinterpret_cast<sockaddr*>(&local), sizeof local);
    return descriptor;
}

// Serves until the first announcement, which may come to where the daemon announces itself unless
// it is told otherwise, or to port 7021.
void ServeAndTellWhere()
{
    const int usual = Bound("239.192.100.100", 7020), chosen = Bound("127.0.0.1", 7021);
    const ip_mreq group{{inet_addr("239.192.100.100")}, {inet_addr("127.0.0.1")}};
    setsockopt(usual, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group);

    tcDbgItem::StartServer(); // prints its port
    tcDbgd::snAnnounceInterval = 20;
    tcDbgd::getItem()->StopServer();
    tcDbgd::getItem()->StartServer();
    pollfd announced[] = {{usual, POLLIN, 0}, {chosen, POLLIN, 0}};
    poll(announced, 2, 20000);
    std::cout << "daemon " << tcDbgd::getItem()->GetPort() << "\nannounced "
              << (announced[0].revents != 0 ? "as usual" : "")
              << (announced[1].revents != 0 ? "as chosen" : "") << std::endl;
}

} // namespace

int main()
{
    tcLog log("PLACED", 1);
    const auto consumer = log.HeldConsumer();
    std::cout << "level " << log.getDbgLevel() << "\nconsumer " << consumer->Description() << "\n";

    tcConfiguration* configuration = tcConfiguration::GetInstance();
    setenv("VXOWN", "own", 1);
    std::cout << "value " << configuration->GetItemInSection("", "value", "") << "\nhome "
              << configuration->ExpandVars("$(VXHOME)") << "\nset "
              << configuration->ExpandVars("$(VXSET)") << "\nown "
              << configuration->ExpandVars("$(VXOWN)") << "\nitem "
              << configuration->GetItemInSection("", "vxitem", "") << "\nmodule "
              << (tcDbgd::getItem()->GetWB("PROC") != nullptr ? "loaded" : "none") << "\ntrusts "
              << (tcDbgd::getItem()->Trusts(nullptr) ? "yes" : "no") << std::endl;
    if (getenv("DBGD_DISABLE") == nullptr) ServeAndTellWhere();
    return 0;
}
