// Default packages of the event modules.
#include "families.h"

int mkconfig_write_event(const char *confdir, int channels)
{
    (void)confdir;
    (void)channels;
    return 0;
}
