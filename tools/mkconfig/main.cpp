// Writes a sample configuration root for a host run (grown by the model work).
#include "families.h"

#include <cstdio>

int main(int argc, char **)
{
    if (argc < 2) {
        fprintf(stderr, "usage: mkconfig <confdir> [channels]\n");
        return 2;
    }
    return 0;
}
