// Default packages of the chm modules.
#include "families.h"

int mkconfig_write_chm(const char *confdir, int channels)
{
    (void)confdir;
    (void)channels;
    return 0;
}
