/* A program that loads the library by itself: host LIBRARY MODE [PORT]. Exits with 0 when all went
 * as it should. */
#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

static void* spLibrary;
static int (*spVersion)(void);
static int (*spOpen)(const char*, unsigned short);
static int (*spClose)(int);
static int (*spGetExposure)(int, long*);
static _Atomic int snAsked;

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
    Load(argv[1]);

    if (strcmp(mode, "load-again") == 0) {
        for (int i = 0; i < 3; ++i) {
            if (dlclose(spLibrary) != 0) return 14;
            Load(argv[1]);
        }
        return dlclose(spLibrary);
    }

    static int camera;
    camera = OpenCamera(port);
    if (strcmp(mode, "exit-open") == 0) exit(0);
    if (strcmp(mode, "unload-open") == 0) return dlclose(spLibrary);
    if (strcmp(mode, "unload-closed") == 0) {
        if (spClose(camera) != 0) return 15;
        return dlclose(spLibrary);
    }
    if (strcmp(mode, "exit-asking") == 0) {
        pthread_t thread;
        for (int i = 0; i < 4; ++i)
            pthread_create(&thread, NULL, KeepAsking, &camera);
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
