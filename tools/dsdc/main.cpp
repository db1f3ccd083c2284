// dsdc: send one request to dsd and print its response.
//
//   dsdc [-u user] [-g group] [-c client] [-s socket] [-t seconds] ['<request JSON>']
//
// Without the request argument the JSON is read from standard input. The
// default client kind 8 sends and receives plain (not URL-encoded) JSON.
// Exit status 0 when a response came, 1 otherwise.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>

#include "client/dsd_client.h"
#include "platform/paths.h"

namespace {

void usage(void)
{
    fprintf(stderr, "usage: dsdc [-u user] [-g group] [-c client] [-s socket] [-t seconds] "
                    "['<request JSON>']\n");
}

} // namespace

int main(int argc, char **argv)
{
    dsd_identity who;
    std::string socket_path = dsd_path("/tmp/dsd_server.sock");
    int timeout_s = 120;
    int opt;
    while ((opt = getopt(argc, argv, "u:g:c:s:t:h")) != -1) {
        switch (opt) {
        case 'u': who.user = optarg; break;
        case 'g': who.group = atoi(optarg); break;
        case 'c': who.client = atoi(optarg); break;
        case 's': socket_path = optarg; break;
        case 't': timeout_s = atoi(optarg); break;
        default: usage(); return 2;
        }
    }
    std::string request;
    if (optind < argc)
        request = argv[optind];
    else
        request.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    std::string error;
    std::string response = dsd_request(socket_path, who, request, timeout_s * 1000, &error);
    if (response.empty()) {
        fprintf(stderr, "dsdc: %s (%s)\n", error.c_str(), socket_path.c_str());
        return 1;
    }
    printf("%s\n", response.c_str());
    return 0;
}
