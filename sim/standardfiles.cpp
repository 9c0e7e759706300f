#include "standardfiles.h"

#include <fcntl.h>
#include <unistd.h>

void OpenStandardFiles()
{
    constexpr int last = 2;
    int descriptor = -1;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= last);
    if (descriptor >= 0) close(descriptor);
}
