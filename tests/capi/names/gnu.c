#define _GNU_SOURCE
#include "report.h"

char* dirname(char* path);

void ReportGnu(void)
{
    Report("gnu", dirname, (tpPathFunction)basename);
}
