/* A program that loads the library by itself: host LIBRARY MODE [PORT]. Exits with 0 when all went
 * as it should. */
#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

/* Thread sanitizer takes the system's reuse of a thread's block for the variables of a library that
 * was loaded by hand for a race of two threads. */
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's name
const char* __tsan_default_suppressions(void);
// NOLINTNEXTLINE(bugprone-reserved-identifier)
const char* __tsan_default_suppressions(void)
{
    return "race:_dl_deallocate_tls\n";
}

static void* spLibrary;
static int (*spVersion)(void);
static int (*spOpen)(const char*, unsigned short);
static int (*spClose)(int);
static int (*spGetExposure)(int, long*);
static int (*spRead)(int, unsigned short*, short, unsigned short);
static int (*spWait)(int, int);
static int snCamera;
static unsigned short snDaemonPort, snItemPort;
static _Atomic int snAsked, snRead, snAnswered;

/* C has no conversion from an address to a function, POSIX has: hence the detour. */
static void Find(const char* name, void* function)
{
    void* address = dlsym(spLibrary, name);
    if (!address) {
        fprintf(stderr, "%s\n", dlerror());
        exit(10);
    }
    memcpy(function, &address, sizeof address);
}

static void Load(const char* path)
{
    spLibrary = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!spLibrary) {
        fprintf(stderr, "%s\n", dlerror());
        exit(11);
    }
    Find("VXGetDllVersion", &spVersion);
    Find("VXOpenENetCamera", &spOpen);
    Find("VXCloseCamera", &spClose);
    Find("VXGetExposureTime", &spGetExposure);
    if (spVersion() != 0x00030007) exit(12);
}

static int OpenCamera(const char* port)
{
    int camera = spOpen("127.0.0.1", (unsigned short)atoi(port));
    if (camera < 0) exit(13);
    return camera;
}

static void* KeepAsking(void* argument)
{
    long exposure;
    while (1) {
        spGetExposure(*(int*)argument, &exposure);
        snAsked++;
    }
    return NULL;
}

static void* KeepReading(void* argument)
{
    static unsigned short image[64 * 64];
    (void)argument;
    while (1) {
        if (spRead(snCamera, image, 10, 0) == 0 && spWait(snCamera, 10000) == 0) snRead++;
    }
    return NULL;
}

/* A stream socket on loopback, bound to the port or connected to it; -1: it cannot be. */
static int Socket(unsigned short port, int isServer)
{
    struct sockaddr_in address;
    const socklen_t size = sizeof address;
    int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    struct sockaddr* any = (struct sockaddr*)&address;
    if ((isServer ? bind(descriptor, any, size) : connect(descriptor, any, size)) != 0) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

/* One that the system gives to nobody by itself, in an order that differs between processes. */
static unsigned short FreePort(unsigned first)
{
    const unsigned count = 4000;
    for (unsigned i = 0; i < count; ++i) {
        const unsigned short port = (unsigned short)(first + ((unsigned)getpid() * 7u + i) % count);
        const int descriptor = Socket(port, 1);
        if (descriptor < 0) continue;
        close(descriptor);
        return port;
    }
    return 0;
}

/* Asks the daemon, or the item server where the request begins with a small letter. */
static void* KeepRequesting(void* argument)
{
    const char* request = argument;
    char reply[4096];
    while (1) {
        int descriptor = Socket(*request == 'i' ? snItemPort : snDaemonPort, 0);
        if (descriptor < 0) {
            usleep(1000);
            continue;
        }
        const char* text = *request == 'i' ? request + 1 : request;
        if (send(descriptor, text, strlen(text), MSG_NOSIGNAL) > 0) {
            while (recv(descriptor, reply, sizeof reply, 0) > 0) {
            }
            snAnswered++;
        }
        close(descriptor);
    }
    return NULL;
}

static void Export(const char* name, unsigned short port)
{
    char text[8];
    snprintf(text, sizeof text, "%u", port);
    setenv(name, text, 1);
}

/* Where the debug services are to be found. */
static void ChoosePorts(void)
{
    snDaemonPort = FreePort(12000);
    snItemPort = FreePort(16000);
    Export("DBGD_PORTNUM", snDaemonPort);
    Export("DBGITEM_PORTNUM", snItemPort);
    setenv("DBGITEM_BIND", "127.0.0.1", 1);
    setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);     /* the end cuts off calls that wait */
    if (!freopen("/dev/null", "w", stdout)) exit(16); /* the item server tells what it does */
}

