/* program OTHER LIBRARY: reports what the program gets, what the library OTHER gets, whose
 * functions are those of this program, and what dlsym() finds in LIBRARY. */
#define _GNU_SOURCE
#include "report.h"

#include <stdlib.h>

void ReportPosix(void);
void ReportGnu(void);
int VXGetDllVersion(void);

static void* Load(const char* path)
{
    void* library = dlopen(path, RTLD_NOW);
    if (!library) {
        puts(dlerror());
        exit(1);
    }
    return library;
}

static void Call(void* library, const char* name)
{
    void (*function)(void);
    void* address = dlsym(library, name);
    memcpy(&function, &address, sizeof address);
    function();
}

int main(int count, char** arguments)
{
    tpPathFunction directory, name;
    void *other, *library, *address;
    if (count != 3 || VXGetDllVersion() == 0) return 2;
    ReportPosix();
    ReportGnu();
    other = Load(arguments[1]);
    Call(other, "ReportPosix");
    Call(other, "ReportGnu");
    library = Load(arguments[2]);
    address = dlsym(library, "dirname");
    memcpy(&directory, &address, sizeof address);
    address = dlsym(library, "basename");
    memcpy(&name, &address, sizeof address);
    Report("dlsym", directory, name);
    return 0;
}
