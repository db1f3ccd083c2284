// Default packages of the network modules.
#include "families.h"

int mkconfig_write_network(const char *confdir, int channels)
{
    (void)confdir;
    (void)channels;
    return 0;
}
