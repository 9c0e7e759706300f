// A program that includes the library's header, before and behind the system's.
#include <StringTokenizer.h>

#include "report.h"

#include <cstring>
#include <libgen.h>
#include <string.h>

int main()
{
    char path[] = "/top", text[] = "a/b/";
    const char* const constant = "a/b";
    Report("own", dirname, basename);
    std::printf("'%s' '%s' '%s'\n", ::dirname(path), ::basename(text), basename(constant));
    return dirname(nullptr) == nullptr ? 0 : 1;
}
