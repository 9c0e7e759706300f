// A program that does nothing but use the library: what becomes of the daemon when a process loads
// it, forks, and ends. debug_host MODE [MODULE]; what it finds out goes to standard output.
#include "tcDbgd.h"
#include "tcLog.h"
#include "tcLogConsumer.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

unsigned short WaitForPort()
{
    for (int i = 0; i < 10000 && DbgdPointer()->GetPort() == 0; ++i)
        usleep(1000);
    return DbgdPointer()->GetPort();
}

int Connect(unsigned short port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) exit(30);
    return descriptor;
}

void AskForEver(unsigned short port, const char* request)
{
    for (;;) {
        const int descriptor = Connect(port);
        char reply[4096];
        if (send(descriptor, request, strlen(request), MSG_NOSIGNAL) > 0)
            while (recv(descriptor, reply, sizeof reply, 0) > 0) {
            }
        close(descriptor);
    }
}

// Clients of every kind, and threads that log.
void MakeBusy()
{
    tcLog* log = tcLog::FindLog("BUSY");
    const unsigned short port = WaitForPort();
    for (const char* request :
         {"LOG:LIST", "LOG:SET BUSY 1 100", "LOG:DUMP BUSY", "LOG:SET BUSY 1", "HELP:LOG"})
        std::thread(AskForEver, port, request).detach();
    Connect(port); // silent
    for (int i = 0; i < 2; ++i) {
        std::thread([log] {
            for (;;)
                log->logDebug(1, "text");
        }).detach();
    }
    usleep(30000);
}

int RunAnother()
{
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/true", "true", static_cast<char*>(nullptr));
        _exit(1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// A child that cannot become another program, and ends by exit().
int FailToRunAnother()
{
    const pid_t child = fork();
    if (child == 0) {
        execl("/no/such/program", "program", static_cast<char*>(nullptr));
        exit(7);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 7 ? 0 : 8;
}

double CpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

} // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "list") {
        std::printf("%s", DbgdPointer()->List().c_str());
        return 0;
    }
    if (mode == "serve") { // the port, then on until the input ends
        std::printf("%d\n", WaitForPort());
        std::fflush(stdout);
        char byte;
        while (read(0, &byte, 1) > 0) {
        }
        return 0;
    }
    if (mode == "module" && argc > 2) { // loaded and unloaded while a client asks for it
        const unsigned short port = WaitForPort();
        std::thread(AskForEver, port, "PROC").detach();
        for (int i = 0; i < 20; ++i) {
            void* module = dlopen(argv[2], RTLD_NOW);
            if (!module || !DbgdPointer()->GetWB("PROC")) return 3;
            usleep(1000);
            if (dlclose(module) != 0 || DbgdPointer()->GetWB("PROC")) return 4;
        }
        return 0;
    }
    if (mode == "exit") return 0;
    if (mode == "exit-busy") {
        MakeBusy();
        exit(0);
    }
    if (mode == "fork") {
        MakeBusy();
        for (int i = 0; i < 10; ++i) {
            if (RunAnother() != 0) return 5;
        }
        return FailToRunAnother();
    }
    if (mode == "idle") {
        WaitForPort();
        const double before = CpuSeconds();
        std::this_thread::sleep_for(std::chrono::seconds(1));
        std::printf("%d\n", static_cast<int>((CpuSeconds() - before) * 1000));
        return 0;
    }
    return 2;
}
