// Default packages of the system modules.
#include "families.h"

int mkconfig_write_system(const char *confdir, int channels)
{
    (void)confdir;
    (void)channels;
    return 0;
}
