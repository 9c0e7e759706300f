/* What dirname and basename do, and which library they are in. */
#ifndef REPORT_H
#define REPORT_H

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

typedef char* (*tpPathFunction)(char*);

static void Report(const char* who, tpPathFunction directory, tpPathFunction name)
{
    tpPathFunction functions[] = {directory, name};
    char file[] = "file", folder[] = "a/b/";
    printf("%s: '%s' '%s'", who, directory(file), name(folder));
    for (int i = 0; i < 2; ++i) {
        void* address;
        Dl_info place;
        memcpy(&address, &functions[i], sizeof address);
        if (dladdr(address, &place) == 0) place.dli_fname = "nowhere";
        printf(" %s", strstr(place.dli_fname, "libvxcamiface") ? "library" : "system");
    }
    printf("\n");
}

#endif
