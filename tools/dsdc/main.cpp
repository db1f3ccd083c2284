// dsdc: talk to dsd from a shell, the way uci and `ubus call` read.
// See usage() for the commands; every one of them sends one request built
// from its words (or given as raw JSON) and prints the response.
#include <getopt.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "client/dsd_client.h"
#include "platform/error_codes.h"
#include "platform/paths.h"
#include "tools/dsdc/dsdc.h"

namespace {

void usage(FILE *to)
{
    fputs("usage: dsdc [options] COMMAND [ARGS...]\n"
          "       dsdc [options] ['<request JSON>']     (without it: JSON read from stdin)\n"
          "\n"
          "commands:\n"
          "  get MODULE SECTION... [--type TYPE...]   read sections by name and/or uci type\n"
          "  get MODULE                               the whole module: every stored section\n"
          "                                           of its named rows and section types\n"
          "  set MODULE.SECTION.OPTION=VALUE...       change options (values are sent as text;\n"
          "                                           use the raw JSON form for lists)\n"
          "  add MODULE TYPE NAME [OPTION=VALUE...]   create section NAME (TYPE_n) of TYPE\n"
          "  delete MODULE SECTION... [--type TYPE...] remove sections by name and/or type\n"
          "  do MODULE KEYWORD [JSON]                 run an action (argument default {})\n"
          "  schema [MODULE] [--markdown]             the model of this build: modules, sections,\n"
          "                                           options with checker, argument and code;\n"
          "                                           per-channel rows folded into patterns\n"
          "                                           (chn%d_...) counted for the channels of\n"
          "                                           $DSD_ROOT/etc/config/basic_info, else 128\n"
          "  codes [--markdown]                       the error codes and their meanings\n"
          "  stats [--json]                           the daemon's live figures as a table\n"
          "  watch [MODULE...] [--json]               print configuration changes as they are\n"
          "                                           committed, one line each, until interrupted\n"
          "\n"
          "options:\n"
          "  -s SOCKET   daemon socket (default $DSD_ROOT/tmp/dsd_server.sock)\n"
          "  -u USER     user of the info record (default admin)\n"
          "  -g GROUP    user group 1..3 (default 1)\n"
          "  -c CLIENT   client kind (default 8: plain JSON both ways)\n"
          "  -t SECONDS  response time-out (default 120)\n"
          "  --pretty, --compact   indented or one-line JSON (default: indented on a terminal)\n"
          "  -h, --help  this text\n"
          "\n"
          "exit status: 0 when error_code is 0; 1 for any other error_code (its meaning is\n"
          "printed on stderr); 2 for a bad command line; 3 when dsd did not answer.\n"
          "\n"
          "examples:\n"
          "  dsdc get video chn1_main chn2_minor\n"
          "  dsdc get --type guest user_management\n"
          "  dsdc set motion_detection.chn1_motion_det.enabled=on\n"
          "  dsdc add user_management guest guest_7 username=bob authority=2\n"
          "  dsdc delete user_management guest_7\n"
          "  dsdc do motion_detection chn_get_md_regions '{\"channel\":1}'\n"
          "  dsdc '{\"method\":\"get\",\"video\":{\"name\":\"chn1_main\"}}'\n",
          to);
}

// Parses the options before the command; the index of the first other word,
// or -1 after --help, or -2 on a bad option.
int parse_options(int argc, char **argv, dsdc_options *o)
{
    static const option longs[] = {
        {"help", no_argument, nullptr, 'h'},
        {"pretty", no_argument, nullptr, 'P'},
        {"compact", no_argument, nullptr, 'C'},
        {"json", no_argument, nullptr, 'J'},
        {nullptr, 0, nullptr, 0},
    };
    int opt;
    // "+": stop at the command, whose own words may look like options.
    while ((opt = getopt_long(argc, argv, "+u:g:c:s:t:h", longs, nullptr)) != -1) {
        switch (opt) {
        case 'u': o->who.user = optarg; break;
        case 'g': o->who.group = atoi(optarg); break;
        case 'c': o->who.client = atoi(optarg); break;
        case 's': o->socket_path = optarg; break;
        case 't': o->timeout_s = atoi(optarg); break;
        case 'P': o->pretty = true; break;
        case 'C': o->pretty = false; break;
        case 'J': o->json = true; break;
        case 'h': usage(stdout); return -1;
        default: return -2;
        }
    }
    return optind;
}

// Sends the request, prints the response, and maps its error_code to the
// exit status.
int exchange(const dsdc_options &o, const std::string &request)
{
    dsdc_json response;
    int rc = dsdc_call(o, request, &response);
    if (response)
        dsdc_print(response.get(), o.pretty);
    return rc;
}

bool has_flag(int argc, char **argv, const char *flag)
{
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], flag) == 0)
            return true;
    }
    return false;
}

