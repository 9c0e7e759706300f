#define _GNU_SOURCE
#include "report.h"

#include <libgen.h>

void ReportPosix(void)
{
    Report("posix", dirname, basename);
}