/* All at once: a streaming camera that is asked and logs a lot, clients of both servers. */
static void MakeBusy(void)
{
    static char saRequests[][24] = {"LOG:SET VXCAM1 4 200", "LOG:DUMP VXCAM1", "LOG:SET VXCAM1 2",
                                    "LOG:LIST", "iLIST"};
    int (*area)(int, int, int, int, int);
    int (*exposure)(int, long);
    void (*startItems)(void);
    pthread_t thread;
    Find("VXReadCCDArea", &spRead);
    Find("VXWaitCompletion", &spWait);
    Find("VXSetCCDArea", &area);
    Find("VXSetExposure", &exposure);
    Find("_ZN9tcDbgItem11StartServerEv", &startItems);
    startItems();
    if (exposure(snCamera, 0) != 0 || area(snCamera, 0, 0, 64, 64) != 0) exit(17);
    pthread_create(&thread, NULL, KeepReading, NULL);
    for (int i = 0; i < 2; ++i)
        pthread_create(&thread, NULL, KeepAsking, &snCamera);
    for (size_t i = 0; i < sizeof saRequests / sizeof *saRequests; ++i)
        pthread_create(&thread, NULL, KeepRequesting, saRequests[i]);
    while (snAsked < 50 || snRead < 2 || snAnswered < 20)
        usleep(100); /* the test has a deadline */
}

/* Fork, and become another program in the child: 0 when that ran. */
static int RunAnother(void)
{
    int status = -1;
    pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", "exit 42", (char*)NULL);
        _exit(1);
    }
    if (waitpid(child, &status, 0) != child) return 20;
    return WIFEXITED(status) && WEXITSTATUS(status) == 42 ? 0 : 21;
}

int main(int argc, char** argv)
{
    if (argc < 3) return 1;
    const char* mode = argv[2];
    const char* port = argc > 3 ? argv[3] : "0";
    const int isBusy = strstr(mode, "busy") != NULL;
    if (isBusy) ChoosePorts();
    Load(argv[1]);

    if (strcmp(mode, "load-again") == 0) {
        for (int i = 0; i < 3; ++i) {
            if (dlclose(spLibrary) != 0) return 14;
            Load(argv[1]);
        }
        return dlclose(spLibrary);
    }

    const int camera = snCamera = OpenCamera(port);
    if (isBusy) MakeBusy();
    if (strcmp(mode, "exit-busy") == 0) exit(0);
    if (strcmp(mode, "unload-busy") == 0) return dlclose(spLibrary);
    if (strcmp(mode, "exit-open") == 0) exit(0);
    if (strcmp(mode, "unload-open") == 0) return dlclose(spLibrary);
    if (strcmp(mode, "unload-closed") == 0) {
        if (spClose(camera) != 0) return 15;
        return dlclose(spLibrary);
    }
    if (strcmp(mode, "exit-asking") == 0) {
        pthread_t thread;
        for (int i = 0; i < 4; ++i)
            pthread_create(&thread, NULL, KeepAsking, &snCamera);
        while (snAsked < 200)
            usleep(100); /* the test has a deadline */
        exit(0);
    }
    if (strcmp(mode, "fork-exec") == 0) {
        int result = 0;
        for (int i = 0; i < 10 && result == 0; ++i)
            result = RunAnother();
        if (spClose(camera) != 0) return 15;
        return result;
    }
    return 2;
}