// stats, watch and the whole-module get; their own --json is taken too.
int live_command(const std::string &cmd, int argc, char **argv, dsdc_options *o)
{
    std::vector<char *> words;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--json") == 0)
            o->json = true;
        else
            words.push_back(argv[i]);
    }
    if (cmd == "stats")
        return words.empty() ? dsdc_stats(*o) : (usage(stderr), DSDC_USAGE);
    if (cmd == "watch")
        return dsdc_watch(*o, static_cast<int>(words.size()), words.data());
    return dsdc_get_module(*o, words[0]);
}

// schema and codes answer from this build, without the daemon.
int local_command(const std::string &cmd, int argc, char **argv, const dsdc_options &o)
{
    bool markdown = has_flag(argc, argv, "--markdown");
    if (cmd == "codes")
        return dsdc_codes(markdown, o.pretty);
    const char *module = nullptr;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--markdown") != 0)
            module = argv[i];
    }
    return dsdc_schema(module, markdown, o.pretty);
}

} // namespace

int dsdc_call(const dsdc_options &o, const std::string &request, dsdc_json *response)
{
    std::string error;
    std::string text = dsd_request(o.socket_path, o.who, request, o.timeout_s * 1000, &error);
    if (text.empty()) {
        fprintf(stderr, "dsdc: %s (%s)\n", error.c_str(), o.socket_path.c_str());
        return DSDC_NO_RESPONSE;
    }
    response->reset(json_tokener_parse(text.c_str()));
    json_object *code = nullptr;
    if (!*response || !json_object_object_get_ex(response->get(), "error_code", &code) ||
        !json_object_is_type(code, json_type_int)) {
        response->reset();
        printf("%s\n", text.c_str());
        fprintf(stderr, "dsdc: the response carries no error_code\n");
        return DSDC_ERROR_CODE;
    }
    int32_t rc = json_object_get_int(code);
    if (rc == 0)
        return DSDC_OK;
    fprintf(stderr, "dsdc: error_code %d: %s\n", rc, dsd_error_meaning(rc));
    return DSDC_ERROR_CODE;
}

void dsdc_print(json_object *obj, bool pretty)
{
    int flags = JSON_C_TO_STRING_NOSLASHESCAPE |
                (pretty ? JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED : JSON_C_TO_STRING_PLAIN);
    printf("%s\n", json_object_to_json_string_ext(obj, flags));
}

int main(int argc, char **argv)
{
    dsdc_options o;
    int first = parse_options(argc, argv, &o);
    if (first < 0) {
        if (first == -2)
            usage(stderr);
        return first == -1 ? DSDC_OK : DSDC_USAGE;
    }
    std::string request;
    if (first >= argc) {
        request.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        return exchange(o, request);
    }
    std::string cmd = argv[first];
    if (cmd == "schema" || cmd == "codes")
        return local_command(cmd, argc - first - 1, argv + first + 1, o);
    if (cmd == "help")
        return usage(stdout), DSDC_OK;
    if (cmd == "stats" || cmd == "watch" || (cmd == "get" && dsdc_whole_module(argc - first - 1, argv + first + 1)))
        return live_command(cmd, argc - first - 1, argv + first + 1, &o);
    if (cmd.empty() || cmd[0] == '{' || cmd[0] == ' ')
        return exchange(o, cmd);
    std::string error;
    dsdc_json req = dsdc_build_request(cmd, argc - first - 1, argv + first + 1, &error);
    if (!req) {
        fprintf(stderr, "dsdc: %s (dsdc --help lists the commands)\n", error.c_str());
        return DSDC_USAGE;
    }
    return exchange(o, json_object_to_json_string_ext(req.get(), JSON_C_TO_STRING_PLAIN));
}
